"""Frames a second of recordings: reading, processing and storing alone, then the whole command.

usage: throughput.py FOLDER [--frames N]     FOLDER is for temporary files, on the disk to be measured:
                                             10 MB a frame of the recording, up to 40 MB in OUT
       throughput.py --quick                 runs everything once, as a test that it still runs
"""

from __future__ import annotations

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import zarr
from numcodecs import blosc

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization._settings import Settings
from veldrane_polarization.batch import output_group, storing, work

LAYOUT, BIT_DEPTH, PLANES = 2, 12, ("s0", "azimuth", "dolp")


def make_recording(path, count, height, width):
    # Noise is what a codec has its work with.
    frames = vp.simulate(height, width, layout=LAYOUT, frames=min(count, 4)).frames
    array = zarr.open_array(
        str(path),
        mode="w",
        shape=(count, height, width),
        dtype="u2",
        chunks=(1, height, width),
        compressor=None,
    )
    for index in range(count):
        array[index : index + 1] = frames[index % len(frames)][np.newaxis]


def settings():
    return Settings(LAYOUT, vp.Scale(BIT_DEPTH), PLANES, "fast", None, False)


def milliseconds(action, frames):
    begin = time.perf_counter()
    for index in range(frames):
        action(index)
    return 1e3 * (time.perf_counter() - begin) / frames


def bare_copy(folder, planes):
    """What nobody stores the same files without: open, write, close, rename."""
    for name in planes:
        (folder / name).mkdir(parents=True)

    def store(index):
        for name, values in planes.items():
            file = folder / name / str(index)
            descriptor = os.open(f"{file}.partial", os.O_WRONLY | os.O_CREAT, 0o666)
            os.write(descriptor, values)
            os.close(descriptor)
            os.rename(f"{file}.partial", file)

    return store


def in_turn(actions, frames):
    """Milliseconds a frame of each, the median; what the disk does at a time meets them all."""
    took = [[milliseconds(lambda _, i=i: each(i), 1) for each in actions] for i in range(frames)]
    return np.median(took, axis=0)


def parts(source, folder, count):
    """Milliseconds a frame of each part alone, in one process."""
    # As in a worker, whose tasks are not in Python's first thread.
    blosc.use_threads = False
    recording = _recordings.open_recording(source)
    read = milliseconds(lambda index: recording.read(index, index + 1), count)
    raw = recording.read(0, 1)[0]
    process = milliseconds(lambda index: settings().process(raw), count)
    print(f"one process: read {read:.1f} ms, process {process:.1f} ms a frame")
    result = settings().process(raw)
    planes = {name: result[name] for name in PLANES}
    size = sum(values.nbytes for values in planes.values())
    for compression in storing.COMPRESSIONS:
        out = storing.Output(str(folder / "parts.zarr"), compression, "0")
        output_group.prepare(out, settings(), recording)

        def store(index, out=out):
            with storing.Chunk(out, index) as chunk:
                chunk.put(0, planes)
                chunk.store([0])

        bare, took = in_turn([bare_copy(folder / "bare", planes), store], count)
        stored = sum((Path(out.path) / name / "0.0.0").stat().st_size for name in PLANES)
        print(
            f"one process: store {compression:4} {took:.1f} ms a frame, {1e-6 * stored:.1f} MB; the same "
            f"files without compression by open, write, close and rename alone {bare:.1f} ms"
        )
        if compression != "none":
            codec(out.compressor(), planes, size)
        work.process_frames(recording, out, settings(), [0], vp.__version__)
        shutil.rmtree(out.path)
        shutil.rmtree(folder / "bare")


def codec(compressor, planes, size):
    packed = {name: compressor.encode(values) for name, values in planes.items()}
    encode = milliseconds(lambda _: [compressor.encode(each) for each in planes.values()], 5)
    decode = milliseconds(lambda _: [compressor.decode(each) for each in packed.values()], 5)
    ratios = ", ".join(
        f"{name} {values.nbytes / len(packed[name]):.2f}" for name, values in planes.items()
    )
    print(
        f"             {size / sum(map(len, packed.values())):.2f} x smaller ({ratios}), "
        f"{1e-6 * size / encode:.2f} GB/s in, {1e-6 * size / decode:.2f} GB/s out"
    )


def whole(source, folder, workers, compression):
    """Frames a second of the command, until its files are in the system and until on the disk."""
    out = folder / "out.zarr"
    os.sync()
    begin = time.perf_counter()
    done = subprocess.run(
        [
            sys.executable,
            "-B",
            "-m",
            "veldrane_polarization.batch",
            source,
            out,
            "--layout",
            str(LAYOUT),
            "--bit-depth",
            str(BIT_DEPTH),
            "--workers",
            str(workers),
            "--compression",
            compression,
        ],
        capture_output=True,
        text=True,
    )
    os.sync()
    seconds = time.perf_counter() - begin
    shutil.rmtree(out)
    count, rate = re.match(r"(\d+) frames done.* ([0-9.]+) frames a second", done.stdout).groups()
    print(
        f"{workers} workers, {compression:4}: {rate} frames/s; {int(count) / seconds:.1f} frames/s "
        "with start and sync",
        flush=True,
    )
    return float(rate)


def main():
    line = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    line.add_argument("folder", nargs="?", type=Path)
    line.add_argument("--frames", type=int, default=200)
    line.add_argument("--quick", action="store_true")
    line = line.parse_args()
    if line.folder is None and not line.quick:
        sys.exit("throughput.py: give a folder for temporary files, or --quick")
    size = (64, 96) if line.quick else (2048, 2448)
    count = 4 if line.quick else line.frames
    with tempfile.TemporaryDirectory(dir=line.folder) as name:
        folder = Path(name)
        make_recording(folder / "in.zarr", count, *size)
        parts(folder / "in.zarr", folder, count)
        for compression in ("none", "lz4"):
            rates = [whole(folder / "in.zarr", folder, workers, compression) for workers in (1, 2)]
            print(f"{compression}: a second worker brings {rates[1] / rates[0]:.2f} x")


if __name__ == "__main__":
    main()
