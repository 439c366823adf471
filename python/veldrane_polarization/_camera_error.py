"""What goes wrong with cameras."""

from __future__ import annotations


class Camera_error(OSError):
    """A camera that cannot be reached, or goes away: one line for a user.

    Examples
    --------
    >>> str(Camera_error("camera A-1: went away; check its power and its cable"))
    'camera A-1: went away; check its power and its cable'
    """
