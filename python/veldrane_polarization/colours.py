"""Colours for angle and degree, the same as in the program's pictures, with legends.

In pictures of the angle a hue stands for an angle; 0 and 180 degrees have one hue, and all hues look
equally bright, so that brightness is left to tell the degree.
"""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

from ._processing import Result

__all__ = ["add_angle_legend", "angle_colours", "angle_degree_picture", "degree_colours", "picture"]

Picture = npt.NDArray[np.uint8]
Numbers = npt.NDArray[Any]

_HUES = 720
# Ottosson's OKLab (2020), in which equal steps look equal. At this lightness the chroma is about
# the largest for which a screen can show every hue.
_LIGHTNESS, _CHROMA, _FIRST_HUE = 0.75, 0.125, 0.5
_TO_CONE_ROOTS = np.array(
    [
        [1, 0.3963377774, 0.2158037573],
        [1, -0.1055613458, -0.0638541728],
        [1, -0.0894841775, -1.2914855480],
    ]
)
_TO_LINEAR_RGB = np.array(
    [
        [4.0767416621, -3.3077115913, 0.2309699292],
        [-1.2684380046, 2.6097574011, -0.3413193965],
        [-0.0041960863, -0.7034186147, 1.7076147010],
    ]
)


def _displayed(lab: Numbers) -> npt.NDArray[np.float64]:
    """Red, green and blue from 0 to 1 of colours in OKLab."""
    cones = (np.asarray(lab, np.float64) @ _TO_CONE_ROOTS.T) ** 3
    linear = np.clip(cones @ _TO_LINEAR_RGB.T, 0, 1)
    encoded = 1.055 * np.maximum(linear, 0.0031308) ** (1 / 2.4) - 0.055
    return np.where(linear <= 0.0031308, 12.92 * linear, encoded)


def _hues(half_turns: Numbers, dim: Numbers) -> npt.NDArray[np.float64]:
    direction = _FIRST_HUE + 2 * np.pi * half_turns
    chroma = _CHROMA * dim
    return _displayed(
        np.stack(
            [_LIGHTNESS * dim, chroma * np.cos(direction), chroma * np.sin(direction)], axis=-1
        )
    )


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

    half_turns = np.arange(_HUES) / _HUES
    colours = ListedColormap(_hues(half_turns, np.ones(_HUES)), name="polarization_angle")
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
    from matplotlib import colormaps

    colours = colormaps["inferno"].copy()
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
    half_turns = np.rint(np.where(undefined, 0, angles) / np.pi * _HUES).astype(np.int64) % _HUES
    levels = np.rint(np.clip(np.where(undefined, 0, degrees), 0, 1) * 255).astype(np.int64)
    table = _hues(
        *np.broadcast_arrays(
            (np.arange(_HUES) / _HUES)[:, None], np.sqrt(np.arange(256) / 255)[None, :]
        )
    )
    colours: Picture = np.rint(255 * table).astype(np.uint8)
    return np.asarray(colours[half_turns, levels], np.uint8)


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
    steps = np.linspace(-1, 1, 241)
    x, y = np.meshgrid(steps, -steps)
    degree = np.hypot(x, y)
    colours = angle_degree_picture(np.arctan2(y, x) % np.pi, np.minimum(degree, 1))
    opaque = np.where(degree <= 1, 255, 0).astype(np.uint8)
    wheel.imshow(np.dstack([colours, opaque]), extent=(-1, 1, -1, 1))
    wheel.set_axis_off()
    if label:
        for turn in (0, 45, 90, 135):
            place = 0.72 * np.cos(np.radians(turn)), 0.72 * np.sin(np.radians(turn))
            wheel.text(*place, f"{turn}°", ha="center", va="center", fontsize=6)
    return wheel
