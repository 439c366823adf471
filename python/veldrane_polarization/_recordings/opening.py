"""What a path holds, and the recordings that it may be."""

from __future__ import annotations

import contextlib
import ctypes
import functools
import hashlib
import itertools
import os
import stat
from collections.abc import Iterator
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Optional, Union

import numpy as np

from .. import _native, _pixel_formats
from .._arguments import Array
from . import zarr_metadata
from .pictures import PNG, TIFF, read_picture


class Recording_error(ValueError):
    """A recording that cannot be opened: one line for a user."""


class Recording_changed(Exception):
    """Somebody writes to a recording while it is read: one line for a user."""


@dataclass(frozen=True)
class Zarr_recording:
    """A zarr array (N, H, W)."""

    path: str
    count: int
    shape: tuple[int, ...]
    dtype: str
    chunks: tuple[int, ...]

    @property
    def frames_per_task(self) -> int:
        return self.chunks[0]

    def read(self, first: int, stop: int) -> Array:
        folder = Path(self.path)
        metadata = _array_metadata(folder)
        if (metadata.shape, metadata.chunks) != ((self.count, *self.shape), self.chunks):
            raise ValueError(f"{folder} is another array than at the start; put that one back")
        array = zarr_metadata.open_frames(folder, metadata)
        _check_chunks(array, folder, first, stop)
        try:
            return np.asarray(array[first:stop])
        except MemoryError:
            raise ValueError("does not fit into memory; give more of it to the worker") from None
        except Exception as error:  # each codec has its own for data that make no sense
            if isinstance(error, OSError) and error.errno is not None:
                raise
            raise ValueError("a chunk cannot be decoded; write the array again") from None

    def name(self, index: int) -> str:
        return f"{self.path} frame {index}"

    def description(self) -> dict[str, Any]:
        """What tells this recording from another."""
        return {"kind": "zarr array", **_common(self), "chunks": list(self.chunks)}


@dataclass(frozen=True)
class Folder_recording:
    """TIFF and PNG files of one frame each, in the order of their names."""

    path: str
    files: tuple[str, ...]
    shape: tuple[int, ...]
    dtype: str
    frames_per_task: int = 1
    first: int = 0

    @property
    def count(self) -> int:
        return len(self.files)

    def read(self, first: int, stop: int) -> Array:
        # One type for all of a recording: stacked as they come, 8 bits would pass for 16.
        return np.stack([self._frame(index) for index in range(first, stop)])

    def _frame(self, index: int) -> Array:
        with _unchanged(self.name(index)):
            picture = read_picture(self.name(index))
        if picture.shape != self.shape or picture.dtype != self.dtype:
            raise ValueError(
                f"holds {picture.dtype} in the shape {picture.shape}; the recording has "
                f"{self.dtype} in {self.shape}"
            )
        return picture

    def name(self, index: int) -> str:
        return self.files[index - self.first]

    def part(self, first: int, stop: int) -> Folder_recording:
        """These frames under their old numbers, so that a task need not carry a million names."""
        return replace(self, files=self.files[first:stop], first=first)

    def description(self) -> dict[str, Any]:
        # Names alone: a frame that failed may be mended before the run goes on.
        names = b"\0".join(os.fsencode(os.path.basename(file)) for file in self.files)
        digest = hashlib.sha256(names).hexdigest()
        return {"kind": "folder", **_common(self), "names_sha256": digest}


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
        return {
            "kind": "bare samples",
            **_common(self),
            "pixel_format": self.pixel_format,
            "header_bytes": self.header,
            "stride": self.stride,
            "bytes": self.size,
            "modified": self.modified,
        }


def _modified(status: os.stat_result) -> int:
    """In microseconds, which all kinds of storage tell alike; some round off finer ones."""
    return status.st_mtime_ns // 1000


@contextlib.contextmanager
def _unchanged(file: str) -> Iterator[None]:
    """For a file that is opened by its name, more than once perhaps."""
    before = os.stat(file)
    try:
        yield
    finally:
        now = os.stat(file)
        if any(
            getattr(before, key) != getattr(now, key)
            for key in ("st_size", "st_mtime_ns", "st_ino")
        ):
            raise Recording_changed(
                f"{file} was written to while the run read it; the same command goes on once "
                "nothing writes to it any more"
            )


Recording = Union[Zarr_recording, Folder_recording, Raw_recording]


def text_of_name(name: str) -> str:
    """What JSON can hold: bytes that are no UTF-8 as \\xff."""
    return os.fsencode(name).decode("utf-8", "backslashreplace")


def _common(recording: Recording) -> dict[str, Any]:
    return {
        "file": text_of_name(recording.path),
        "frames": recording.count,
        "frame_shape": list(recording.shape),
        "dtype": recording.dtype,
    }


def _check_chunks(array: Any, folder: Path, first: int, stop: int) -> None:
    """Whether the stored chunks of some frames are all there and whole.

    zarr takes a missing chunk for zeros, and the decoder of blosc reads a shortened one beyond its
    end; others notice by themselves.
    """
    ranges = [range(first // array.chunks[0], (stop - 1) // array.chunks[0] + 1)]
    ranges += [range(-(-size // chunk)) for size, chunk in zip(array.shape[1:], array.chunks[1:])]
    codec = array.compressor.codec_id if array.compressor is not None else None
    plain = int(np.prod(array.chunks)) * int(array.dtype.itemsize)
    for place in itertools.product(*ranges):
        file = folder / array._chunk_key(place)
        try:
            status = file.stat()
        except FileNotFoundError:
            raise ValueError(f"the chunk {file.name} is missing") from None
        if not stat.S_ISREG(status.st_mode):  # a pipe would be waited for
            raise ValueError(f"the chunk {file.name} is no regular file")
        size = status.st_size
        if codec == "blosc":
            unpacked, expected = blosc_sizes(file)
        elif codec is None:
            unpacked, expected = plain, size if array.filters else plain
        else:
            continue
        # Filters may change how many bytes there are before compression.
        if size != expected or not (array.filters or unpacked == plain):
            raise ValueError(f"the chunk {file.name} is damaged, {size} bytes for {expected}")


def blosc_sizes(file: Union[str, Path]) -> tuple[int, int]:
    """Bytes before and after compression as the file's first 16 bytes tell; zeros without them."""
    with open(file, "rb", buffering=0) as stream:
        header = stream.read(16)
    if len(header) < 16:
        return 0, 0
    return int.from_bytes(header[4:8], "little"), int.from_bytes(header[12:16], "little")


def open_recording(
    path: Path,
    pixel_format: Optional[str] = None,
    height: Optional[int] = None,
    width: Optional[int] = None,
    header: int = 0,
    stride: Optional[int] = None,
) -> Recording:
    """Find out what a path holds; reads no more than a frame."""
    try:
        if not path.exists():
            raise Recording_error(f"{path} does not exist; give a zarr array, a folder or a file")
        if pixel_format is not None:
            return _raw(path, pixel_format, height, width, header, stride)
        return _stored(path)
    except OSError as error:
        raise Recording_error(
            f"{path} cannot be read ({error.strerror or error}); make it readable, or give "
            "another IN"
        ) from None


def _stored(path: Path) -> Recording:
    if (path / ".zarray").exists():
        return _zarr(path)
    if (path / ".zgroup").exists():
        raise Recording_error(f"{path} is a zarr group; give one of the arrays in it")
    if (path / "zarr.json").exists():
        raise Recording_error(f"{path} is of zarr's format 3; write it again in format 2")
    if path.is_dir():
        return _folder(path)
    _check_regular(path)
    if path.suffix.lower() in TIFF + PNG:
        raise Recording_error(f"{path} is a single picture; give the folder that it is in")
    raise Recording_error(
        f"{path} is a file of bare samples; give --pixel-format, --height and --width, or a folder"
    )


def _check_regular(path: Path) -> None:
    # Of a device or a pipe nobody knows the size, or when it ends.
    if not path.is_file():
        raise Recording_error(f"{path} is no regular file; give a zarr array, a folder or a file")


def _raw(
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
        if not 1 <= value <= zarr_metadata.LARGEST_SIDE:
            raise Recording_error(f"{option} is {value}; give 1 to {zarr_metadata.LARGEST_SIDE}")
    if path.is_dir():
        raise Recording_error(f"{path} is a folder; leave out --pixel-format, or give a file")
    _check_regular(path)
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
    count, rest = divmod(status.st_size - header, opened.bytes_per_frame)
    if count == 0 or rest:
        raise Recording_error(
            f"{path} holds {status.st_size - header} bytes behind its header, not a multiple "
            f"of {opened.bytes_per_frame}, a frame of {height} x {width} in {pixel_format}; check "
            "size, format and header, or cut off an incomplete last frame"
        )
    if count > zarr_metadata.MOST_FRAMES:
        raise Recording_error(
            f"{path} holds {count} frames of {height} x {width}; give at most "
            f"{zarr_metadata.MOST_FRAMES} frames at a time"
        )
    return replace(opened, count=count)


def _array_metadata(path: Path) -> zarr_metadata.Array_metadata:
    try:
        return zarr_metadata.of_frames(path)
    except zarr_metadata.Metadata_error as error:
        raise Recording_error(
            f"{path}/.zarray cannot be read ({error}); write the array again"
        ) from None


def _zarr(path: Path) -> Zarr_recording:
    array = _array_metadata(path)
    return Zarr_recording(str(path), array.shape[0], array.shape[1:], array.dtype, array.chunks)


def in_order(names: list[str]) -> list[str]:
    """f1, f2, f10: numbers in names by their value, as the command line sorts."""
    compare = ctypes.CDLL(None).strverscmp

    def difference(one: bytes, other: bytes) -> int:
        return int(compare(one, other))

    key = functools.cmp_to_key(difference)
    return sorted(names, key=lambda name: key(os.fsencode(name)))


def _folder(path: Path) -> Folder_recording:
    with os.scandir(path) as entries:
        names = [
            entry.name
            for entry in entries
            if not entry.name.startswith(".")
            and Path(entry.name).suffix.lower() in TIFF + PNG
            and entry.is_file()
        ]
    files = tuple(str(path / name) for name in in_order(names))
    problem = "holds no TIFF or PNG files"
    for file in files:
        try:
            first = read_picture(file)
        except Exception as error:  # the next file may be whole; this one fails in its turn
            problem = f"holds no frame that can be read; {file}: {error}"
            continue
        return Folder_recording(str(path), files, first.shape, str(first.dtype))
    raise Recording_error(f"{path} {problem}; give a folder of frames, or a zarr array")
