"""Calibrations: made from frames, kept in files."""

from __future__ import annotations

import os
from collections.abc import Iterable
from pathlib import Path
from typing import Any, Optional, Union

import numpy as np

from . import _arguments, _native
from ._arguments import Array, Layout
from ._native import Calibration


def ideal(layout: Layout) -> Calibration:
    """The calibration of an ideal sensor.

    Parameters
    ----------
    layout : int, str or sequence of int
        As in `process`.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        For a layout that is none.

    Examples
    --------
    >>> Calibration.ideal("90,45,135,0").phase
    2
    """
    return Calibration._ideal(_arguments.phase_of(layout))


def load(path: Union[str, Path]) -> Calibration:
    """Read a calibration that `save` or the program's `calibrate` wrote.

    Parameters
    ----------
    path : str or pathlib.Path

    Returns
    -------
    Calibration

    Raises
    ------
    FileNotFoundError
        If there is no such file.
    ValueError
        If it is no regular file, no calibration, damaged, or of a newer schema; says which line
        and key.

    Examples
    --------
    >>> from tempfile import TemporaryDirectory
    >>> with TemporaryDirectory() as folder:
    ...     Calibration.ideal(2).save(folder + "/ideal.json")
    ...     Calibration.load(folder + "/ideal.json") == Calibration.ideal(2)
    True
    """
    name = _arguments.file_name("path", path)
    # For the exception of a file that is missing. To open a pipe as usual would wait for a writer.
    os.close(os.open(name, os.O_RDONLY | os.O_NONBLOCK))
    return Calibration._load(name)


def save(self: Calibration, path: Union[str, Path], *, overwrite: bool = False) -> None:
    """Write a file of JSON, whole or not at all.

    Parameters
    ----------
    path : str or pathlib.Path
    overwrite : bool
        Replace a file that is there. Only a regular file is ever replaced.

    Raises
    ------
    TypeError
        For an `overwrite` that is no bool.
    ValueError
        If the file exists already, or cannot be written.

    Examples
    --------
    >>> from tempfile import TemporaryDirectory
    >>> with TemporaryDirectory() as folder:
    ...     Calibration.ideal(2).save(folder + "/ideal.json")
    ...     open(folder + "/ideal.json").read(1)
    '{'
    """
    self._save(_arguments.file_name("path", path), _arguments.truth("overwrite", overwrite))


def from_json(text: str) -> Calibration:
    """The calibration that `to_json` wrote.

    Parameters
    ----------
    text : str

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        If the text is none; says which key, or the line of what is no JSON.

    Examples
    --------
    >>> Calibration.from_json(Calibration.ideal(1).to_json()).layout
    (45, 90, 0, 135)
    """
    if not isinstance(text, str):
        raise TypeError(f"text is a {type(text).__name__}; give what to_json returned")
    try:
        text.encode()
    except UnicodeEncodeError as error:
        raise ValueError(
            f"text has a character at {error.start} that UTF-8 cannot hold; give what to_json "
            "returned"
        ) from None
    return Calibration._from_json(text)


def of_region(self: Calibration, row_offset: int, column_offset: int) -> Calibration:
    """The calibration of frames that begin at this row and column of the sensor.

    Parameters
    ----------
    row_offset, column_offset : int
        0 or more. Only whether they are odd matters.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        For an offset that is no such number.

    Examples
    --------
    >>> Calibration.ideal((90, 45, 135, 0)).of_region(0, 3).layout
    (45, 90, 0, 135)
    """
    return self._of_region(
        _arguments.whole_number("row_offset", row_offset, 0, 2**31),
        _arguments.whole_number("column_offset", column_offset, 0, 2**31),
    )


def calibrate(
    frames: Union[Array, Iterable[Array]],
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
    frames : numpy.ndarray or iterable of numpy.ndarray
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
    is_trimmed = _arguments.truth("trimmed", trimmed)
    degree = _arguments.finite_number("source_degree", source_degree)
    if not isinstance(sensor, str):
        raise TypeError(f"sensor is {sensor!r}; give a name for the file")
    if not isinstance(frames, np.ndarray):
        try:
            frames = list(frames)
        except TypeError:
            raise TypeError(
                f"frames is a {type(frames).__name__}; give an array (N, H, W) or frames (H, W)"
            ) from None
    count = len(frames)
    axes = _arguments.finite_numbers("angles", angles, count)
    light = [1.0] * count
    if intensities is not None:
        light = _arguments.finite_numbers("intensities", intensities, count)
    series = []
    for number, (frame, angle, intensity) in enumerate(zip(frames, axes, light)):
        name = f"frames[{number}]"
        checked = _arguments.frames(frame, depth, name)
        if checked.ndim != 2:
            raise ValueError(f"{name} has the shape {checked.shape}; give one frame (H, W)")
        series.append(_native.measure(checked, angle, intensity, name, depth, is_trimmed))
    levels: Any = None
    if dark_levels is not None:
        levels = _arguments.finite_numbers("dark_levels", dark_levels, 4, "position")
    return _native.estimate(series, phase, depth, levels, degree, sensor)


# The class is made in C++; what takes arguments in several spellings is added here.
for _name, _function in (
    ("ideal", staticmethod(ideal)),
    ("load", staticmethod(load)),
    ("from_json", staticmethod(from_json)),
    ("save", save),
    ("of_region", of_region),
):
    setattr(Calibration, _name, _function)
