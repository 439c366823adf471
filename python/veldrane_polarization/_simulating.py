"""Frames with known truth, and what a frame tells about its camera."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

import numpy as np
import numpy.typing as npt

from . import _arguments, _native
from ._arguments import Array, Layout


@dataclass(frozen=True)
class Simulation:
    """Simulated frames and the light that they are of.

    Attributes
    ----------
    frames : numpy.ndarray
        (N, H, W) uint16.
    s0, s1, s2 : numpy.ndarray
        (H, W) float32, true Stokes quantities in sample units.
    angle : numpy.ndarray
        (H, W) float32, true angle of polarisation in degrees, [0, 180).
    degree : numpy.ndarray
        (H, W) float32, true degree of linear polarisation, [0, 1].
    """

    frames: npt.NDArray[np.uint16]
    s0: npt.NDArray[np.float32]
    s1: npt.NDArray[np.float32]
    s2: npt.NDArray[np.float32]
    angle: npt.NDArray[np.float32]
    degree: npt.NDArray[np.float32]


@dataclass(frozen=True)
class Inspection:
    """What a frame tells.

    Attributes
    ----------
    bit_depth : int
        As given, else the least of 8, 10, 12, 14 and 16 bits that holds the samples.
    shift : int
        Right shift that aligns the samples low.
    used_bits, zero_low_bits : int
        Bits up to the highest that is set; low bits that are 0 in every sample.
    mean : float
    smallest, largest, saturated : int
        Of the samples; how many reach the full scale.
    position_means : tuple of float
        Of the four positions of the mosaic's cell.
    mosaic : str
        ``'possible'``, ``'unlikely'`` or ``'undecided'``: whether orthogonal polarisers can lie on
        the diagonals of the cell.
    phase : int or None
        The layout's number, if a polariser angle was given and the frame decides.
    explanation : str
        One or two sentences about it.
    """

    bit_depth: int
    shift: int
    used_bits: int
    zero_low_bits: int
    mean: float
    smallest: int
    largest: int
    saturated: int
    position_means: tuple[float, ...]
    mosaic: str
    phase: Optional[int]
    explanation: str


def simulate(
    height: int,
    width: int,
    *,
    layout: Layout,
    bit_depth: int = 12,
    frames: int = 1,
    seed: int = 1,
    noise: bool = True,
    electrons_per_count: Optional[float] = None,
    read_noise: float = 2.4,
    first_frame: int = 0,
    sensor: Optional[_native.Calibration] = None,
    polariser_angle: Optional[float] = None,
    flat_level: Optional[float] = None,
) -> Simulation:
    """Simulate frames of a glossy ball under a clear sky, or of a uniform source.

    The same arguments give the same frames, bit for bit those of ``veldrane-polarize simulate``.

    Parameters
    ----------
    height, width : int
        2 to 16384 each.
    layout : int, str or sequence of int
        As in `process`.
    bit_depth : int
        8 to 16.
    frames : int
        How many; they differ by their noise.
    seed : int
        Start of the noise.
    noise : bool
        Shot noise and read noise.
    electrons_per_count : float, optional
        Conversion gain, 0.01 to 1000; if not given 10500 electrons are the full scale.
    read_noise : float
        Standard deviation in electrons, 0 to 1000.
    first_frame : int
        Number of the first frame, which decides its noise: frames of one number and seed share it.
    sensor : Calibration, optional
        Whose analysers to simulate, such as from `imperfect_sensor`, or whose pixels, such as from
        `imperfect_pixels`; ideal ones if not given.
    polariser_angle : float, optional
        In degrees: instead of the scene a uniform source behind a polariser.
    flat_level : float, optional
        Instead of the scene unpolarised uniform light of which an ideal analyser passes this part of
        the full scale, 0 to 1. Frames of level 0 are dark frames.

    Returns
    -------
    Simulation

    Raises
    ------
    TypeError, ValueError
        For a number that is none or out of its range, or a sensor with pixels of another size.

    Examples
    --------
    >>> made = simulate(48, 64, layout=(90, 45, 135, 0), frames=2)
    >>> made.frames.shape, made.frames.dtype, made.degree.shape
    ((2, 48, 64), dtype('uint16'), (48, 64))
    """
    if polariser_angle is not None and flat_level is not None:
        raise ValueError(f"flat_level is {flat_level}; leave it out beside polariser_angle")
    phase, sensor = _arguments.phase_and_calibration(layout, sensor, "sensor")
    made, truth = _native.simulate(
        _arguments.whole_number("first_frame", first_frame, 0, 2**32),
        _arguments.whole_number("frames", frames, 1, 1_000_000),
        *_size_and_depth(height, width, phase, bit_depth),
        (
            _arguments.truth("noise", noise),
            _seed_of(seed),
            _number_or_none("electrons_per_count", electrons_per_count, 0.01, 1000),
            _arguments.number_within("read_noise", read_noise, 0, 1000),
        ),
        sensor,
        _angle_of(polariser_angle),
        _number_or_none("flat_level", flat_level, 0, 1),
    )
    return Simulation(made, **truth)


def _size_and_depth(
    height: int, width: int, phase: int, bit_depth: int
) -> tuple[int, int, int, int]:
    return (
        _arguments.whole_number("height", height, 2, 16384),
        _arguments.whole_number("width", width, 2, 16384),
        phase,
        _arguments.whole_number("bit_depth", bit_depth, 8, 16),
    )


def _seed_of(seed: int) -> int:
    return _arguments.whole_number("seed", seed, 0, 2**63 - 1)


def _number_or_none(
    name: str, value: Optional[float], least: float, most: float
) -> Optional[float]:
    return None if value is None else _arguments.number_within(name, value, least, most)


def _angle_of(polariser_angle: Optional[float]) -> Optional[float]:
    if polariser_angle is None:
        return None
    return _arguments.finite_number("polariser_angle", polariser_angle)


def imperfect_sensor(layout: Layout, seed: int = 1) -> _native.Calibration:
    """A sensor drawn at random: what is true of it, as a calibration.

    Throughputs within 5 per cent, diattenuations of 0.85 to 0.99, orientations within 3 degrees.

    Parameters
    ----------
    layout : int, str or sequence of int
        As in `process`.
    seed : int
        Each gives another sensor, the same one always.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        For a layout or a seed that is none.

    Examples
    --------
    >>> camera = imperfect_sensor((90, 45, 135, 0), seed=4)
    >>> all(0.85 <= analyser.diattenuation <= 0.99 for analyser in camera.analysers)
    True
    """
    return _native.imperfect_sensor(_arguments.phase_of(layout), _seed_of(seed))


def imperfect_pixels(
    height: int,
    width: int,
    *,
    layout: Layout,
    bit_depth: int = 12,
    seed: int = 1,
    sensor: Optional[_native.Calibration] = None,
    gain_spread: float = 0.02,
    orientation_spread: float = 1,
    diattenuation_spread: float = 0.03,
    dark_level: float = 16,
    dark_spread: float = 2,
    hot_pixels: float = 0,
    dead_pixels: float = 0,
) -> _native.Calibration:
    """A sensor of which no two pixels are alike, drawn at random: what is true of it.

    Spreads are standard deviations of normally distributed figures.

    Parameters
    ----------
    height, width : int
        2 to 16384 each.
    layout : int, str or sequence of int
        As in `process`.
    bit_depth : int
        8 to 16.
    seed : int
        Each gives another sensor, the same one always.
    sensor : Calibration, optional
        Whose four analysers the pixels lie around, such as from `imperfect_sensor`; if not given
        diattenuations lie around 0.95.
    gain_spread : float
        Part of the gain, 0 to 0.2.
    orientation_spread : float
        In degrees, 0 to 5.
    diattenuation_spread : float
        0 to 0.2; diattenuations are cut off at 1.
    dark_level, dark_spread : float
        Mean and spread of samples without light, 0 to a quarter of the full scale.
    hot_pixels, dead_pixels : float
        Shares of pixels that are at the full scale without light, and that see no light: 0 to 0.1.

    Returns
    -------
    Calibration
        Of the model ``'pixel'``, for `simulate`.

    Raises
    ------
    TypeError, ValueError
        For a number that is none or out of its range.

    Examples
    --------
    >>> camera = imperfect_pixels(48, 64, layout=(90, 45, 135, 0), dark_level=20)
    >>> dark = simulate(48, 64, layout=2, sensor=camera, flat_level=0, frames=4).frames
    >>> bool(19 < dark.mean() < 21)
    True
    """
    phase, sensor = _arguments.phase_and_calibration(layout, sensor, "sensor")
    figures = {
        "gain_spread": gain_spread,
        "orientation_spread": orientation_spread,
        "diattenuation_spread": diattenuation_spread,
        "dark_level": dark_level,
        "dark_spread": dark_spread,
        "hot_pixels": hot_pixels,
        "dead_pixels": dead_pixels,
    }
    return _native.imperfect_pixels(
        *_size_and_depth(height, width, phase, bit_depth),
        sensor,
        {name: _arguments.finite_number(name, value) for name, value in figures.items()},
        _seed_of(seed),
    )


def inspect(
    raw: Array, *, bit_depth: Optional[int] = None, polariser_angle: Optional[float] = None
) -> Inspection:
    """Tell what a raw frame says about its camera.

    Parameters
    ----------
    raw : numpy.ndarray
        (H, W) uint8 or uint16.
    bit_depth : int, optional
        Significant bits, if known; guessed otherwise.
    polariser_angle : float, optional
        The frame shows an evenly lit surface through a polariser at this angle in degrees, which
        tells the phase.

    Returns
    -------
    Inspection

    Raises
    ------
    TypeError, ValueError
        For a wrong dtype, shape or number.

    Examples
    --------
    >>> frame = simulate(64, 64, layout=3, polariser_angle=0).frames[0]
    >>> inspect(frame, polariser_angle=0).phase
    3
    """
    depth = None if bit_depth is None else _arguments.whole_number("bit_depth", bit_depth, 1, 16)
    checked = _arguments.frames(raw, depth or 1)
    if checked.ndim != 2:
        raise ValueError(f"raw has the shape {checked.shape}; give one frame (H, W)")
    angle = _angle_of(polariser_angle)
    return Inspection(
        **{
            name: value
            for name, value in _native.inspect(checked, depth, angle).items()
            if name in Inspection.__dataclass_fields__
        }
    )
