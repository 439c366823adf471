"""From raw frames to planes."""

from __future__ import annotations

import functools
from collections.abc import Iterable, Iterator, Mapping
from typing import Callable, NamedTuple, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _arguments, _native, _trust
from ._arguments import Array, Layout

Floats = npt.NDArray[np.float32]


class Result:
    """The planes of one or several frames, and what their numbers mean.

    Each plane that was asked for is an attribute and, by its name, an item. The names of planes are
    iterated in the order of asking.

    Attributes
    ----------
    s0, s1, s2, azimuth, dolp : numpy.ndarray
        (H, W) or (N, H, W), uint16; `s1` and `s2` int32 if signed.
    normalized_stokes : numpy.ndarray
        (H, W, 2) or (N, H, W, 2), float32: S1 / S0 and S2 / S0.
    validity : numpy.ndarray
        (H, W) or (N, H, W), uint8: bits of `Validity`, 0 for a valid pixel.
    uncertainty : numpy.ndarray
        (H, W, 3) or (N, H, W, 3), float32: standard deviations of S0 in sample units, of the degree
        (NaN where S0 is not above 0), and of the angle in degrees.
    planes : tuple of str
        Names of the planes that there are.
    scale : Scale
        Bit depth, full scale, sample units for one step of a Stokes plane.
    phase : int
        Number of the layout, 0 to 3.
    mode : str
        ``'fast'`` or ``'calibrated'``.
    signed : bool
        Whether `s1` and `s2` are signed.
    noise : Noise or None
        What `uncertainty` and the weak light of `validity` are reckoned with.
    zero_direction : float
        Degrees counter-clockwise from the rows to the axis that angles count from.

    Examples
    --------
    >>> raw = np.full((32, 64), 1000, np.uint16)
    >>> result = process(raw, layout=2, bit_depth=12, planes=("s0", "dolp"))
    >>> result.planes, result.s0.dtype, int(result["dolp"].max())
    (('s0', 'dolp'), dtype('uint16'), 0)
    """

    __slots__ = ("_arrays", "mode", "noise", "phase", "scale", "signed", "zero_direction")

    def __init__(self, arrays: dict[str, Array], choices: Choices) -> None:
        self._arrays = arrays
        self.scale = choices.scale
        self.phase = choices.phase
        self.mode = choices.mode
        self.signed = choices.signed
        self.noise = choices.noise
        self.zero_direction = choices.zero_direction

    @property
    def planes(self) -> tuple[str, ...]:
        return tuple(self._arrays)

    @property
    def layout(self) -> tuple[int, ...]:
        """Polariser angles in degrees of the top-left cell, row by row."""
        return tuple(_native.layout_of_phase(self.phase))

    def __getitem__(self, name: str) -> Array:
        try:
            return self._arrays[name]
        except KeyError:
            raise KeyError(
                f"{name!r} is not among the planes that were asked for: {', '.join(self._arrays)}"
            ) from None

    def __iter__(self) -> Iterator[str]:
        return iter(self._arrays)

    def __len__(self) -> int:
        return len(self._arrays)

    def __contains__(self, name: object) -> bool:
        return name in self._arrays

    def _plane(self, name: str) -> Array:
        try:
            return self._arrays[name]
        except KeyError:
            raise AttributeError(
                f"{name} was not asked for; add {name!r} to planes, which are "
                f"{', '.join(self._arrays)}"
            ) from None

    @property
    def s0(self) -> Array:
        return self._plane("s0")

    @property
    def s1(self) -> Array:
        return self._plane("s1")

    @property
    def s2(self) -> Array:
        return self._plane("s2")

    @property
    def azimuth(self) -> Array:
        return self._plane("azimuth")

    @property
    def dolp(self) -> Array:
        return self._plane("dolp")

    @property
    def normalized_stokes(self) -> Array:
        return self._plane("normalized_stokes")

    @property
    def validity(self) -> Array:
        return self._plane("validity")

    @property
    def uncertainty(self) -> Array:
        return self._plane("uncertainty")

    def angle(self, unit: str = "radians") -> Floats:
        """Angle of polarisation in physical units.

        Parameters
        ----------
        unit : {'radians', 'degrees'}

        Returns
        -------
        numpy.ndarray
            float32 of the frames' shape in [0, pi) or [0, 180). 0 lies along the rows, or in the
            `zero_direction`; the angle grows counter-clockwise on a picture whose row 0 is at the
            top. NaN where the degree is stored as 0, if the plane `dolp` is there.

        Raises
        ------
        AttributeError
            If the plane `azimuth` was not asked for.

        Examples
        --------
        >>> raw = np.tile(np.array([[90, 50], [50, 10]], np.uint16), (8, 16))
        >>> result = process(raw, layout=(90, 45, 135, 0), bit_depth=12)
        >>> angle = result.angle("degrees")     # vertical light
        >>> angle.shape, angle.dtype, float(angle[4, 4].round(1))
        ((16, 32), dtype('float32'), 90.0)
        """
        _arguments.choice("unit", unit, ("radians", "degrees"))
        return _native.angles(self.azimuth, self._arrays.get("dolp"), self.scale, unit == "degrees")

    def degree(self) -> Floats:
        """Degree of linear polarisation as a fraction.

        Returns
        -------
        numpy.ndarray
            float32 of the frames' shape in [0, 1]. NaN where S0 is stored as 0, if the plane `s0`
            is there.

        Raises
        ------
        AttributeError
            If the plane `dolp` was not asked for.

        Examples
        --------
        >>> raw = np.tile(np.array([[90, 50], [50, 10]], np.uint16), (8, 16))
        >>> result = process(raw, layout=(90, 45, 135, 0), bit_depth=12)
        >>> f"{result.degree()[4, 4]:.2f}"     # (90 - 10) / (90 + 10)
        '0.80'
        """
        return _native.degrees_of_polarization(self.dolp, self._arrays.get("s0"), self.scale)

    def stokes(self, name: str) -> Floats:
        """A Stokes plane in sample units.

        Parameters
        ----------
        name : {'s0', 's1', 's2'}

        Returns
        -------
        numpy.ndarray
            float32 of the frames' shape. `s1` and `s2` without their negative half unless signed.

        Raises
        ------
        AttributeError
            If the plane was not asked for.

        Examples
        --------
        >>> raw = np.tile(np.array([[90, 50], [50, 10]], np.uint16), (8, 16))
        >>> options = {"layout": (90, 45, 135, 0), "bit_depth": 8, "planes": ("s0", "s1")}
        >>> result = process(raw, **options, signed=True)
        >>> float(result.stokes("s0")[4, 4].round()), float(result.stokes("s1")[4, 4].round())
        (100.0, -80.0)
        """
        _arguments.choice("name", name, ("s0", "s1", "s2"))
        return _native.stokes_in_samples(self._plane(name), self.scale)

    def __repr__(self) -> str:
        shapes = ", ".join(
            f"{name} {array.dtype}{list(array.shape)}" for name, array in self._arrays.items()
        )
        return f"<Result {self.mode}: {shapes}>"


class Choices(NamedTuple):
    """Options of a call, once they are checked."""

    plan: _native.Plan
    names: tuple[str, ...]
    scale: _native.Scale
    phase: int
    mode: str
    signed: bool
    noise: Optional[_trust.Noise]
    zero_direction: float


def choices_of(
    scale: _native.Scale,
    phase: int,
    names: tuple[str, ...],
    mode: str,
    calibration: Optional[_native.Calibration],
    signed: bool,
    noise: Optional[_trust.Noise] = None,
    zero_direction: float = 0.0,
) -> Choices:
    """Of options that have been checked. A scale is more than the two numbers it was made of."""
    if noise is None and calibration is not None and calibration.noise is not None:
        noise = _trust.Noise(*calibration.noise)
    plan = _native.Plan(
        names, phase, scale, calibration, mode == "calibrated", signed, noise, zero_direction
    )
    return Choices(plan, names, scale, phase, mode, signed, noise, zero_direction)


def _checked(
    layout: Optional[Layout],
    bit_depth: int,
    planes: Union[str, Iterable[str]],
    mode: Optional[str],
    calibration: Optional[_native.Calibration],
    full_scale: Optional[int],
    signed: bool,
    noise: Optional[_trust.Noise],
    zero_direction: float,
) -> Choices:
    scale = _arguments.scale_of(bit_depth, full_scale)
    phase, known = _arguments.phase_and_calibration(layout, calibration)
    mode = _arguments.mode_of(mode, calibration)
    names = _arguments.planes_of(planes)
    is_signed = _arguments.truth("signed", signed)
    noise = None if noise is None else _trust.checked(noise)
    direction = _arguments.zero_direction_of(zero_direction, mode)
    return choices_of(scale, phase, names, mode, known, is_signed, noise, direction)


_UNCHANGING = (int, str, tuple, type(None))
# Typed, since True and 1.0 are equal to 1 and yet refused.
_remembered: Callable[..., Choices] = functools.lru_cache(maxsize=64, typed=True)(_checked)


def process(
    raw: Array,
    *,
    layout: Optional[Layout] = None,
    bit_depth: int,
    planes: Union[str, Iterable[str]] = ("s0", "azimuth", "dolp"),
    mode: Optional[str] = None,
    calibration: Optional[_native.Calibration] = None,
    full_scale: Optional[int] = None,
    signed: bool = False,
    noise: Optional[_trust.Noise] = None,
    zero_direction: float = 0.0,
    out: Optional[Mapping[str, Array]] = None,
    threads: Optional[int] = None,
) -> Result:
    """Turn raw frames into polarimetric planes.

    Parameters
    ----------
    raw : numpy.ndarray
        One frame (H, W) or several (N, H, W), uint8 or uint16 in host byte order, at least 2 rows
        and 16 columns. Frames of uint16 whose rows adjoin are read where they lie, whatever the
        distance between frames; of others one frame a thread is copied at a time.
    layout : int, str or sequence of int, optional
        The mosaic: a phase from 0 to 3, or the polariser angles in degrees of the top-left cell row
        by row, such as ``(90, 45, 135, 0)`` or ``'90,45,135,0'``. May be left out if `calibration`
        is given.
    bit_depth : int
        Significant bits of a sample, 1 to 16, low-aligned. Samples above it enter as they stand.
    planes : iterable of str or str
        Some of s0, s1, s2, azimuth, dolp, normalized_stokes, or ``'all'`` for these six; and
        validity and uncertainty, which have to be named.
    mode : {'fast', 'calibrated'}, optional
        Fast: every plane as the processor writes it. Calibrated: every pixel through the weights of
        its position. Fast without a calibration, calibrated with one, if not given.
    calibration : Calibration, optional
        Weights for calibrated mode; those of an ideal sensor if not given. One with maps is for
        frames of their size and bit depth, from which no dark level has been taken off.
    full_scale : int, optional
        Largest element of the 16-bit planes, 1 to 65535 (default): 180 degrees in `azimuth`, 1 in
        `dolp`. ``2**bit_depth - 1`` keeps the Stokes planes in sample units.
    signed : bool
        `s1` and `s2` with their signs, as int32, for rounding to nearest. Otherwise a
        negative number is stored as 0.
    noise : Noise, optional
        How samples scatter, for `uncertainty` and the weak light of `validity`; that of the
        calibration if not given.
    zero_direction : float
        Degrees by which the axis that angles count from lies counter-clockwise from the rows: S1,
        S2 and the angle turn with it. For calibrated mode.
    out : mapping of str to numpy.ndarray, optional
        A C-contiguous array for each plane, of its dtype and shape. `normalized_stokes` is filled
        with NaN first, since fast mode stores only part of it.
    threads : int, optional
        Frames that are worked on at once, or threads that share them where there are fewer; if not
        given, as many as there are processors that this thread may run on. The bits are the same.

    Returns
    -------
    Result
        One array for each plane; those of `out` if given.

    Raises
    ------
    TypeError
        For a wrong type or dtype.
    ValueError
        For a wrong shape, layout, plane, size or number, and for an `out` that is read-only, not
        dense, or in the memory of another array. Nothing has been written then.

    Notes
    -----
    The interpreter's lock is released. The rounding mode in force applies. Ctrl-C ends the work
    between two frames; planes of the frames before it have been written then.

    Examples
    --------
    >>> raw = np.zeros((16, 32), np.uint16)
    >>> raw[0::2, 0::2], raw[0::2, 1::2] = 1000, 2000     # 90 and 45 degrees
    >>> raw[1::2, 0::2], raw[1::2, 1::2] = 2000, 3000     # 135 and 0 degrees
    >>> result = process(raw, layout=(90, 45, 135, 0), bit_depth=12)
    >>> float(result.stokes("s0")[4, 4].round()), float(result.degree()[4, 4].round(3))
    (4000.0, 0.5)
    >>> float(result.angle("degrees")[4, 4].round(2))
    0.0
    """
    # What can be hashed and does not change under the same hash.
    if type(planes) is not tuple and type(planes) is not str:
        planes = _arguments.planes_of(planes)
    if type(layout) not in _UNCHANGING:
        layout = _arguments.phase_of(layout)  # type: ignore[arg-type]
    given = layout, bit_depth, planes, mode, calibration, full_scale, signed, noise, zero_direction
    try:
        choices = _remembered(*given) if calibration is None and noise is None else None
    except TypeError:  # something unhashable in a tuple, which is refused below
        choices = None
    return process_as(choices or _checked(*given), raw, out, threads)


def process_as(
    choices: Choices,
    raw: Array,
    out: Optional[Mapping[str, Array]] = None,
    threads: Optional[int] = None,
) -> Result:
    """`process` with options that have been checked."""
    workers = 0 if threads is None else _arguments.whole_number("threads", threads, 1, 1024)
    plan = choices.plan
    arrays = plan.process_if_plain(raw, out, workers)
    if arrays is None:
        raw = _arguments.frames(raw, choices.scale.bit_depth)
        if out is None:
            arrays = _arguments.new_planes(raw, choices.names, choices.signed)
        else:
            arrays = _arguments.check_out(out, raw, choices.names, choices.signed)
        plan.process(raw, arrays, workers)
    return Result(arrays, choices)
