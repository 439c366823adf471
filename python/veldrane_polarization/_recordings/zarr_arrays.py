"""Recordings that are a zarr array: every chunk is looked at before zarr is."""

from __future__ import annotations

import itertools
import stat
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Union

import numpy as np

from .._arguments import Array
from . import zarr_metadata
from .common import Recording_error, description_of


@dataclass(frozen=True)
class Zarr_recording:
    """A zarr array (N, H, W)."""

    path: str
    count: int
    shape: tuple[int, ...]
    dtype: str
    chunks: tuple[int, ...]
    failures: tuple[str, ...] = ()

    @property
    def frames_per_task(self) -> int:
        return self.chunks[0]

    def read(self, first: int, stop: int) -> Array:
        folder = Path(self.path)
        metadata = _array_metadata(folder)
        wanted = (self.count, *self.shape), self.dtype, self.chunks
        if (metadata.shape, metadata.dtype, metadata.chunks) != wanted:
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
        return description_of(
            "zarr array", self.path, self.count, self.shape, self.dtype, chunks=list(self.chunks)
        )


def open_array(path: Path) -> Zarr_recording:
    array = _array_metadata(path)
    return Zarr_recording(str(path), array.shape[0], array.shape[1:], array.dtype, array.chunks)


def _array_metadata(path: Path) -> zarr_metadata.Array_metadata:
    try:
        return zarr_metadata.of_frames(path)
    except zarr_metadata.Metadata_error as error:
        raise Recording_error(
            f"{path}/.zarray cannot be read ({error}); write the array again"
        ) from None


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
