"""Recordings that are a folder of pictures, in the order of their names."""

from __future__ import annotations

import ctypes
import functools
import hashlib
import os
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

import numpy as np

from .._arguments import Array
from .common import Recording_error, description_of, unchanged
from .pictures import PNG, TIFF, read_picture


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
        with unchanged(self.name(index)):
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
        return description_of(
            "folder", self.path, self.count, self.shape, self.dtype, names_sha256=digest
        )


def open_folder(path: Path) -> Folder_recording:
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


def in_order(names: list[str]) -> list[str]:
    """f1, f2, f10: numbers in names by their value, as the command line sorts."""
    compare = ctypes.CDLL(None).strverscmp

    def difference(one: bytes, other: bytes) -> int:
        return int(compare(one, other))

    key = functools.cmp_to_key(difference)
    return sorted(names, key=lambda name: key(os.fsencode(name)))
