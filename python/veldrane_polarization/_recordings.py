"""Recordings on disk, read frame by frame in whatever process."""

from __future__ import annotations

from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Optional, Union

import numpy as np

from . import _native, _pixel_formats
from ._arguments import Array

_TIFF, _PNG = (".tif", ".tiff"), (".png",)


class Recording_error(ValueError):
    """A recording that cannot be opened: one line for a user."""


@dataclass(frozen=True)
class Zarr_recording:
    """A zarr array (N, H, W)."""

    path: str
    count: int
    shape: tuple[int, ...]
    dtype: str
    frames_per_task: int

    def read(self, first: int, stop: int) -> Array:
        import zarr

        return np.asarray(zarr.open_array(self.path, mode="r")[first:stop])

    def name(self, index: int) -> str:
        return f"{self.path} frame {index}"


@dataclass(frozen=True)
class Folder_recording:
    """TIFF and PNG files of one frame each, in the order of their names."""

    files: tuple[str, ...]
    shape: tuple[int, ...]
    dtype: str
    frames_per_task: int = 1
    first: int = 0

    @property
    def count(self) -> int:
        return len(self.files)

    def read(self, first: int, stop: int) -> Array:
        return np.stack([_picture(self.name(index)) for index in range(first, stop)])

    def name(self, index: int) -> str:
        return self.files[index - self.first]

    def part(self, first: int, stop: int) -> Folder_recording:
        """These frames under their old numbers, so that a task need not carry a million names."""
        return replace(self, files=self.files[first:stop], first=first)


@dataclass(frozen=True)
class Raw_recording:
    """Bytes of frames, one behind the other."""

    path: str
    pixel_format: str
    count: int
    shape: tuple[int, ...]
    header: int
    stride: int
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
        return _pixel_formats.unpack(
            data, self.pixel_format, *self.shape, frames=stop - first, stride=self.stride or None
        )

    def name(self, index: int) -> str:
        return f"{self.path} frame {index}"


Recording = Union[Zarr_recording, Folder_recording, Raw_recording]


def _picture(file: str) -> Array:
    if file.lower().endswith(_TIFF):
        import tifffile

        picture: Any = tifffile.imread(file)
    else:
        from PIL import Image

        with Image.open(file) as image:
            picture = np.asarray(image)
        # Grey files of 16 bits are read as 32 bits with a sign.
        if picture.dtype == np.int32 and 0 <= picture.min() and picture.max() <= 65535:
            picture = picture.astype(np.uint16)
    if picture.ndim != 2 or picture.dtype not in (np.dtype(np.uint8), np.dtype(np.uint16)):
        raise ValueError(
            f"holds {picture.dtype} in the shape {picture.shape}; give one grey picture of 8 or 16 "
            "bits"
        )
    return np.asarray(picture)


def open_recording(
    path: Path,
    pixel_format: Optional[str] = None,
    height: Optional[int] = None,
    width: Optional[int] = None,
    header: int = 0,
    stride: Optional[int] = None,
) -> Recording:
    """Find out what a path holds; reads no more than a frame."""
    if not path.exists():
        raise Recording_error(f"{path} does not exist; give a zarr array, a folder or a file")
    if pixel_format is not None:
        return _raw(path, pixel_format, height, width, header, stride)
    if (path / ".zarray").exists():
        return _zarr(path)
    if path.is_dir():
        return _folder(path)
    raise Recording_error(
        f"{path} is a file of bare samples; give --pixel-format, --height and --width, or a folder"
    )


def _raw(
    path: Path, pixel_format: str, height: Optional[int], width: Optional[int], header: int,
    stride: Optional[int],
) -> Raw_recording:
    if height is None or width is None:
        raise Recording_error(f"{path} needs a size; give --height and --width with --pixel-format")
    if not path.is_file():
        raise Recording_error(f"{path} is a folder; leave out --pixel-format, or give a file")
    opened = Raw_recording(str(path), pixel_format, 0, (height, width), header, stride or 0)
    count, rest = divmod(max(path.stat().st_size - header, 0), opened.bytes_per_frame)
    if count == 0 or rest:
        raise Recording_error(
            f"{path} holds {path.stat().st_size - header} bytes behind its header, not a multiple "
            f"of {opened.bytes_per_frame}, a frame of {height} x {width} in {pixel_format}; check "
            "size, format and header, or cut off an incomplete last frame"
        )
    return Raw_recording(str(path), pixel_format, count, (height, width), header, stride or 0)


def _zarr(path: Path) -> Zarr_recording:
    import zarr

    array = zarr.open_array(str(path), mode="r")
    if array.ndim != 3 or array.dtype not in (np.dtype(np.uint8), np.dtype(np.uint16)):
        raise Recording_error(
            f"{path} holds {array.dtype} in the shape {array.shape}; give uint8 or uint16 frames "
            "(N, H, W)"
        )
    return Zarr_recording(
        str(path), array.shape[0], tuple(array.shape[1:]), str(array.dtype), array.chunks[0]
    )


def _folder(path: Path) -> Folder_recording:
    files = sorted(str(file) for file in path.iterdir() if file.suffix.lower() in _TIFF + _PNG)
    problem = "holds no TIFF or PNG files"
    for file in files:
        try:
            first = _picture(file)
        except Exception as error:  # the next file may be whole; this one fails in its turn
            problem = f"holds no frame that can be read; {file}: {error}"
            continue
        return Folder_recording(tuple(files), first.shape, str(first.dtype))
    raise Recording_error(f"{path} {problem}; give a folder of frames, or a zarr array")
