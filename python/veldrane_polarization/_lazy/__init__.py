"""Recordings as datasets whose planes are computed when they are looked at."""

from .datasets import open_recording

__all__ = ["open_recording"]
