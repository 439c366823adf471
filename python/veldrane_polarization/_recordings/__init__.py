"""Recordings on disk, read frame by frame in whatever process."""

from __future__ import annotations

from .opening import (
    Folder_recording,
    Raw_recording,
    Recording,
    Recording_changed,
    Recording_error,
    Zarr_recording,
    blosc_sizes,
    in_order,
    open_recording,
    text_of_name,
)

__all__ = [
    "Folder_recording",
    "Raw_recording",
    "Recording",
    "Recording_changed",
    "Recording_error",
    "Zarr_recording",
    "blosc_sizes",
    "in_order",
    "open_recording",
    "text_of_name",
]
