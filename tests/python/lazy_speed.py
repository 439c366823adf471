"""Seconds to look at a plane: computed from raw frames by open_recording, and read as stored by the batch.

usage: lazy_speed.py FOLDER [--frames N] [--look LOOK] [--units] [--threads N] [--cold] [--rounds N]
                                             FOLDER keeps the files, 27 MB a frame, for the next time;
                                             LOOK is pixel or mean, over all frames
       lazy_speed.py --quick                 runs everything once, as a test that it still runs
"""

from __future__ import annotations

import argparse
import itertools
import os
import statistics
import sys
import tempfile
import time
from pathlib import Path

import xarray
from batch_support import output, settings, store_all
from numcodecs import blosc

import veldrane_polarization as vp
from veldrane_polarization import _recordings

LAYOUT, FORMAT = 2, "Mono12p"
LOOKS = {"pixel": lambda run: run.dolp[:, 1, 17], "mean": lambda run: run.dolp.mean("time")}


def make_files(folder, count, height, width):
    file = folder / "run.raw"
    if not file.exists():
        # Noise is what a codec has its work with.
        frames = vp.simulate(height, width, layout=LAYOUT, frames=min(count, 4)).frames
        packed = [vp.pack(frame, FORMAT).tobytes() for frame in frames]
        with open(file, "wb") as stream:
            for number in range(count):
                stream.write(packed[number % len(packed)])
    recording = _recordings.open_recording(file, FORMAT, height, width)
    for compression in ("none", "lz4"):
        path = folder / f"{compression}.zarr"
        if not path.exists():
            store_all(recording, output(path, compression), settings(planes=("dolp",)))
    os.sync()  # pages that are not on the disk yet would stay


def sources(folder, height, width, scaled):
    yield (
        "computed",
        vp.open_recording(
            folder / "run.raw",
            layout=LAYOUT,
            pixel_format=FORMAT,
            height=height,
            width=width,
            mask_and_scale=scaled,
        ),
    )
    for compression in ("none", "lz4"):
        path = folder / f"{compression}.zarr"
        yield f"stored, {compression}", xarray.open_zarr(
            path, mask_and_scale=scaled, consolidated=False
        )


def evict(folder):
    """All files from the system's cache."""
    for place, _, names in os.walk(folder):
        for name in names:
            descriptor = os.open(os.path.join(place, name), os.O_RDONLY)
            os.posix_fadvise(descriptor, 0, 0, os.POSIX_FADV_DONTNEED)
            os.close(descriptor)


def measure(folder, height, width, line):
    runs = dict(sources(folder, height, width, bool(line.units)))
    seconds = {name: [] for name in runs}
    for _ in range(line.rounds):
        for name, run in runs.items():
            if line.cold:
                evict(folder)
            begin = time.perf_counter()
            LOOKS[line.look](run).compute(scheduler="threads", num_workers=line.threads)
            seconds[name].append(time.perf_counter() - begin)
    medians = (f"{name} {statistics.median(each):.2f} s" for name, each in seconds.items())
    print(
        f"{line.look}, {'units' if line.units else 'numbers'}, {'cold' if line.cold else 'warm'}, "
        f"{line.threads} threads: " + "; ".join(medians),
        flush=True,
    )


def main():
    line = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    line.add_argument("folder", nargs="?", type=Path)
    line.add_argument("--frames", type=int, default=200)
    line.add_argument("--threads", type=int, default=1)
    line.add_argument("--rounds", type=int, default=3)
    line.add_argument("--look", choices=LOOKS, default="pixel")
    line.add_argument("--units", action="store_true")
    line.add_argument("--cold", action="store_true")
    line.add_argument("--quick", action="store_true")
    line = line.parse_args()
    if line.folder is None and not line.quick:
        sys.exit("lazy_speed.py: give a folder for files, or --quick")
    blosc.use_threads = False  # as many threads as are asked for
    if not line.quick:
        make_files(line.folder, line.frames, 2048, 2448)
        measure(line.folder, 2048, 2448, line)
        return
    line.rounds = 1
    with tempfile.TemporaryDirectory() as name:
        make_files(Path(name), 4, 64, 96)
        for line.look, line.cold, line.units in itertools.product(LOOKS, (0, 1), (0, 1)):
            measure(Path(name), 64, 96, line)


if __name__ == "__main__":
    main()
