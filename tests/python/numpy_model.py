"""The quantities once more, from their formulas, in double precision and whole frames."""

from __future__ import annotations

import numpy as np

LAYOUTS = ((0, 135, 45, 90), (45, 90, 0, 135), (90, 45, 135, 0), (135, 0, 90, 45))


def intensities(raw, layout):
    """The samples of each angle in every pixel's 2x2 neighbourhood: a dict of (..., H, W)."""
    height, width = raw.shape[-2:]
    rows, columns = np.indices((height, width))
    below = np.where(rows == height - 1, rows - 1, rows + 1)
    right = np.where(columns == width - 1, columns - 1, columns + 1)
    values = raw.astype(np.float64)
    angle_of = np.asarray(layout).reshape(2, 2)
    found = {angle: np.full(raw.shape, np.nan) for angle in layout}
    for row, column in ((rows, columns), (rows, right), (below, columns), (below, right)):
        angles = angle_of[row % 2, column % 2]
        for angle, plane in found.items():
            here = angles == angle
            plane[..., here] = values[..., row, column][..., here]
    return found


def stokes(raw, layout):
    i = intensities(raw, layout)
    return (i[0] + i[45] + i[90] + i[135]) / 2, i[0] - i[90], i[45] - i[135]


def angle_in_degrees(s1, s2):
    return np.degrees(np.arctan2(s2, s1)) / 2 % 180


def degree(s0, s1, s2):
    with np.errstate(divide="ignore", invalid="ignore"):
        return np.minimum(np.hypot(s1, s2) / s0, 1)


def distance_of_angles(one, other):
    """In degrees, modulo 180."""
    return np.abs((np.asarray(one, np.float64) - other + 90) % 180 - 90)
