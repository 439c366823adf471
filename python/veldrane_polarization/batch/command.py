"""The command: from its line to its exit code."""

from __future__ import annotations

import argparse
import contextlib
import os
import sys
import uuid
from collections.abc import Sequence
from pathlib import Path
from typing import Optional

import numpy as np

from .. import _arguments, _native
from .._native import Calibration
from .._pixel_formats import PIXEL_FORMATS, bit_depth_of
from .._recordings import (
    Description,
    Recording,
    description_beside,
    layout_beside,
    on_the_command_line,
    open_recording,
)
from .._settings import Settings
from .._trust import Noise
from . import cluster, interruption, output_group, running
from .line import Line_parser, Number, One_of, Seconds, Text, Usage_error, Whole_number, printable
from .storing import COMPRESSIONS, GO_ON, Output

ALL_DONE, A_FRAME_FAILED, WRONG_USAGE, INTERRUPTED = 0, 1, 2, 130

# blosc keeps a few bytes of its 2 GiB to itself.
_MOST_BYTES_OF_A_CHUNK = (1 << 31) - (1 << 16)

_DESCRIPTION = """Turns a recording into a zarr group with one array for each plane, frame by frame.

IN is a zarr array (N, H, W), a folder of grey PNG, TIFF, PGM or npy files, a TIFF or npy file of
many frames, or a file of bare samples (--pixel-format; not if its recorder described it). OUT is made, or gone on with: frames that are complete in it are
skipped. Workers read IN and write OUT themselves, under the same paths."""

_EPILOG = """exit codes: 0 all frames are done, 1 some failed (they are listed) or could not be
finished, 2 wrong usage, 130 interrupted. example: python3 -m veldrane_polarization.batch run.zarr
planes.zarr --layout 90,45,135,0 --bit-depth 12"""


def _add_settings(parser: Line_parser) -> None:
    parser.add_argument(
        "--layout",
        help="polariser angles of the top-left cell, or the phase 0-3",
        kind=Text("four angles such as 90,45,135,0 or a phase from 0 to 3"),
    )
    parser.add_argument(
        "--bit-depth", kind=Whole_number(1, 16), help="significant bits of a sample, 1 to 16"
    )
    parser.add_argument(
        "--planes",
        default="s0,azimuth,dolp",
        help="names with commas, or all for those of the processor; validity and uncertainty if named",
        kind=Text(f"some of {','.join(_native.plane_table)}, or all"),
    )
    parser.add_argument("--mode", help="fast or calibrated", kind=One_of(("fast", "calibrated")))
    parser.add_argument("--calibration", metavar="FILE", kind=Text("the file of a calibration"))
    parser.add_argument("--full-scale", kind=Whole_number(1, 65535), help="of the planes (65535)")
    parser.add_argument("--signed", action="store_true", help="S1 and S2 with their signs, int32")
    parser.add_argument(
        "--electrons-per-count",
        kind=Number(0.001, 1000000),
        metavar="N",
        help="of the camera, for uncertainty and weak light; in place of the calibration's",
    )
    parser.add_argument(
        "--read-noise", kind=Number(0, 1000000), metavar="N", help="in electrons (0)"
    )
    parser.add_argument(
        "--zero-direction",
        kind=Number(-360, 360),
        metavar="DEGREES",
        help="of the axis that angles count from, counter-clockwise from the rows (0)",
    )


def _parser() -> Line_parser:
    parser = Line_parser(
        prog="python3 -m veldrane_polarization.batch", description=_DESCRIPTION, epilog=_EPILOG
    )
    parser.add_argument("input", metavar="IN", kind=Text("a zarr array, a folder or a file"))
    parser.add_argument("output", metavar="OUT", kind=Text("a folder to be made or gone on with"))
    _add_settings(parser)
    raw = parser.add_argument_group("bare samples")
    raw.add_argument(
        "--pixel-format", kind=One_of(PIXEL_FORMATS), metavar="NAME", help=", ".join(PIXEL_FORMATS)
    )
    raw.add_argument("--height", kind=Whole_number())
    raw.add_argument("--width", kind=Whole_number())
    raw.add_argument("--header-bytes", kind=Whole_number())
    raw.add_argument("--stride", kind=Whole_number(), help="bytes from one row to the next")
    where = parser.add_argument_group("where")
    where.add_argument(
        "--scheduler",
        kind=Text("the address of a scheduler"),
        metavar="ADDRESS",
        help="of a cluster that runs already",
    )
    where.add_argument(
        "--workers",
        kind=Whole_number(1, 1024),
        metavar="N",
        help="processes on this machine, without --scheduler; one a processor",
    )
    where.add_argument(
        "--patience",
        kind=Seconds(),
        default=60,
        metavar="SECONDS",
        help="to wait for a worker, and for the next frame to be done (60)",
    )
    where.add_argument(
        "--tls-ca-file",
        kind=Text("a file"),
        metavar="FILE",
        help="of a scheduler with TLS, as for dask-scheduler; in place of Dask's configuration",
    )
    where.add_argument(
        "--tls-cert", kind=Text("a file"), metavar="FILE", help="this program's certificate there"
    )
    where.add_argument("--tls-key", kind=Text("a file"), metavar="FILE", help="its key")
    where.add_argument(
        "--dashboard",
        action="store_true",
        help="show pages about the processes on this machine, to all its users",
    )
    parser.add_argument(
        "--compression",
        kind=One_of(COMPRESSIONS),
        default="lz4",
        help="of OUT, lz4, zstd (slower, 2 %% smaller) or none",
    )
    parser.add_argument(
        "--frames-per-chunk",
        kind=Whole_number(1, 1000000),
        default=1,
        metavar="N",
        help="in one file of OUT (1); with compression a worker has N of each plane in memory",
    )
    parser.add_argument("-q", "--quiet", action="store_true", help="no progress, no summary")
    return parser


def _check_line(line: argparse.Namespace) -> None:
    if line.workers is not None and line.scheduler is not None:
        raise Usage_error("--workers and --scheduler exclude each other; leave out one")
    if line.dashboard and line.scheduler is not None:
        raise Usage_error("--dashboard and --scheduler exclude each other; leave out one")
    if line.scheduler is None and (line.tls_ca_file or line.tls_cert or line.tls_key):
        raise Usage_error(
            "--tls-ca-file, --tls-cert and --tls-key are for --scheduler; give it too"
        )
    if not 0 < line.patience <= 1e6:
        raise Usage_error(f"--patience is {line.patience:g}; give more than 0, up to 1e6 seconds")
    if line.pixel_format is None:
        for option in ("height", "width", "header_bytes", "stride"):
            if getattr(line, option) is not None:
                name = option.replace("_", "-")
                raise Usage_error(f"--{name} is for bare samples; give --pixel-format too")


def _absolute(path: Path) -> Path:
    """As workers are told: symbolic links stay, since they may lead elsewhere on other machines."""
    path = path.absolute()
    parts = path.parts
    if ".." not in parts:
        return path
    # What is before the last .. has to be followed for its sake.
    behind = len(parts) - parts[::-1].index("..")
    return Path(os.path.realpath(Path(*parts[:behind]))).joinpath(*parts[behind:])


def _check_apart(source: Path, output: Path) -> None:
    """OUT must not be written into IN, nor IN be read from OUT."""
    # Path.resolve() raises where links go in a circle.
    one, other = Path(os.path.realpath(source)), Path(os.path.realpath(output))
    if one == other or one in other.parents or other in one.parents:
        raise Usage_error(f"IN {source} and OUT {output} lie in each other; give another OUT")


def _calibration_of(line: argparse.Namespace) -> Optional[Calibration]:
    if line.calibration is None:
        return None
    try:
        return Calibration.load(line.calibration)
    except OSError as error:
        raise Usage_error(
            f"--calibration {line.calibration} cannot be read ({error.strerror}); give "
            "the file of a calibration"
        ) from None
    except ValueError as error:
        raise Usage_error(f"--calibration: {error}") from None


def _noise_of(
    line: argparse.Namespace, planes: tuple[str, ...], calibration: Optional[Calibration]
) -> Optional[Noise]:
    if line.electrons_per_count is not None:
        return Noise(line.electrons_per_count, line.read_noise or 0.0)
    if line.read_noise is not None:
        raise Usage_error(
            "--read-noise is in electrons, but --electrons-per-count is not given; add it"
        )
    if "uncertainty" in planes and (calibration is None or calibration.noise is None):
        raise Usage_error(
            "--planes has uncertainty, but no noise is known; give --electrons-per-count and "
            "--read-noise, or a calibration that measured them"
        )
    return None


def _settings(line: argparse.Namespace, told: Optional[Description] = None) -> Settings:
    calibration = _calibration_of(line)
    layout = line.layout
    if layout is None and told is not None:
        try:
            layout = layout_beside(Path(line.input), told, calibration, on_the_command_line)
        except ValueError as error:
            raise Usage_error(str(error)) from None
    if layout is not None and layout in ("0", "1", "2", "3"):
        layout = int(layout)
    bit_depth = line.bit_depth
    if bit_depth is None:
        if line.pixel_format is None:
            raise Usage_error("--bit-depth is missing; give the significant bits of a sample")
        bit_depth = bit_depth_of(line.pixel_format)
    scale = _arguments.scale_of(bit_depth, line.full_scale)
    if layout is not None and calibration is not None:
        if _arguments.phase_of(layout) != calibration.phase:
            raise Usage_error(
                f"--calibration {line.calibration} is for {calibration.layout}, not for --layout "
                f"{layout}; leave out --layout, or give the calibration of this one"
            )
    phase, known = _arguments.phase_and_calibration(layout, calibration)
    planes = _arguments.planes_of(line.planes.lower())
    mode = _arguments.mode_of(line.mode, known)
    if line.zero_direction and mode == "fast":
        raise Usage_error(
            "--zero-direction turns weights, which fast mode applies to few pixels only; add --mode "
            "calibrated or --calibration, or leave it out"
        )
    return Settings(
        phase,
        scale,
        planes,
        mode,
        known,
        line.signed,
        str(_absolute(Path(line.calibration))) if known is not None else None,
        line.zero_direction or 0.0,
        _noise_of(line, planes, known),
    )


def _take_from_recording(line: argparse.Namespace) -> Optional[Description]:
    """What its recorder told of IN; of the samples in place of options."""
    told = description_beside(Path(line.input))
    if told is not None and line.pixel_format is None:
        line.pixel_format, line.height, line.width = told[:3]
    return told


def _check_frames(recording: Recording, settings: Settings, path: Path) -> None:
    if recording.dtype == "uint8" and settings.scale.bit_depth > 8:
        raise Usage_error(
            f"--bit-depth is {settings.scale.bit_depth}, but {path} holds samples of 8 bits; give at "
            "most 8, or frames of 16 bits"
        )
    height, width = recording.shape
    if not _native.can_be_processed(width, height):
        raise Usage_error(
            f"{path} holds frames of {_native.size_text(width, height)}; give frames of at least 2 "
            "rows and 16 columns, or of exactly 2 rows and at least 2 columns"
        )
    try:
        _arguments.check_maps(settings.calibration, recording.shape, settings.scale.bit_depth)
    except ValueError as error:
        raise Usage_error(f"--calibration {settings.calibration_file}: {error}") from None


def _frames_per_chunk(given: int, recording: Recording, settings: Settings) -> int:
    sizes = (
        int(np.prod(_arguments.plane_shape(name, recording.shape)))
        * _arguments.plane_dtype(name, settings.signed).itemsize
        for name in settings.planes
    )
    most = max(1, _MOST_BYTES_OF_A_CHUNK // max(sizes))
    if given > most:
        raise Usage_error(
            f"--frames-per-chunk is {given}, and a chunk has room for 2 GB of a plane; give at most "
            f"{most}"
        )
    return min(given, max(1, recording.count))


def run(arguments: Optional[Sequence[str]] = None) -> int:
    """The command. Returns the exit code."""
    line = _parser().parse_line(arguments)
    _check_line(line)
    settings = _settings(line, _take_from_recording(line))
    source, path = _absolute(Path(line.input)), _absolute(Path(line.output))
    recording = open_recording(
        source, line.pixel_format, line.height, line.width, line.header_bytes or 0, line.stride
    )
    _check_frames(recording, settings, source)
    _check_apart(source, path)
    per_chunk = _frames_per_chunk(line.frames_per_chunk, recording, settings)
    output = Output(str(path), line.compression, uuid.uuid4().hex[:8], per_chunk)
    output_group.check(output, settings, recording)
    frames = output_group.incomplete_frames(output, settings, recording)
    report = running.Report(len(frames), not line.quiet and sys.stderr.isatty())
    code, problem = ALL_DONE, ""
    try:
        if len(frames):
            _process(line, recording, output, settings, frames, report)
        else:  # a recording without frames has an OUT, too
            output_group.prepare(output, settings, recording)
    except running.Unfinished as error:
        code, problem = A_FRAME_FAILED, str(error)
    except interruption.Interruption:
        code, problem = INTERRUPTED, f"interrupted; {GO_ON}"
    is_told = _tell(report, recording, problem, line.quiet)
    is_whole = is_told and report.done == report.frames and not recording.failures
    return code or (ALL_DONE if is_whole else A_FRAME_FAILED)


def _process(
    line: argparse.Namespace,
    recording: Recording,
    output: Output,
    settings: Settings,
    frames: _arguments.Array,
    report: running.Report,
) -> None:
    security = cluster.credentials(line.tls_ca_file, line.tls_cert, line.tls_key)
    where = cluster.cluster(line.scheduler, line.workers, security, line.dashboard)
    with where as client:
        threads = running.check_workers(client, line.patience)
        interruption.raise_if_interrupted()
        output_group.prepare(output, settings, recording)
        output_group.clear_marks(output, frames)
        report.start()
        under_way = running.Run(client, recording, output, settings, report, line.patience)
        # Workers that have just left may come back, or others.
        under_way.process(frames, 4 * max(1, threads))
    with contextlib.suppress(OSError):  # they harm nobody
        output_group.remove_leftovers(output, settings)


def _tell(report: running.Report, recording: Recording, problem: str, quiet: bool) -> bool:
    """Whether all could be told; failures are, wherever the summary goes."""
    report.end()
    lost = "" if quiet else _summarise(report, recording)
    for index, reason in sorted(report.failures.items()):
        _complain(f"{recording.name(index)}: {reason}")
    for each in filter(None, (*recording.failures, problem, lost)):
        _complain(each)
    return not lost


def _summarise(report: running.Report, recording: Recording) -> str:
    """What was wrong with that."""
    unfinished = report.frames - report.handled
    try:
        print(
            f"{report.done} frames done, {recording.count - report.frames} skipped, "
            f"{len(report.failures)} failed, "
            + (f"{unfinished} not finished, " if unfinished else "")
            + (f"{report.retries} retries, " if report.retries else "")
            + f"{report.seconds:.1f} s, "
            f"{report.done / max(report.seconds, 1e-9):.1f} frames a second",
            flush=True,
        )
    except OSError as error:
        return f"the summary cannot be printed ({error.strerror}); leave it out with --quiet"
    return ""


def _complain(problem: str) -> None:
    print(f"error: {printable(problem)}", file=sys.stderr)


def _problem(error: Exception) -> str:
    if isinstance(error, OSError) and error.strerror:
        file = f"{os.fsdecode(error.filename)}: " if error.filename else ""
        return file + error.strerror
    return str(error)


def main(arguments: Optional[Sequence[str]] = None) -> int:
    try:
        with interruption.interruptible():
            return run(arguments)
    except ImportError as error:
        package = (error.name or "").partition(".")[0].lower()
        _complain(f"{error}; install it, in Debian python3-{package}")
        return WRONG_USAGE
    except (ValueError, TypeError, OSError) as error:
        _complain(_problem(error))
        # Of files that go away, full disks: what is wrong usage has an error of its own.
        return A_FRAME_FAILED if isinstance(error, OSError) else WRONG_USAGE
    except interruption.Interruption:
        _complain(f"interrupted; {GO_ON}")
        return INTERRUPTED
