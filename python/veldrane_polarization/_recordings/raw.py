"""Recordings that are a file of bare samples."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Optional

from .. import _native
from .._arguments import Array
from .common import (
    Naming,
    Recording_error,
    check_as_opened,
    check_regular,
    description_of,
    modified_of,
)
from .frame_files import Layout, count_in, failures_in, read_frame
from .zarr_metadata import LARGEST_SIDE, MOST_FRAMES


@dataclass(frozen=True)
class Raw_recording:
    """Bytes of frames, one behind the other."""

    path: str
    pixel_format: str
    count: int
    shape: tuple[int, int]
    header: int
    stride: int
    size: int = 0
    modified: int = 0
    dtype: str = "uint16"
    frames_per_task: int = 1
    failures: tuple[str, ...] = ()

    def read(self, first: int, stop: int) -> Sequence[Array]:
        layout = Layout(self.pixel_format, *self.shape, self.header, self.stride)
        try:
            return [read_frame(self.path, number, layout) for number in range(first, stop)]
        finally:
            check_as_opened(self.path, self.size, self.modified)

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
    named: Naming,
) -> Raw_recording:
    if height is None or width is None:
        raise Recording_error(
            f"{path} needs a size; give {named('height')} and {named('width')} with "
            f"{named('pixel_format')}"
        )
    for argument, value in (("height", height), ("width", width)):
        if not 1 <= value <= LARGEST_SIDE:
            raise Recording_error(f"{named(argument)} is {value}; give 1 to {LARGEST_SIDE}")
    if path.is_dir():
        raise Recording_error(
            f"{path} is a folder; leave out {named('pixel_format')}, or give a file"
        )
    check_regular(path)
    status = path.stat()
    if status.st_size == 0:
        raise Recording_error(f"{path} is empty; record or copy it again")
    if not 0 <= header < status.st_size:
        raise Recording_error(
            f"{named('header_bytes')} is {header}, but {path} has {status.st_size} bytes; give 0 to "
            f"{status.st_size - 1}"
        )
    row = _native.bytes_per_frame(pixel_format, 1, width, 0)
    if stride is not None and not row <= stride <= 1 << 32:
        raise Recording_error(
            f"{named('stride')} is {stride}; give at least {row}, the bytes of {width} samples in "
            f"{pixel_format}, or leave it out"
        )
    layout = Layout(pixel_format, height, width, header, stride or 0)
    try:
        count = count_in(str(path), layout)
        failures = failures_in(str(path), layout)
    except ValueError as error:
        raise Recording_error(str(error)) from None
    if count > MOST_FRAMES:
        raise Recording_error(
            f"{path} holds {count} frames of {_native.size_text(width, height)}; give at most "
            f"{MOST_FRAMES} frames at a time"
        )
    return Raw_recording(
        str(path),
        pixel_format,
        count,
        (height, width),
        header,
        stride or 0,
        status.st_size,
        modified_of(status),
        failures=failures,
    )
