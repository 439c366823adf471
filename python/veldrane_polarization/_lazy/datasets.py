"""Recordings as datasets of xarray whose planes are computed when they are looked at."""

from __future__ import annotations

import importlib
import os
import warnings
from collections.abc import Iterable
from pathlib import Path
from typing import Any, Optional, Union

import numpy as np

from .. import _arguments, _native, _settings, _trust, datasets
from .._arguments import Layout
from .._pixel_formats import PIXEL_FORMATS, bit_depth_of
from .._recordings import Recording, Recording_error, description_beside, layout_beside
from .._recordings import open_recording as find_recording
from .._settings import Settings

_LARGEST_BLOCK = 1 << 24
_LARGEST_NUMBER = (1 << 63) - 1


def open_recording(
    path: Union[str, os.PathLike[str]],
    *,
    layout: Optional[Layout] = None,
    bit_depth: Optional[int] = None,
    planes: Union[str, Iterable[str]] = ("s0", "azimuth", "dolp"),
    mode: Optional[str] = None,
    calibration: Optional[_native.Calibration] = None,
    full_scale: Optional[int] = None,
    signed: bool = False,
    noise: Optional[_trust.Noise] = None,
    zero_direction: float = 0.0,
    pixel_format: Optional[str] = None,
    height: Optional[int] = None,
    width: Optional[int] = None,
    header_bytes: int = 0,
    stride: Optional[int] = None,
    frames_per_block: Optional[int] = None,
    mask_and_scale: bool = True,
) -> Any:
    """Open a recording as a dataset whose planes are computed from raw frames as they are looked at.

    It reads like what `xarray.open_zarr` makes of the output of `veldrane_polarization.batch`, but
    nothing is computed before it is looked at, and nothing is stored.

    Parameters
    ----------
    path : str or path
        A folder of PNG, TIFF, PGM or npy files, a TIFF or npy file of many frames, a zarr array (N,
        H, W), or a file of bare samples. One that a camera's recorder described (docs/recordings.md)
        needs no `layout`, `bit_depth` nor anything else.
    layout, planes, mode, calibration, full_scale, signed, noise, zero_direction
        As in `process`.
    bit_depth : int, optional
        Significant bits of a sample; may be left out if `pixel_format` is given.
    pixel_format : str, optional
        Of bare samples, one of `PIXEL_FORMATS`; it needs `height` and `width`.
    height, width : int, optional
        Of a frame of bare samples.
    header_bytes : int
        Before the first frame of bare samples.
    stride : int, optional
        Bytes from one row of bare samples to the next; rows adjoin if not given.
    frames_per_block : int, optional
        Frames that a task of dask reads and computes; 1 if not given, of a zarr array those of a
        chunk.
    mask_and_scale : bool
        Planes in the units that their attributes name, as float32. Otherwise the numbers as
        `process` stores them, with ``scale_factor`` and ``add_offset`` as attributes: half as many
        bytes, and what `to_zarr` writes is in units again once it is opened.

    Returns
    -------
    xarray.Dataset
        ``raw`` and a variable for each plane by its name, with the dimensions (time, y, x):
        ``azimuth`` in degrees, modulo 180, ``dolp`` as a fraction, ``s0`` in counts. Planes of one
        frame that are computed at once come from one task, which reads it once; what is not looked
        at is not computed. Where a camera's recorder told them, ``frame_number``, ``camera_time``
        (nanoseconds of its own clock) and ``host_time`` are coordinates of ``time``.

    Raises
    ------
    TypeError, ValueError
        As in `process`, at once.
    Recording_error
        If `path` holds no frames; and once it is looked at for a frame that cannot be read, an array
        of another shape, type or chunks than when it was opened, or a file of many frames of another
        size or time. A ValueError that names the file and the frame. Other changes are not noticed.
    ImportError
        Without xarray or dask.

    Examples
    --------
    >>> import tempfile, pathlib
    >>> folder = tempfile.TemporaryDirectory()
    >>> file = pathlib.Path(folder.name) / "run.raw"
    >>> frames = simulate(32, 48, layout=2, frames=5).frames
    >>> size = file.write_bytes(b"".join(pack(frame, "Mono12p") for frame in frames))
    >>> run = open_recording(file, layout=2, pixel_format="Mono12p", height=32, width=48)
    >>> dict(run.sizes), list(run.data_vars), run.azimuth.attrs["units"]
    ({'time': 5, 'y': 32, 'x': 48}, ['raw', 's0', 'azimuth', 'dolp'], 'degree')
    >>> run.dolp.isel(time=slice(1, 4)).mean("time").compute().shape
    (32, 48)
    >>> folder.cleanup()
    """
    file = Path(_arguments.file_name("path", path)).absolute()
    _check_bare_samples(pixel_format, height, width, header_bytes, stride)
    told = description_beside(file, _as_argument)
    if told is not None:
        pixel_format = pixel_format or told.pixel_format
        height, width = height or told.height, width or told.width
        if layout is None:
            layout = layout_beside(file, told, calibration, _as_argument)
    if bit_depth is None:
        if pixel_format is None:
            raise TypeError("bit_depth is missing; give the significant bits of a sample")
        bit_depth = bit_depth_of(pixel_format)
    settings = _settings.checked(
        layout, bit_depth, planes, mode, calibration, full_scale, signed, noise, zero_direction
    )
    scaled = _arguments.truth("mask_and_scale", mask_and_scale)
    if frames_per_block is not None:
        _arguments.whole_number("frames_per_block", frames_per_block, 1, _LARGEST_BLOCK)
    _check_installed()
    recording = find_recording(
        file, pixel_format, height, width, header_bytes, stride, _as_argument
    )
    shape = (recording.count, *recording.shape)
    settings.check_frames(np.dtype(recording.dtype), shape, str(file))
    if not recording.count:
        raise Recording_error(f"{file} holds no frames; give a recording with some")
    for failure in recording.failures:
        warnings.warn(failure, stacklevel=2)
    dataset = _dataset(recording, settings, scaled, frames_per_block or recording.frames_per_task)
    if told is None or told.captures is None:
        return dataset
    return dataset.assign_coords(_captures(told.captures, recording.count))


def _as_argument(argument: str) -> str:
    return argument


def _captures(captures: tuple[_arguments.Array, ...], count: int) -> dict[str, Any]:
    """What the camera told of each frame, without those that a cut recording has lost."""
    number, camera_time, host_time = (each[:count] for each in captures)
    return {
        "frame_number": ("time", number, {"long_name": "the camera's count, which may wrap"}),
        "camera_time": (
            "time",
            camera_time,
            {"long_name": "time by the camera's clock in nanoseconds"},
        ),
        "host_time": ("time", host_time.view("datetime64[ns]"), {"long_name": "arrival, in UTC"}),
    }


def _check_bare_samples(
    pixel_format: Optional[str],
    height: Optional[int],
    width: Optional[int],
    header_bytes: int,
    stride: Optional[int],
) -> None:
    """Types alone; ranges depend on the file."""
    numbers = {"height": height, "width": width, "header_bytes": header_bytes, "stride": stride}
    for name, number in numbers.items():
        if number is None and name != "header_bytes":
            continue
        _arguments.whole_number(name, number, -_LARGEST_NUMBER, _LARGEST_NUMBER)
        if number and pixel_format is None:
            raise TypeError(f"{name} is for bare samples; give pixel_format too")
    if pixel_format is not None:
        _arguments.choice("pixel_format", pixel_format, PIXEL_FORMATS)


def _check_installed() -> None:
    try:
        for name in ("xarray", "dask.array"):
            importlib.import_module(name)
    except ImportError as error:
        package = (error.name or "").partition(".")[0].lower()
        raise ImportError(
            f"{error}; install it, in Debian python3-{package}", name=error.name
        ) from None


def _dataset(recording: Recording, settings: Settings, scaled: bool, frames_per_block: int) -> Any:
    import xarray

    from . import frame_blocks
    from .frame_blocks import RAW, Work

    height, width = recording.shape
    empty = settings.process(np.zeros((0, height, width), recording.dtype))
    about = {
        name: datasets.plane_attributes(empty, name) | datasets.sidecar_attributes(empty, name)
        for name in settings.planes
    }
    scales = {}
    if scaled:
        for name, attributes in about.items():
            if "scale_factor" in attributes:
                scales[name] = attributes.pop("scale_factor"), attributes.pop("add_offset")
    arrays = frame_blocks.arrays_of(recording, frames_per_block, Work(settings, scales))
    variables: dict[str, Any] = {
        RAW: (("time", "y", "x"), arrays[RAW], {"long_name": "raw samples", "units": "count"})
    }
    for name in settings.planes:
        dimensions = datasets.dimensions_of(name, settings.mode, height, width)
        variables[name] = dimensions, arrays[name], about[name]
    attributes = datasets.common_attributes(empty) | {"recording": recording.path}
    if settings.calibration is not None:
        attributes["calibration"] = settings.calibration.to_json()
    coordinates = datasets.coordinates_of(settings.planes, (recording.count, height, width))
    return xarray.Dataset(variables, coordinates, attributes)
