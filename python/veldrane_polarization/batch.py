"""Process a whole recording on the machines of a Dask cluster: python -m veldrane_polarization.batch"""

from __future__ import annotations

import argparse
import contextlib
import os
import sys
import time
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any, Optional

from . import _arguments, _batch_work, _native, _recordings
from ._native import Calibration
from ._pixel_formats import PIXEL_FORMATS, bit_depth_of

ALL_DONE, A_FRAME_FAILED, WRONG_USAGE, INTERRUPTED = 0, 1, 2, 130

_DESCRIPTION = """Turns a recording into a zarr group with one array for each plane, frame by frame.

IN is a zarr array (N, H, W), a folder of grey TIFF or PNG files of one frame each, or a file of
bare samples (--pixel-format). OUT is made, or gone on with: frames that are complete in it are
skipped. Workers read IN and write OUT themselves, under the same paths."""

_EPILOG = """exit codes: 0 all frames are done, 1 some failed (they are listed), 2 wrong usage, 130
interrupted. example: python3 -m veldrane_polarization.batch run.zarr planes.zarr --layout
90,45,135,0 --bit-depth 12"""


class Usage_error(Exception):
    """One line for a user."""


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m veldrane_polarization.batch", description=_DESCRIPTION, epilog=_EPILOG
    )
    parser.add_argument("input", metavar="IN", type=Path)
    parser.add_argument("output", metavar="OUT", type=Path)
    parser.add_argument("--layout", help="polariser angles of the top-left cell, or the phase 0-3")
    parser.add_argument("--bit-depth", type=int, help="significant bits of a sample, 1 to 16")
    parser.add_argument("--planes", default="s0,azimuth,dolp", help="names with commas, or all")
    parser.add_argument("--mode", choices=("fast", "calibrated"))
    parser.add_argument("--calibration", type=Path, metavar="FILE")
    parser.add_argument("--full-scale", type=int, default=65535, help="of the planes")
    parser.add_argument("--signed", action="store_true", help="S1 and S2 with their signs, int32")
    raw = parser.add_argument_group("bare samples")
    raw.add_argument("--pixel-format", choices=PIXEL_FORMATS, metavar="NAME",
                     help=", ".join(PIXEL_FORMATS))
    raw.add_argument("--height", type=int)
    raw.add_argument("--width", type=int)
    raw.add_argument("--header-bytes", type=int, default=0)
    raw.add_argument("--stride", type=int, help="bytes from one row to the next")
    cluster = parser.add_argument_group("where")
    cluster.add_argument("--scheduler", metavar="ADDRESS", help="of a cluster that runs already")
    cluster.add_argument("--workers", type=int, metavar="N",
                         help="processes on this machine, without --scheduler; one a processor")
    parser.add_argument("--compression", choices=("lz4", "none"), default="lz4", help="of OUT")
    parser.add_argument("-q", "--quiet", action="store_true", help="no progress, no summary")
    return parser


def _settings(line: argparse.Namespace) -> _batch_work.Settings:
    calibration = Calibration.load(line.calibration) if line.calibration else None
    layout = line.layout
    if layout is not None and layout in ("0", "1", "2", "3"):
        layout = int(layout)
    bit_depth = line.bit_depth
    if bit_depth is None:
        if line.pixel_format is None:
            raise Usage_error("--bit-depth is missing; give the significant bits of a sample")
        bit_depth = bit_depth_of(line.pixel_format)
    scale = _arguments.scale_of(bit_depth, line.full_scale)
    phase, known = _arguments.phase_and_calibration(layout, calibration)
    return _batch_work.Settings(
        phase,
        scale.bit_depth,
        _arguments.planes_of(line.planes),
        _arguments.mode_of(line.mode, known),
        known,
        scale.full_scale,
        line.signed,
    )


def _prepare_output(
    path: Path, settings: _batch_work.Settings, recording: Any, compression: str
) -> None:
    import zarr
    from numcodecs import Blosc

    wanted = _batch_work.attributes_of(settings, recording)
    if path.exists() and not (path / ".zgroup").exists() and any(path.iterdir()):
        raise Usage_error(f"{path} is there and no zarr group; give another OUT")
    if (path / ".zgroup").exists():
        found = dict(zarr.open_group(str(path), mode="r").attrs)
        others = [key for key, value in wanted.items() if found and found.get(key) != value]
        if others:
            key = others[0]
            raise Usage_error(
                f"{path} was made with {key} {found.get(key)!r}, not {wanted[key]!r}; give another "
                "OUT, or the same recording and options"
            )
    compressor = Blosc("lz4", clevel=1, shuffle=Blosc.SHUFFLE) if compression == "lz4" else None
    _batch_work.create(str(path), settings, recording, compressor)


@contextlib.contextmanager
def _cluster(line: argparse.Namespace) -> Iterator[Any]:
    """A client of the cluster that is there, or of one of our own."""
    from distributed import Client, LocalCluster

    if line.scheduler is not None:
        try:
            client = Client(line.scheduler, timeout=10)
        except (OSError, ValueError) as error:
            raise Usage_error(
                f"--scheduler {line.scheduler} does not answer ({error or 'timeout'}); start "
                "dask-scheduler there, or leave the option out"
            ) from None
        with client:
            yield client
        return
    workers = line.workers or len(os.sched_getaffinity(0))
    with LocalCluster(
        n_workers=workers, threads_per_worker=1, dashboard_address=None
    ) as cluster, Client(cluster) as client:
        yield client


def _check_workers(client: Any) -> int:
    """Threads of all workers, once they are known to run the same version."""
    with contextlib.suppress(TimeoutError):
        client.wait_for_workers(1, timeout=30)
    versions = client.run(_batch_work.worker_version)
    if not versions:
        raise Usage_error("the cluster has no worker; start dask-worker for this scheduler")
    for address, version in versions.items():
        if version != _native.software_version():
            raise Usage_error(
                f"the worker {address} has version {version}, this machine "
                f"{_native.software_version()}; install the same everywhere"
            )
    return sum(client.nthreads().values())


class _Progress:
    def __init__(self, count: int, quiet: bool) -> None:
        self._count, self._done, self._begin = count, 0, time.monotonic()
        self._shown = not quiet and sys.stderr.isatty()

    def add(self, number: int) -> None:
        self._done += number
        if not self._shown:
            return
        share = self._done / self._count
        seconds = time.monotonic() - self._begin
        rate = self._done / max(seconds, 1e-9)
        left = (self._count - self._done) / max(rate, 1e-9)
        bar = "#" * int(30 * share)
        print(
            f"\r[{bar:<30}] {self._done}/{self._count} frames, {rate:.1f} a second, {left:.0f} s "
            "left ",
            end="\n" if self._done == self._count else "",
            file=sys.stderr,
            flush=True,
        )


def _tasks(frames: Sequence[int], per_task: int) -> Iterator[list[int]]:
    """Neighbours of one stored chunk together, so that it is read once."""
    group: list[int] = []
    for index in frames:
        if group and index // per_task != group[0] // per_task:
            yield group
            group = []
        group.append(index)
    if group:
        yield group


def _run(
    client: Any, line: argparse.Namespace, recording: Any, settings: _batch_work.Settings,
    frames: Sequence[int],
) -> dict[int, str]:
    """What went wrong, by frame. Only a few tasks a thread are known to the scheduler at a time."""
    from distributed import as_completed

    failures: dict[int, str] = {}
    tasks = _tasks(frames, recording.frames_per_task)
    in_flight = 4 * _check_workers(client)
    progress = _Progress(len(frames), line.quiet)
    path = str(line.output)
    indices_of: dict[str, list[int]] = {}
    finished = as_completed()

    def submit() -> None:
        indices = next(tasks, None)
        if indices is not None:
            part = recording
            if isinstance(recording, _recordings.Folder_recording):
                part = recording.part(indices[0], indices[-1] + 1)
            future = client.submit(
                _batch_work.process_frames, part, path, settings, indices, pure=False
            )
            indices_of[future.key] = indices
            finished.add(future)

    for _ in range(in_flight):
        submit()
    for future in finished:
        indices = indices_of.pop(future.key)
        error = future.exception()
        outcome = future.result() if error is None else [
            (index, f"{type(error).__name__}: {error}") for index in indices
        ]
        failures |= {index: problem for index, problem in outcome if problem is not None}
        progress.add(len(indices))
        submit()
    return failures


def _remove_unfinished_files(path: Path) -> None:
    # What killed writers left beside the chunks; none of ours is at work any more.
    for file in path.glob("*/*.partial"):
        with contextlib.suppress(FileNotFoundError):
            file.unlink()


def run(arguments: Optional[Sequence[str]] = None) -> int:
    """The command. Returns the exit code."""
    line = _parser().parse_args(arguments)
    if line.workers is not None and line.scheduler is not None:
        raise Usage_error("--workers and --scheduler exclude each other; leave out one")
    if line.workers is not None and not 1 <= line.workers <= 1024:
        raise Usage_error(f"--workers is {line.workers}; give 1 to 1024")
    line.input, line.output = line.input.resolve(), line.output.resolve()
    settings = _settings(line)
    recording = _recordings.open_recording(
        line.input, line.pixel_format, line.height, line.width, line.header_bytes, line.stride
    )
    _prepare_output(line.output, settings, recording, line.compression)
    frames = _batch_work.incomplete_frames(str(line.output), settings, recording.count)
    begin, failures = time.monotonic(), {}
    if frames:
        with _cluster(line) as client:
            begin = time.monotonic()
            failures = _run(client, line, recording, settings, frames)
            _remove_unfinished_files(line.output)
    seconds = time.monotonic() - begin
    if not line.quiet:
        done = len(frames) - len(failures)
        print(
            f"{done} frames done, {recording.count - len(frames)} skipped, {len(failures)} failed, "
            f"{seconds:.1f} s, {done / max(seconds, 1e-9):.1f} frames a second"
        )
    for index, problem in sorted(failures.items()):
        print(f"error: {recording.name(index)}: {problem}", file=sys.stderr)
    return A_FRAME_FAILED if failures else ALL_DONE


def main(arguments: Optional[Sequence[str]] = None) -> int:
    try:
        return run(arguments)
    except (Usage_error, ValueError, TypeError, OSError) as error:
        print(f"error: {error}", file=sys.stderr)
        return WRONG_USAGE
    except KeyboardInterrupt:
        print("error: interrupted; the same command goes on from here", file=sys.stderr)
        return INTERRUPTED


if __name__ == "__main__":
    # By its proper name, so that workers find what they are sent.
    from veldrane_polarization.batch import main as _main

    sys.exit(_main())
