"""Frames in files, read as the program reads them."""

from __future__ import annotations

import functools
import os
from pathlib import Path
from typing import Any, NamedTuple, Optional

from .. import _native
from .._arguments import Array
from .common import PASSING_ERRORS, Naming, Recording_error, on_the_command_line


_PASSING = {
    f"cannot be read: {os.strerror(each)}": (each, os.strerror(each)) for each in PASSING_ERRORS
}


class Layout(NamedTuple):
    """Of bare samples; `stride` is 0 where rows adjoin."""

    pixel_format: str
    height: int
    width: int
    header_bytes: int
    stride: int


def count_in(file: str, layout: Optional[Layout] = None) -> int:
    """Frames, of which none is decoded.

    Raises
    ------
    ValueError
        If the file holds none: its name, what is wrong and the remedy.
    """
    return _opened(file, layout).count


class Description(NamedTuple):
    """What stands beside a recording of a camera's frames.

    `layout` is None where the mosaic is not known; `captures` has frame numbers, times of the
    camera and of the host in nanoseconds, an element a frame, or is None.
    """

    pixel_format: str
    height: int
    width: int
    layout: Optional[str]
    captures: Optional[tuple[Array, ...]]


def description_beside(path: Path, named: Naming = on_the_command_line) -> Optional[Description]:
    """None if there is none, or `path` is no file.

    Raises
    ------
    Recording_error
        If it is damaged: its name, the key and the remedy, in the words of `named`.
    """
    if not path.is_file():
        return None
    try:
        told = _native.recording_description(str(path))
    except ValueError as error:
        problem, separator, remedy = str(error).rpartition("; ")
        for argument in ("pixel_format", "width", "height"):
            remedy = remedy.replace(on_the_command_line(argument), named(argument))
        raise Recording_error(problem + separator + remedy) from None
    return None if told is None else Description(*told)


def layout_beside(path: Path, told: Description, calibration: Any, named: Naming) -> Optional[str]:
    """The layout of a recording for which none is given.

    Raises
    ------
    ValueError
        If it is another than that of the calibration, which need not be one.
    """
    if told.layout is None or not isinstance(calibration, _native.Calibration):
        return told.layout
    if _native.phase_of_text(told.layout) != calibration.phase:
        raise ValueError(
            f"{path}.json tells the layout {told.layout}, but the calibration is for "
            f"{calibration.layout}; give a calibration of this part of the sensor, or "
            f"{named('layout')} if that of the calibration is right"
        )
    return told.layout


def failures_in(file: str, layout: Layout) -> tuple[str, ...]:
    """What should have held frames and does not, a line each."""
    return tuple(_opened(file, layout).failures)


def read_frame(file: str, number: int = 0, layout: Optional[Layout] = None) -> Array:
    """(H, W), uint8 or uint16, every sample as it is stored.

    Raises
    ------
    ValueError
        What is wrong and the remedy, without the file's name.
    OSError
        If there is no such file, or its storage has an error that may pass. A link that leads
        nowhere is a ValueError.
    """
    try:
        return _opened(file, layout).read(number)
    except MemoryError:
        raise ValueError("does not fit into memory; give more of it to the worker") from None
    except ValueError as error:
        problem = str(error).removeprefix(f"{file}, frame {number}: ").removeprefix(f"{file}: ")
        if problem in _PASSING:
            # What is kept open of a file that storage has lost stays lost.
            _kept_open.cache_clear()
            raise OSError(*_PASSING[problem], file) from None
        raise ValueError(problem) from None


def _opened(file: str, layout: Optional[Layout]) -> _native.Frame_file:
    try:
        status = os.stat(file)
    except OSError:
        if not os.path.islink(file):
            raise
        return _native.Frame_file(file)  # tells where the link leads
    return _kept_open(file, layout, (status.st_ino, status.st_size, status.st_mtime_ns))


# The next frame of a process is mostly in the same file, and the way to a picture in a TIFF leads
# through all before it.
@functools.lru_cache(maxsize=4)
def _kept_open(file: str, layout: Optional[Layout], version: Any) -> _native.Frame_file:
    return _native.Frame_file(file, *(layout or ()))
