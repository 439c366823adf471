"""What a path holds."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Optional, Union

from .. import _native
from .common import Naming, Recording_error, check_regular, on_the_command_line
from .frame_files import count_in, description_beside
from .pictures import ENDINGS, Picture_recording, open_pictures
from .raw import Raw_recording, open_raw
from .zarr_arrays import Zarr_recording, open_array

Recording = Union[Zarr_recording, Picture_recording, Raw_recording]


def open_recording(
    path: Path,
    pixel_format: Optional[str] = None,
    height: Optional[int] = None,
    width: Optional[int] = None,
    header: int = 0,
    stride: Optional[int] = None,
    named: Naming = on_the_command_line,
) -> Recording:
    """Find out what a path holds.

    Every file of a folder is opened, and pictures are decoded up to the first that can be. What is
    refused is told in the words of `named`.
    """
    try:
        if not path.exists():
            raise Recording_error(f"{path} does not exist; give a zarr array, a folder or a file")
        if pixel_format is None and (told := description_beside(path, named)):
            pixel_format, height, width, *_ = told
        if pixel_format is not None:
            return open_raw(path, pixel_format, height, width, header, stride, named)
        return _stored(path, named)
    except MemoryError:
        raise Recording_error(
            f"{path} is too large for the memory of this machine; give another {named('path')}, or "
            "more memory"
        ) from None
    except OSError as error:
        raise Recording_error(
            f"{path} cannot be read ({error.strerror or error}); make it readable, or give "
            f"another {named('path')}"
        ) from None


def _stored(path: Path, named: Naming) -> Recording:
    if (path / ".zarray").exists():
        return open_array(path)
    if (path / ".zgroup").exists():
        raise Recording_error(f"{path} is a zarr group; give one of the arrays in it")
    if (path / "zarr.json").exists():
        raise Recording_error(f"{path} is of zarr's format 3; write it again in format 2")
    if path.is_dir():
        os.scandir(path).close()  # fails where pictures cannot be listed
        return open_pictures(path)
    check_regular(path)
    if _holds_many(path):
        return open_pictures(path)
    if path.suffix.lower() in ENDINGS:
        raise Recording_error(f"{path} is a single picture; give the folder that it is in")
    raise Recording_error(
        f"{path} is a file of bare samples; give {named('pixel_format')}, {named('height')} and "
        f"{named('width')}, or a folder"
    )


def _holds_many(path: Path) -> bool:
    try:
        if count_in(str(path)) > 1:
            return True
    except ValueError as error:
        if path.suffix.lower() in ENDINGS:
            raise Recording_error(str(error)) from None
        return False  # bare samples perhaps
    # Behind the only one that can be read a file may be damaged.
    return bool(_native.find_pictures(str(path))[1])
