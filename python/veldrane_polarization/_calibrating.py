"""Calibrations: made from frames, kept in files."""

from __future__ import annotations

import os
from collections.abc import Iterable, Sequence
from pathlib import Path
from typing import Any, Optional, Union

from . import _arguments, _native
from ._arguments import Array, Layout
from ._native import Calibration


def ideal(layout: Layout) -> Calibration:
    """The calibration of an ideal sensor with this layout."""
    return Calibration._ideal(_arguments.phase_of(layout))


def load(path: Union[str, Path]) -> Calibration:
    """Read a calibration that `save` or the program's `calibrate` wrote.

    Raises
    ------
    FileNotFoundError
        If there is no such file.
    ValueError
        If it is no calibration, damaged, or of a newer schema; says which line and key.
    """
    with open(path, "rb"):
        return Calibration._load(os.fspath(path))


def save(self: Calibration, path: Union[str, Path]) -> None:
    """Write a file of JSON, whole or not at all; an old one is replaced.

    Raises
    ------
    ValueError
        If it cannot be written.
    """
    self._save(os.fspath(path))


def calibrate(
    frames: Union[Array, Sequence[Array]],
    angles: Iterable[float],
    *,
    layout: Layout,
    bit_depth: int,
    intensities: Optional[Iterable[float]] = None,
    dark_levels: Optional[Iterable[float]] = None,
    source_degree: float = 1.0,
    trimmed: bool = True,
    sensor: str = "",
) -> Calibration:
    """Estimate a calibration from frames of a uniform source behind a linear polariser.

    Parameters
    ----------
    frames : numpy.ndarray or sequence of numpy.ndarray
        (N, H, W) or N frames (H, W), uint8 or uint16.
    angles : iterable of float
        Transmission axis of the polariser in degrees for each frame, 0 along the rows, growing
        counter-clockwise.
    layout : int, str or sequence of int
        As in `process`.
    bit_depth : int
        Significant bits of a sample, 1 to 16.
    intensities : iterable of float, optional
        Light behind the polariser for each frame, relative to the others.
    dark_levels : iterable of float, optional
        Mean samples without light, one for each position of the cell.
    source_degree : float
        Degree of polarisation of the light behind the polariser, above 0.
    trimmed : bool
        Leave out the lowest and highest 5 per cent of samples.
    sensor : str
        Name for the file.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError
        For a wrong type or dtype.
    ValueError
        If frames are saturated, too dark, too few, or do not fit the layout; says which.

    Examples
    --------
    >>> angles = range(0, 180, 30)
    >>> series = [simulate(32, 32, layout=2, polariser_angle=a).frames[0] for a in angles]
    >>> calibrate(series, angles, layout=2, bit_depth=12).analysers[3].orientation < 0.5
    True
    """
    phase = _arguments.phase_of(layout)
    depth = _arguments.whole_number("bit_depth", bit_depth, 1, 16)
    count = len(frames)
    axes = _arguments.angles_in_degrees("angles", angles, count)
    light = [1.0] * count
    if intensities is not None:
        light = _arguments.angles_in_degrees("intensities", intensities, count)
    series = []
    for number, (frame, angle, intensity) in enumerate(zip(frames, axes, light)):
        name = f"frames[{number}]"
        checked = _arguments.frames(frame, depth, name)
        if checked.ndim != 2:
            raise ValueError(f"{name} has the shape {checked.shape}; give one frame (H, W)")
        series.append(_native.measure(checked, angle, intensity, name, depth, trimmed))
    levels: Any = None
    if dark_levels is not None:
        levels = _arguments.angles_in_degrees("dark_levels", dark_levels, 4)
    return _native.estimate(series, phase, depth, levels, float(source_degree), sensor)


# The class is made in C++; what takes a layout or a path in any of its spellings is added here.
for _name, _function in (("ideal", staticmethod(ideal)), ("load", staticmethod(load)), ("save", save)):
    setattr(Calibration, _name, _function)
