"""Recordings that are pictures: a folder of files, or a file of many."""

from __future__ import annotations

import hashlib
import os
from collections.abc import Sequence
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

from .. import _native
from .._arguments import Array
from .common import Recording_error, description_of, unchanged
from .frame_files import read_frame

ENDINGS = (".tif", ".tiff", ".png", ".pgm")

# A file, the number in it, and how many it holds.
Place = tuple[str, int, int]


@dataclass(frozen=True)
class Picture_recording:
    """PNG, TIFF and PGM files, in the order of their names."""

    path: str
    places: tuple[Place, ...]
    shape: tuple[int, ...]
    dtype: str
    failures: tuple[str, ...] = ()
    frames_per_task: int = 1
    first: int = 0

    @property
    def count(self) -> int:
        return len(self.places)

    def read(self, first: int, stop: int) -> Sequence[Array]:
        return [self._frame(index) for index in range(first, stop)]

    def _frame(self, index: int) -> Array:
        file, number, _ = self.places[index - self.first]
        with unchanged(file):
            picture = read_frame(file, number)
        if picture.shape != self.shape or picture.dtype != self.dtype:
            raise ValueError(
                f"holds {picture.dtype} in the shape {picture.shape}; the recording has "
                f"{self.dtype} in {self.shape}"
            )
        return picture

    def name(self, index: int) -> str:
        return _name_of(self.places[index - self.first])

    def part(self, first: int, stop: int) -> Picture_recording:
        """These frames under their old numbers, so that a task need not carry a million names."""
        return replace(self, places=self.places[first:stop], first=first)

    def description(self) -> dict[str, Any]:
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
    places, failures = _native.find_pictures(str(path))
    problem = "holds no PNG, TIFF or PGM files"
    for place in places:
        file, number, _ = place
        try:
            first = read_frame(file, number)
        except (ValueError, OSError) as error:  # the next may be whole; this one fails in its turn
            problem = f"holds no frame that can be read; {_name_of(place)}: {error}"
            continue
        return Picture_recording(
            str(path), tuple(places), first.shape, str(first.dtype), tuple(failures)
        )
    raise Recording_error(f"{path} {problem}; give a folder of frames, or a zarr array")
