"""Polarimetric planes from raw frames of polarisation image sensors.

The processor is exact to the bit; this package checks what goes in, hands NumPy arrays to it without
a copy, and says what the numbers mean. See `process` for the start.
"""

from __future__ import annotations

from . import _native
from ._arguments import PLANES
from ._calibrating import Calibration
from ._camera_error import Camera_error
from ._cameras import Camera, Camera_frame, list_cameras, open_camera
from ._lazy import open_recording
from ._measuring import calibrate
from ._native import Analyser, Model_quality, Scale
from ._photon_transfer import noise_from_flats
from ._pixel_formats import PIXEL_FORMATS, bit_depth_of, pack, unpack
from ._processing import Result, process
from ._recordings import Recording_error
from ._simulating import (
    Inspection,
    Simulation,
    imperfect_pixels,
    imperfect_sensor,
    inspect,
    simulate,
)
from ._trust import Noise, Validity

__version__ = _native.software_version()

__all__ = [
    "PIXEL_FORMATS",
    "PLANES",
    "Analyser",
    "Calibration",
    "Camera",
    "Camera_error",
    "Camera_frame",
    "Inspection",
    "Model_quality",
    "Noise",
    "Recording_error",
    "Result",
    "Scale",
    "Simulation",
    "Validity",
    "bit_depth_of",
    "calibrate",
    "imperfect_pixels",
    "imperfect_sensor",
    "inspect",
    "list_cameras",
    "noise_from_flats",
    "open_camera",
    "open_recording",
    "pack",
    "process",
    "simulate",
    "unpack",
]
