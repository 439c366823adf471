"""What all frames of a recording have in common."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from . import _processing
from ._arguments import Array
from ._native import Calibration, Scale


@dataclass(frozen=True)
class Settings:
    """Options of `process`, once they are checked."""

    phase: int
    scale: Scale
    planes: tuple[str, ...]
    mode: str
    calibration: Optional[Calibration]
    signed: bool
    calibration_file: Optional[str] = None

    def process(self, raw: Array, threads: int = 1) -> _processing.Result:
        choices = _processing.choices_of(
            self.scale, self.phase, self.planes, self.mode, self.calibration, self.signed
        )
        return _processing.process_as(choices, raw, threads=threads)
