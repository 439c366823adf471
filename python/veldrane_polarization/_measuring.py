"""Calibrations from frames of a uniform source behind a linear polariser."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sized
from dataclasses import dataclass
from typing import Any, Optional, Union

import numpy as np

from . import _arguments, _native, _trust
from ._arguments import Array, Layout
from ._native import Calibration
from ._photon_transfer import Dark_frames, Frames


class _Series:
    """Frames with their angles, one by one."""

    def __init__(
        self,
        frames: Frames,
        angles: Iterable[float],
        intensities: Optional[Iterable[float]],
        bit_depth: int,
    ) -> None:
        self._frames = _arguments.each_frame("frames", frames)
        count = len(frames) if isinstance(frames, Sized) else None
        if isinstance(frames, np.ndarray) and frames.ndim == 2:
            count = 1
        self.angles = _arguments.finite_numbers("angles", angles, count)
        self._light = [1.0] * len(self.angles)
        if intensities is not None:
            self._light = _arguments.finite_numbers("intensities", intensities, len(self.angles))
        self._depth = bit_depth

    def __iter__(self) -> Iterator[tuple[int, Array, float, float, str]]:
        count = 0
        for count, frame in enumerate(self._frames, 1):
            if count > len(self.angles):
                break
            name = f"frames[{count - 1}]"
            checked = _arguments.one_frame(frame, self._depth, name)
            yield count - 1, checked, self.angles[count - 1], self._light[count - 1], name
        if count != len(self.angles):
            wanted = f"each of the {count} frames"
            if count > len(self.angles):
                wanted = "each frame, of which there are more"
            raise ValueError(f"angles holds {len(self.angles)} numbers; give one for {wanted}")


@dataclass(frozen=True)
class _Options:
    """Those of `calibrate` that both ways to calibrate have, checked."""

    phase: int
    bit_depth: int
    source_degree: float
    trimmed: bool
    sensor: str


def _of_positions(
    series: _Series, options: _Options, dark_levels: Optional[list[float]]
) -> Calibration:
    points = [
        _native.measure(frame, angle, light, name, options.bit_depth, options.trimmed)
        for _, frame, angle, light, name in series
    ]
    return _native.estimate(
        points, options.phase, options.bit_depth, dark_levels, options.source_degree, options.sensor
    )


def _check_shape(name: str, array: Any, dtype: type, shape: tuple[int, ...]) -> None:
    if not isinstance(array, np.ndarray) or array.dtype != dtype:
        given = getattr(array, "dtype", type(array).__name__)
        raise TypeError(f"{name} is a {given}; give an array (H, W) of {np.dtype(dtype)}")
    if array.shape != shape:
        raise ValueError(f"{name} has the shape {array.shape}; give that of the frames, {shape}")


def _start(
    shape: tuple[int, ...],
    options: _Options,
    dark: Optional[Dark_frames],
    bad_pixels: Optional[Array],
) -> _native.Pixel_calibration:
    levels, bad = np.empty(0, np.float32), np.empty(0, np.uint32)
    if dark is not None:
        levels = dark.levels()
        if dark.shape != shape:
            raise ValueError(
                f"dark has frames of the shape {dark.shape}; give that of all, {shape}"
            )
    if bad_pixels is not None:
        _check_shape("bad_pixels", bad_pixels, np.bool_, shape)
        bad = np.flatnonzero(bad_pixels).astype(np.uint32)
    height, width = shape
    return _native.Pixel_calibration(
        height,
        width,
        options.phase,
        options.bit_depth,
        levels,
        bad,
        options.source_degree,
        options.trimmed,
        options.sensor,
    )


def _of_pixels(
    series: _Series,
    options: _Options,
    model: str,
    dark: Optional[Dark_frames],
    bad_pixels: Optional[Array],
    held_out: Optional[int],
    residuals: Optional[Array],
) -> Calibration:
    pixels: Optional[_native.Pixel_calibration] = None
    for number, frame, angle, light, name in series:
        if pixels is None:
            pixels = _start(frame.shape, options, dark, bad_pixels)
            if residuals is not None:
                _check_shape("residuals", residuals, np.float32, frame.shape)
        pixels.add(frame, angle, light, name, number == held_out)
    if pixels is None:
        raise ValueError("frames holds no frame; give frames at three angles or more")
    found, remaining = pixels.finish(model)
    if residuals is not None:
        residuals[...] = remaining.reshape(residuals.shape)
    return found


def _frame_held_out(hold_out: Any, angles: list[float]) -> Optional[int]:
    if hold_out is None:
        return None
    if isinstance(hold_out, str):
        _arguments.choice("hold_out", hold_out, ("middle",))
        return _native.frame_to_hold_out(angles)
    if not angles:
        raise ValueError("angles is empty; give one for each frame")
    return _arguments.whole_number("hold_out", hold_out, 0, len(angles) - 1)


def _check_for_model(model: str, of_positions: dict[str, Any], of_pixels: dict[str, Any]) -> None:
    wrong, of_others = (
        (of_pixels, "'gain' and 'pixel'") if model == "position" else (of_positions, "'position'")
    )
    for name, value in wrong.items():
        if value is not None:
            raise ValueError(f"{name} is for the model {of_others}; leave it out with {model!r}")


def calibrate(
    frames: Frames,
    angles: Iterable[float],
    *,
    layout: Layout,
    bit_depth: int,
    model: str = "position",
    intensities: Optional[Iterable[float]] = None,
    dark: Optional[Frames] = None,
    dark_levels: Optional[Iterable[float]] = None,
    bad_pixels: Optional[Array] = None,
    hold_out: Union[int, str, None] = "middle",
    noise: Optional[_trust.Noise] = None,
    source_degree: float = 1.0,
    trimmed: bool = True,
    sensor: str = "",
    residuals: Optional[Array] = None,
) -> Calibration:
    """Estimate a calibration from frames of a uniform source behind a linear polariser.

    Frames are taken one by one: memory does not grow with their number if an iterator gives them.

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
    model : {'position', 'gain', 'pixel'}
        The analysers of the four positions of the cell; with them dark level and gain of every
        pixel; or dark level and analyser of every pixel.
    intensities : iterable of float, optional
        Light behind the polariser for each frame, relative to the others.
    dark : numpy.ndarray or iterable of numpy.ndarray, optional
        Frames without light.
    dark_levels : iterable of float, optional
        Instead of `dark`, for the model ``'position'``: mean samples without light, one for each
        position of the cell.
    bad_pixels : numpy.ndarray, optional
        For ``'gain'`` and ``'pixel'``: bool (H, W), True for pixels that are known to tell nothing.
        Others are found.
    hold_out : int or 'middle' or None
        For ``'gain'`` and ``'pixel'``: number of the frame that the models are first judged by, which
        `Calibration.models` tells; one in the middle of the angles, if there are enough; or none.
    noise : Noise, optional
        From `noise_from_flats`, to be kept in the calibration.
    source_degree : float
        Degree of polarisation of the light behind the polariser, above 0.
    trimmed : bool
        Leave out the lowest and highest 5 per cent of samples of a position.
    sensor : str
        Name for the file.
    residuals : numpy.ndarray, optional
        For ``'gain'`` and ``'pixel'``: float32 (H, W), which gets of every pixel the root mean square
        of measured minus fitted samples over the mean signal.

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

    A sensor whose pixels differ, frame by frame:

    >>> camera = imperfect_pixels(32, 32, layout=2)
    >>> options = {"layout": 2, "sensor": camera}
    >>> dark = simulate(32, 32, flat_level=0, frames=8, **options).frames
    >>> series = (simulate(32, 32, polariser_angle=a, **options).frames[0] for a in angles)
    >>> found = calibrate(series, angles, layout=2, bit_depth=12, model="pixel", dark=dark)
    >>> position, gain, pixel = found.models
    >>> pixel.rms_degree_error < position.rms_degree_error
    True
    """
    _arguments.choice("model", model, ("position", "gain", "pixel"))
    if not isinstance(sensor, str):
        raise TypeError(f"sensor is {sensor!r}; give a name for the file")
    options = _Options(
        _arguments.phase_of(layout),
        _arguments.whole_number("bit_depth", bit_depth, 1, 16),
        _arguments.finite_number("source_degree", source_degree),
        _arguments.truth("trimmed", trimmed),
        sensor,
    )
    chosen = None if hold_out == "middle" else hold_out
    _check_for_model(
        model,
        {"dark_levels": dark_levels},
        {"bad_pixels": bad_pixels, "residuals": residuals, "hold_out": chosen},
    )
    if dark is not None and dark_levels is not None:
        raise ValueError("dark_levels and dark say the same thing; give one of them")
    kept = None if noise is None else _trust.checked(noise)
    series = _Series(frames, angles, intensities, options.bit_depth)
    average = None if dark is None else Dark_frames(dark, options.bit_depth)
    if model == "position":
        levels = None if average is None else average.position_means()
        if dark_levels is not None:
            levels = _arguments.finite_numbers("dark_levels", dark_levels, 4, "position")
        found = _of_positions(series, options, levels)
    else:
        held_out = _frame_held_out(hold_out, series.angles)
        found = _of_pixels(series, options, model, average, bad_pixels, held_out, residuals)
    return found if kept is None else _native.with_noise(found, *kept)
