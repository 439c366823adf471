"""Results as datasets of xarray, with units."""

from __future__ import annotations

from collections.abc import Container, Sequence
from typing import Any, Optional

import numpy as np

from . import _arguments, _native
from ._arguments import Array
from ._native import plane_table, software_version
from ._processing import Result
from ._trust import Validity

__all__ = ["to_dataset"]


def _zero(result: Result) -> str:
    degrees = result.zero_direction
    place = f"at {_native.described_zero_direction(degrees)}" if degrees else "along the rows"
    return f"0 {place}, {_native.sense}"


def _meaning(result: Result, name: str) -> dict[str, Any]:
    """What the command line says of the same numbers; None where there is nothing to say."""
    shape = result[name].shape[: -1 if plane_table[name].elements_per_pixel > 1 else None]
    return _native.number_meaning(
        name, result.scale, result.mode == "calibrated", result.signed, *shape[-2:]
    )


def plane_attributes(result: Result, name: str) -> dict[str, Any]:
    """What the numbers of a stored plane mean: number * scale_factor + add_offset, in units."""
    meaning = _meaning(result, name)
    unit = {"sample": "count"}.get(meaning["unit"], meaning["unit"])
    attributes: dict[str, Any] = {"long_name": plane_table[name].title, "units": unit}
    if meaning["full_scale"] is None:
        return attributes
    attributes |= {"scale_factor": meaning["step"], "add_offset": 0.0 - meaning["offset"]}
    attributes["valid_max"] = meaning["full_scale"]
    if name == "azimuth":
        attributes["comment"] = f"modulo 180 degrees; {_zero(result)}"
    elif name in ("s1", "s2") and result.signed:
        attributes["valid_min"] = -meaning["full_scale"]
    elif name in ("s1", "s2"):
        attributes["comment"] = meaning["range"]
    return attributes


def sidecar_attributes(result: Result, name: str) -> dict[str, Any]:
    """The same in the words of the command line's sidecars; what is null there is left out."""
    told = {key: value for key, value in _meaning(result, name).items() if value is not None}
    return {"plane": name, "meaning": plane_table[name].meaning, **told}


def is_at_pixels(name: str, mode: str, height: int, width: int) -> bool:
    """Whether each number of a plane stands at its pixel.

    The processor packs `normalized_stokes` wherever it works with vectors; calibrated mode puts the
    numbers back.
    """
    return not plane_table[name].is_packed or mode != "fast" or height <= 2 or width < 32


def component_dimension(name: str) -> str:
    """Of the numbers of a pixel; xarray wants one size for each name in a dataset."""
    return "deviation_of" if name == "uncertainty" else "component"


def dimensions_of(name: str, mode: str, height: int, width: int) -> tuple[str, ...]:
    """Of the stored plane of several frames."""
    if not is_at_pixels(name, mode, height, width):
        return "time", "packed_row", "packed_column", "component"
    has_several = plane_table[name].elements_per_pixel > 1
    return ("time", "y", "x", *((component_dimension(name),) if has_several else ()))


def coordinates_of(
    planes: Container[str], frames: tuple[int, int, int], times: Optional[Array] = None
) -> dict[str, Any]:
    """Of frames (N, H, W), numbered unless there are times."""
    count, height, width = frames
    moments = np.arange(count) if times is None else times
    coordinates: dict[str, Any] = {
        "time": ("time", moments, {"long_name": "frame number" if times is None else "time"}),
        "y": ("y", np.arange(height), {"long_name": "row", "units": "pixel"}),
        "x": ("x", np.arange(width), {"long_name": "column", "units": "pixel"}),
    }
    if "normalized_stokes" in planes:
        coordinates["component"] = "component", ["S1 / S0", "S2 / S0"]
    if "uncertainty" in planes:
        coordinates["deviation_of"] = "deviation_of", ["S0", "degree", "angle in degrees"]
    return coordinates


def common_attributes(result: Result) -> dict[str, Any]:
    """What holds for all planes."""
    noise = {}
    if result.noise is not None:
        noise = {
            "electrons_per_count": result.noise.electrons_per_count,
            "read_noise_electrons": result.noise.read_noise,
        }
    return {
        "Conventions": "CF-1.8",
        "layout": list(result.layout),
        "layout_comment": "polariser angles in degrees of the top-left cell, row by row",
        "phase": result.phase,
        "bit_depth": result.scale.bit_depth,
        "full_scale": result.scale.full_scale,
        "sample_units_per_step": result.scale.sample_units_per_step,
        "mode": result.mode,
        "zero_direction": _native.described_zero_direction(result.zero_direction),
        "zero_direction_degrees": result.zero_direction,
        "sense": _native.sense,
        **noise,
        "source": f"veldrane_polarization {software_version()}",
    }


def to_dataset(
    result: Result, *, unit: str = "radians", times: Optional[Sequence[Any]] = None
) -> Any:
    """A result as a dataset in physical units.

    Parameters
    ----------
    result : Result
    unit : {'radians', 'degrees'}
        Of the angle.
    times : sequence, optional
        One for each frame, such as numpy.datetime64 or seconds; frame numbers if not given.

    Returns
    -------
    xarray.Dataset
        Variables ``s0``, ``s1``, ``s2`` (counts), ``angle`` (``unit``), ``degree`` (1), all float32
        with the dimensions (time, y, x), and ``normalized_stokes`` with the dimension ``component``
        besides: those whose planes the result has; ``validity`` as it is, and ``uncertainty`` with
        the dimension ``deviation_of``. One frame gives one time.

    Raises
    ------
    TypeError
        If `result` is none.
    ValueError
        If the number of times is not that of the frames, and for `normalized_stokes` of fast mode,
        whose numbers are not at pixel positions (frames of 3 rows and 32 columns or more).

    Examples
    --------
    >>> raw = np.ones((2, 16, 20), np.uint16)
    >>> data = to_dataset(process(raw, layout=0, bit_depth=12), times=[0.0, 0.1])
    >>> dict(data.sizes), data.angle.attrs["units"], data.attrs["layout"]
    ({'time': 2, 'y': 16, 'x': 20}, 'radian', [0, 135, 45, 90])
    """
    import xarray

    if not isinstance(result, Result):
        raise TypeError(f"result is a {type(result).__name__}; give what process returned")
    _arguments.choice("unit", unit, ("radians", "degrees"))
    first = result.planes[0]
    shape = result[first].shape
    shape = shape[: len(shape) - len(_arguments.plane_shape(first, ()))]
    for name in result.planes:
        if not is_at_pixels(name, result.mode, *shape[-2:]):
            raise ValueError(
                f"{name} of mode 'fast' is not at pixel positions; process with "
                "mode='calibrated', or without this plane"
            )
    count = shape[0] if len(shape) == 3 else 1
    frames = count, shape[-2], shape[-1]
    moments = None if times is None else np.asarray(times)
    if moments is not None and moments.shape != (count,):
        raise ValueError(f"times has the shape {moments.shape}; give {count}, one a frame")
    variables: dict[str, Any] = {}
    for name in result.planes:
        about = plane_table[name]
        attributes = {"long_name": about.title, "units": "count"}
        dims: tuple[str, ...] = ("time", "y", "x")
        if name == "azimuth":
            attributes |= {"units": unit[:-1], "comment": _zero(result)}
            variables["angle"] = dims, result.angle(unit).reshape(frames), attributes
        elif name == "dolp":
            variables["degree"] = (
                dims,
                result.degree().reshape(frames),
                attributes | {"units": about.unit},
            )
        elif about.elements_per_pixel > 1:
            numbers = result[name].reshape(*frames, about.elements_per_pixel)
            dims = (*dims, component_dimension(name))
            variables[name] = dims, numbers, attributes | {"units": about.unit}
        elif name == "validity":
            flags = {
                "units": "1",
                "flag_masks": np.array(list(Validity), np.uint8),
                "flag_meanings": " ".join(str(bit.name).lower() for bit in Validity),
            }
            variables[name] = dims, result[name].reshape(frames), attributes | flags
        else:
            if name != "s0" and not result.signed:
                attributes["comment"] = _meaning(result, name)["range"]
            variables[name] = dims, result.stokes(name).reshape(frames), attributes
    coordinates = coordinates_of(result.planes, frames, moments)
    return xarray.Dataset(variables, coordinates, common_attributes(result))
