"""Recordings on disk, read frame by frame in whatever process."""

from __future__ import annotations

from .common import (
    PASSING_ERRORS,
    Recording_changed,
    Recording_error,
    on_the_command_line,
    text_of_name,
)
from .frame_files import Description, description_beside, layout_beside
from .opening import Recording, open_recording
from .pictures import Picture_recording
from .raw import Raw_recording
from .zarr_arrays import Zarr_recording, blosc_sizes

__all__ = [
    "Description",
    "PASSING_ERRORS",
    "Picture_recording",
    "Raw_recording",
    "Recording",
    "Recording_changed",
    "Recording_error",
    "Zarr_recording",
    "blosc_sizes",
    "description_beside",
    "layout_beside",
    "on_the_command_line",
    "open_recording",
    "text_of_name",
]
