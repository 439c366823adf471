"""Colours for angle and degree, the same as in the program's pictures, with legends.

In pictures of the angle a hue stands for an angle; 0 and 180 degrees have one hue, and all hues look
equally bright, so that brightness is left to tell the degree.
"""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from . import _native
from ._processing import Result

__all__ = ["add_angle_legend", "angle_colours", "angle_degree_picture", "degree_colours", "picture"]

Picture = npt.NDArray[np.uint8]
Numbers = npt.NDArray[Any]

_WHEEL_SIDE = 240


def angle_colours() -> Any:
    """Cyclic colour map of matplotlib for angles of polarisation.

    Returns
    -------
    matplotlib.colors.ListedColormap
        For angles from 0 to pi (or 0 to 180 degrees); NaN becomes black. Use it with ``vmin=0,
        vmax=numpy.pi``.

    Examples
    --------
    >>> angle_colours().name
    'polarization_angle'
    """
    from matplotlib.colors import ListedColormap

    colours = ListedColormap(_native.angle_colours(), name="polarization_angle")
    colours.set_bad("black")
    return colours


def degree_colours() -> Any:
    """Colour map of matplotlib for degrees of polarisation, 0 (black) to 1 (pale yellow).

    Perceptually uniform; NaN becomes grey. Use it with ``vmin=0, vmax=1``.

    Returns
    -------
    matplotlib.colors.Colormap

    Examples
    --------
    >>> degree_colours()(0.0)[:3]
    (0.001462, 0.000466, 0.013866)
    """
    from matplotlib.colors import ListedColormap

    colours = ListedColormap(_native.degree_colours(), name="inferno")
    colours.set_bad("0.5")
    return colours


def angle_degree_picture(angle: Numbers, degree: Numbers) -> Picture:
    """A picture with the angle as hue, dimmed by the degree.

    Parameters
    ----------
    angle : numpy.ndarray
        Radians, any shape, such as from `Result.angle`. NaN counts as a degree of 0.
    degree : numpy.ndarray
        Fractions from 0 to 1 in the same shape, such as from `Result.degree`.

    Returns
    -------
    numpy.ndarray
        The shape and (3,), uint8: red, green, blue. Brightness follows the square root of the
        degree, since most of a scene is polarised by a few per cent.

    Raises
    ------
    ValueError
        If the shapes differ.

    Examples
    --------
    >>> angle_degree_picture(np.zeros((2, 2)), np.zeros((2, 2))).max()
    0
    """
    angles, degrees = np.asarray(angle, np.float64), np.asarray(degree, np.float64)
    if angles.shape != degrees.shape:
        raise ValueError(
            f"angle has the shape {angles.shape} and degree {degrees.shape}; give one shape"
        )
    undefined = np.isnan(angles) | np.isnan(degrees)
    table = _native.angle_degree_colours()
    hues, levels = table.shape[:2]
    hue = np.rint(np.where(undefined, 0, angles) / np.pi * hues).astype(np.int64) % hues
    level = np.rint(np.clip(np.where(undefined, 0, degrees), 0, 1) * (levels - 1)).astype(np.int64)
    return np.asarray(table[hue, level], np.uint8)


def picture(result: Result) -> Picture:
    """`angle_degree_picture` of a result.

    Parameters
    ----------
    result : Result
        With the planes azimuth and dolp.

    Returns
    -------
    numpy.ndarray
        The frames' shape and (3,), uint8: red, green, blue.

    Raises
    ------
    AttributeError
        If one of the two planes was not asked for.

    Examples
    --------
    >>> from veldrane_polarization import process
    >>> picture(process(np.zeros((16, 20), np.uint16), layout=2, bit_depth=12)).shape
    (16, 20, 3)
    """
    return angle_degree_picture(result.angle(), np.nan_to_num(result.degree()))


def add_angle_legend(axes: Any, size: float = 0.22, label: bool = True) -> Any:
    """Draw the colour wheel into a corner of a plot.

    A colour stands in the wheel in the directions of the light that it means, both ways; the
    distance from the middle is the degree of polarisation, 1 at the rim.

    Parameters
    ----------
    axes : matplotlib.axes.Axes
        The plot of an `angle_degree_picture` or of an angle.
    size : float
        Of the wheel, as part of the plot, above 0 to 1.
    label : bool
        Whether to write the angles around it.

    Returns
    -------
    matplotlib.axes.Axes
        That of the wheel.

    Raises
    ------
    ValueError
        If `size` is out of its range.

    Examples
    --------
    >>> from matplotlib.figure import Figure
    >>> add_angle_legend(Figure().add_subplot()).axison
    False
    """
    if not 0 < size <= 1:
        raise ValueError(f"size is {size}; give a part of the plot above 0, to 1")
    wheel = axes.inset_axes([0.98 - size, 0.02, size, size])
    colours = _native.colour_wheel(_WHEEL_SIDE)
    middles = (np.arange(_WHEEL_SIDE) + 0.5) / _WHEEL_SIDE * 2 - 1
    opaque = np.where(np.hypot(middles[:, None], middles) <= 1, 255, 0).astype(np.uint8)
    wheel.imshow(np.dstack([colours, opaque]), extent=(-1, 1, -1, 1))
    wheel.set_axis_off()
    if label:
        for turn in (0, 45, 90, 135):
            place = 0.72 * np.cos(np.radians(turn)), 0.72 * np.sin(np.radians(turn))
            wheel.text(*place, f"{turn}°", ha="center", va="center", fontsize=6)
    return wheel
