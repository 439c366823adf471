"""Process a whole recording on the machines of a Dask cluster: python -m veldrane_polarization.batch"""

from __future__ import annotations

from .command import A_FRAME_FAILED, ALL_DONE, INTERRUPTED, WRONG_USAGE, main, run

__all__ = ["ALL_DONE", "A_FRAME_FAILED", "INTERRUPTED", "WRONG_USAGE", "main", "run"]
