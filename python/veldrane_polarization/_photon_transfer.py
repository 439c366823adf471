"""What a sensor does to any light: its dark frames, and how its samples scatter."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Optional, Union

import numpy as np

from . import _arguments, _native
from ._arguments import Array
from ._trust import Noise

Frames = Union[Array, Iterable[Array]]


class Dark_frames:
    """The mean of dark frames, given one by one or as an array."""

    def __init__(self, dark: Frames, bit_depth: int) -> None:
        self._average = _native.Dark_frame_average()
        self.shape: tuple[int, ...] = ()
        for number, frame in enumerate(_arguments.each_frame("dark", dark)):
            checked = _arguments.one_frame(frame, bit_depth, f"dark[{number}]")
            self._average.add(checked)
            self.shape = checked.shape

    def levels(self) -> Array:
        return self._average.means()

    def position_means(self) -> list[float]:
        return self._average.position_means()


def noise_from_flats(flats: Frames, *, bit_depth: int, dark: Optional[Frames] = None) -> Noise:
    """Measure how samples scatter from pairs of frames of the same light.

    The difference of two such frames holds noise alone, so the light may be uneven. Frames are taken
    one by one: memory does not grow with their number.

    Parameters
    ----------
    flats : numpy.ndarray or iterable of numpy.ndarray
        (N, H, W) or N frames (H, W), uint8 or uint16: frames 0 and 1 of one light, 2 and 3, and so
        on, at three levels or more from below a tenth to nine tenths of the full scale. Pairs in
        which more than one sample in a thousand is clipped are left out.
    bit_depth : int
        Significant bits of a sample, 1 to 16.
    dark : numpy.ndarray or iterable of numpy.ndarray
        Frames without light. The noise is that above their level, so it cannot be told without them.

    Returns
    -------
    Noise

    Raises
    ------
    TypeError
        For a wrong type or dtype.
    ValueError
        If dark is missing, a frame is left over, the frames of a pair are not of the same light, there are too few
        levels, or the variance does not follow the level; says which pair.

    Examples
    --------
    >>> pairs = [simulate(64, 96, layout=2, flat_level=level, frames=2, seed=seed).frames
    ...          for seed, level in enumerate((0.02, 0.2, 0.5, 0.8))]
    >>> dark = simulate(64, 96, layout=2, flat_level=0, frames=2, seed=9).frames
    >>> flats = (frame for pair in pairs for frame in pair)
    >>> noise = noise_from_flats(flats, bit_depth=12, dark=dark)
    >>> 2.3 < noise.electrons_per_count < 2.9
    True
    """
    depth = _arguments.whole_number("bit_depth", bit_depth, 1, 16)
    if dark is None:
        raise ValueError("dark is None; give dark=, frames without light")
    levels = Dark_frames(dark, depth).position_means()
    points = []
    count = 0
    first: Optional[Array] = None
    for count, frame in enumerate(_arguments.each_frame("flats", flats), 1):
        checked = _arguments.one_frame(frame, depth, f"flats[{count - 1}]")
        if first is None:
            first = np.array(checked)  # whoever gives frames one by one may use their memory again
            continue
        name = f"flats[{count - 2}] and flats[{count - 1}]"
        points.append(_native.measure_pair(first, checked, name, depth, levels))
        first = None
    if first is not None:
        raise ValueError(
            f"flats holds {count} frames; give pairs, two of the same light one after the other"
        )
    return Noise(*_native.fit_photon_transfer(points))
