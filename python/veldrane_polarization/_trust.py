"""Which pixels to trust, and how far."""

from __future__ import annotations

from enum import IntFlag
from typing import NamedTuple

from . import _arguments


class Validity(IntFlag):
    """Bits of the plane `validity`; 0 is a valid pixel.

    Each is about the four samples that a pixel is computed from.

    Attributes
    ----------
    SATURATED
        A sample at the largest one of the bit depth or above it, or cut off when it was corrected.
    BELOW_DARK
        A sample below the dark level of its pixel; needs a calibration of single pixels.
    BAD_PIXEL
        A sample of a pixel that the calibration says is hot or dead.
    WEAK
        A degree below 3 times its standard deviation; needs a noise model.

    Examples
    --------
    >>> raw = np.full((16, 32), 1000, np.uint16)
    >>> raw[4, 4] = 4095
    >>> result = process(raw, layout=2, bit_depth=12, planes="validity")
    >>> [(int(row), int(column)) for row, column in np.argwhere(result.validity)]
    [(3, 3), (3, 4), (4, 3), (4, 4)]
    >>> Validity(int(result.validity[3, 4])).name
    'SATURATED'
    """

    SATURATED = 1
    BELOW_DARK = 2
    BAD_PIXEL = 4
    WEAK = 8


class Noise(NamedTuple):
    """How samples scatter.

    The variance of a sample in counts squared is that of shot noise, (sample - dark level) /
    electrons_per_count, of read noise, (read_noise / electrons_per_count)**2, and of rounding, 1 /
    12.

    Attributes
    ----------
    electrons_per_count : float
        Conversion gain, above 0.
    read_noise : float
        Standard deviation in electrons, at least 0.

    Examples
    --------
    >>> raw = np.full((16, 32), 1000, np.uint16)
    >>> noise = Noise(electrons_per_count=10, read_noise=5)
    >>> result = process(raw, layout=2, bit_depth=12, planes="uncertainty", noise=noise)
    >>> s0, degree, angle = result.uncertainty[4, 4]
    >>> f"{s0:.1f} {degree:.4f} {angle:.2f}"     # light without polarisation
    '10.0 0.0046 51.96'
    """

    electrons_per_count: float
    read_noise: float = 0.0


def checked(noise: object) -> Noise:
    """The same with numbers in it, which C++ checks."""
    if not isinstance(noise, Noise):
        raise TypeError(
            f"noise is {noise!r}; give Noise(electrons_per_count=..., read_noise=...) or None"
        )
    return Noise(
        *(
            _arguments.finite_number(f"noise.{name}", number)
            for name, number in noise._asdict().items()
        )
    )
