"""Recordings that are a file of bare samples."""

from __future__ import annotations

import os
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Optional

from .. import _native, _pixel_formats
from .._arguments import Array
from .common import Recording_changed, Recording_error, check_regular, description_of
from .pictures import PNG, TIFF
from .zarr_metadata import LARGEST_SIDE, MOST_FRAMES


@dataclass(frozen=True)
class Raw_recording:
    """Bytes of frames, one behind the other."""

    path: str
    pixel_format: str
    count: int
    shape: tuple[int, ...]
    header: int
    stride: int
    size: int = 0
    modified: int = 0
    dtype: str = "uint16"
    frames_per_task: int = 1

    @property
    def bytes_per_frame(self) -> int:
        if self.stride:
            return self.stride * self.shape[0]
        return _native.bytes_per_frame(self.pixel_format, self.shape[0], self.shape[1], 0)

    def read(self, first: int, stop: int) -> Array:
        size = self.bytes_per_frame
        with open(self.path, "rb") as file:
            file.seek(self.header + first * size)
            data = file.read((stop - first) * size)
            # Behind the read: what was written before it ended shows here.
            status = os.fstat(file.fileno())
        self._check_unchanged(status)
        return _pixel_formats.unpack(
            data, self.pixel_format, *self.shape, frames=stop - first, stride=self.stride or None
        )

    def _check_unchanged(self, status: os.stat_result) -> None:
        if (status.st_size, _modified(status)) == (self.size, self.modified):
            return
        change = "written to"
        if status.st_size != self.size:
            change = f"changed from {self.size} to {status.st_size} bytes"
        raise Recording_changed(
            f"{self.path} was {change} while the run read it; give another OUT, once nothing writes "
            "to it any more"
        )

    def name(self, index: int) -> str:
        return f"{self.path} frame {index}"

    def description(self) -> dict[str, Any]:
        return description_of(
            "bare samples",
            self.path,
            self.count,
            self.shape,
            self.dtype,
            pixel_format=self.pixel_format,
            header_bytes=self.header,
            stride=self.stride,
            bytes=self.size,
            modified=self.modified,
        )


def open_raw(
    path: Path,
    pixel_format: str,
    height: Optional[int],
    width: Optional[int],
    header: int,
    stride: Optional[int],
) -> Raw_recording:
    if height is None or width is None:
        raise Recording_error(f"{path} needs a size; give --height and --width with --pixel-format")
    for option, value in (("--height", height), ("--width", width)):
        if not 1 <= value <= LARGEST_SIDE:
            raise Recording_error(f"{option} is {value}; give 1 to {LARGEST_SIDE}")
    if path.is_dir():
        raise Recording_error(f"{path} is a folder; leave out --pixel-format, or give a file")
    check_regular(path)
    if path.suffix.lower() in TIFF + PNG:
        raise Recording_error(
            f"{path} is a picture; leave out --pixel-format and give the folder that it is in"
        )
    status = path.stat()
    if status.st_size == 0:
        raise Recording_error(f"{path} is empty; record or copy it again")
    if not 0 <= header < status.st_size:
        raise Recording_error(
            f"--header-bytes is {header}, but {path} has {status.st_size} bytes; give 0 to "
            f"{status.st_size - 1}"
        )
    row = _native.bytes_per_frame(pixel_format, 1, width, 0)
    if stride is not None and not row <= stride <= 1 << 32:
        raise Recording_error(
            f"--stride is {stride}; give at least {row}, the bytes of {width} samples in "
            f"{pixel_format}, or leave it out"
        )
    opened = Raw_recording(
        str(path),
        pixel_format,
        0,
        (height, width),
        header,
        stride or 0,
        status.st_size,
        _modified(status),
    )
    size = _native.size_text(width, height)
    count, rest = divmod(status.st_size - header, opened.bytes_per_frame)
    if count == 0 or rest:
        raise Recording_error(
            f"{path} holds {status.st_size - header} bytes behind its header, not a multiple "
            f"of {opened.bytes_per_frame}, a frame of {size} in {pixel_format}; check "
            "size, format and header, or cut off an incomplete last frame"
        )
    if count > MOST_FRAMES:
        raise Recording_error(
            f"{path} holds {count} frames of {size}; give at most "
            f"{MOST_FRAMES} frames at a time"
        )
    return replace(opened, count=count)


def _modified(status: os.stat_result) -> int:
    """In microseconds, which all kinds of storage tell alike; some round off finer ones."""
    return status.st_mtime_ns // 1000
