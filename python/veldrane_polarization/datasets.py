"""Results as datasets of xarray, with units."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Optional

import numpy as np

from . import _arguments
from ._native import software_version
from ._processing import Result

__all__ = ["to_dataset"]

LONG_NAMES = {
    "s0": "total intensity",
    "s1": "linear Stokes quantity S1, I(0) - I(90)",
    "s2": "linear Stokes quantity S2, I(45) - I(135)",
    "azimuth": "angle of linear polarisation",
    "dolp": "degree of linear polarisation",
    "normalized_stokes": "S1 / S0 and S2 / S0",
}
_ZERO = "0 along the rows, counter-clockwise on a picture whose row 0 is at the top"


def plane_attributes(result: Result, name: str) -> dict[str, Any]:
    """What the numbers of a stored plane mean: number * scale_factor + add_offset, in units."""
    attributes: dict[str, Any] = {"long_name": LONG_NAMES[name]}
    full_scale = result.scale.full_scale
    if name == "azimuth":
        attributes |= {"units": "degree", "scale_factor": 180 / full_scale, "add_offset": -90.0}
        attributes |= {"comment": f"modulo 180 degrees; {_ZERO}", "valid_max": full_scale}
    elif name == "dolp":
        attributes |= {"units": "1", "scale_factor": 1 / full_scale, "add_offset": 0.0}
        attributes["valid_max"] = full_scale
    elif name == "normalized_stokes":
        attributes |= {"units": "1"}
    else:
        step = result.scale.sample_units_per_step
        attributes |= {"units": "count", "scale_factor": step, "add_offset": 0.0}
        attributes["valid_max"] = full_scale
        if name != "s0" and not result.signed:
            attributes["comment"] = "positive half; a negative value is stored as 0"
    return attributes


def common_attributes(result: Result) -> dict[str, Any]:
    """What holds for all planes."""
    return {
        "Conventions": "CF-1.8",
        "layout": list(result.layout),
        "layout_comment": "polariser angles in degrees of the top-left cell, row by row",
        "phase": result.phase,
        "bit_depth": result.scale.bit_depth,
        "full_scale": result.scale.full_scale,
        "mode": result.mode,
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
        besides: those whose planes the result has. One frame gives one time.

    Raises
    ------
    TypeError
        If `result` is none.
    ValueError
        If the number of times is not that of the frames.

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
    shape = result[result.planes[0]].shape
    if result.planes[0] == "normalized_stokes":
        shape = shape[:-1]
    count = shape[0] if len(shape) == 3 else 1
    frames = (count, *shape[-2:])
    moments = np.arange(count) if times is None else np.asarray(times)
    if moments.shape != (count,):
        raise ValueError(f"times has the shape {moments.shape}; give {count}, one a frame")
    variables: dict[str, Any] = {}
    for name in result.planes:
        attributes = {"long_name": LONG_NAMES[name], "units": "count"}
        dims: tuple[str, ...] = ("time", "y", "x")
        if name == "azimuth":
            attributes |= {"units": unit[:-1], "comment": _ZERO}
            variables["angle"] = dims, result.angle(unit).reshape(frames), attributes
        elif name == "dolp":
            variables["degree"] = dims, result.degree().reshape(frames), attributes | {"units": "1"}
        elif name == "normalized_stokes":
            pairs = result[name].reshape(*frames, 2)
            variables[name] = (*dims, "component"), pairs, attributes | {"units": "1"}
        else:
            if name != "s0" and not result.signed:
                attributes["comment"] = "positive half; a negative value is stored as 0"
            variables[name] = dims, result.stokes(name).reshape(frames), attributes
    coordinates: dict[str, Any] = {
        "time": ("time", moments, {"long_name": "frame number" if times is None else "time"}),
        "y": ("y", np.arange(frames[1]), {"long_name": "row", "units": "pixel"}),
        "x": ("x", np.arange(frames[2]), {"long_name": "column", "units": "pixel"}),
    }
    if "normalized_stokes" in result:
        coordinates["component"] = "component", ["S1 / S0", "S2 / S0"]
    return xarray.Dataset(variables, coordinates, common_attributes(result))
