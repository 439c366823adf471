"""What all frames of a recording have in common."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from . import _processing
from ._arguments import Array
from ._native import Calibration


@dataclass(frozen=True)
class Settings:
    """Options of `process`, once they are checked."""

    phase: int
    bit_depth: int
    planes: tuple[str, ...]
    mode: str
    calibration: Optional[Calibration]
    full_scale: int
    signed: bool
    calibration_file: Optional[str] = None

    def process(self, raw: Array, threads: int = 1) -> _processing.Result:
        return _processing.process(
            raw,
            layout=self.phase,
            bit_depth=self.bit_depth,
            planes=self.planes,
            mode=self.mode,
            calibration=self.calibration,
            full_scale=self.full_scale,
            signed=self.signed,
            threads=threads,
        )
