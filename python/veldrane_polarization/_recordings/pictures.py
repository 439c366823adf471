"""Recordings that are pictures: a folder of files, or a file of many."""

from __future__ import annotations

import hashlib
import os
from collections.abc import Sequence
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Optional

from .. import _native
from .._arguments import Array
from .common import Recording_error, check_as_opened, description_of, modified_of, unchanged
from .frame_files import read_frame

ENDINGS = (".tif", ".tiff", ".png", ".pgm", ".npy")

# A file, the number in it, and how many it holds.
Place = tuple[str, int, int]


@dataclass(frozen=True)
class Picture_recording:
    """PNG, TIFF, PGM and npy files, in the order of their names, or the pictures of one file.

    Of that file `size` and `modified` are held, since its pictures are of one recording; those of a
    folder may be mended one by one.
    """

    path: str
    places: tuple[Place, ...]
    shape: tuple[int, ...]
    dtype: str
    failures: tuple[str, ...] = ()
    frames_per_task: int = 1
    first: int = 0
    size: Optional[int] = None
    modified: int = 0

    @property
    def count(self) -> int:
        return len(self.places)

    def read(self, first: int, stop: int) -> Sequence[Array]:
        return [self._frame(index) for index in range(first, stop)]

    def _frame(self, index: int) -> Array:
        file, number, _ = self.places[index - self.first]
        picture = self._picture(file, number)
        if picture.shape != self.shape or picture.dtype != self.dtype:
            raise ValueError(
                f"holds {picture.dtype} in the shape {picture.shape}; the recording has "
                f"{self.dtype} in {self.shape}"
            )
        return picture

    def _picture(self, file: str, number: int) -> Array:
        if self.size is None:
            with unchanged(file):
                return read_frame(file, number)
        try:
            return read_frame(file, number)
        finally:
            check_as_opened(file, self.size, self.modified)

    def name(self, index: int) -> str:
        return _name_of(self.places[index - self.first])

    def part(self, first: int, stop: int) -> Picture_recording:
        """These frames under their old numbers, so that a task need not carry a million names."""
        return replace(self, places=self.places[first:stop], first=first)

    def description(self) -> dict[str, Any]:
        if self.size is not None:
            return description_of(
                "file of pictures",
                self.path,
                self.count,
                self.shape,
                self.dtype,
                bytes=self.size,
                modified=self.modified,
            )
        # Names alone: a frame that failed may be mended before the run goes on.
        names = b"\0".join(os.fsencode(os.path.basename(_name_of(each))) for each in self.places)
        digest = hashlib.sha256(names).hexdigest()
        return description_of(
            "folder", self.path, self.count, self.shape, self.dtype, names_sha256=digest
        )


def _name_of(place: Place) -> str:
    file, number, count = place
    return f"{file}, frame {number}" if count > 1 else file


def open_pictures(path: Path) -> Picture_recording:
    """A folder, or a file; the first frame that can be read says how all are."""
    # Before anything is read: a change since then shows.
    status = None if path.is_dir() else path.stat()
    places, failures = _native.find_pictures(str(path))
    names = [] if status else os.listdir(path)
    if failures and not places and any(name.lower().endswith(ENDINGS) for name in names):
        raise Recording_error(failures[0])
    problem = "holds no PNG, TIFF, PGM or npy files"
    for place in places:
        file, number, _ = place
        try:
            first = read_frame(file, number)
        except (ValueError, OSError) as error:  # the next may be whole; this one fails in its turn
            problem = f"holds no frame that can be read; {_name_of(place)}: {error}"
            continue
        return Picture_recording(
            str(path),
            tuple(places),
            first.shape,
            str(first.dtype),
            tuple(failures),
            size=status and status.st_size,
            modified=modified_of(status) if status else 0,
        )
    raise Recording_error(f"{path} {problem}; give a folder of frames, or a zarr array")
