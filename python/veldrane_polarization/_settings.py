"""What all frames of a recording have in common."""

from __future__ import annotations

import functools
from dataclasses import dataclass
from typing import Any, Optional

from . import _processing, _trust
from ._arguments import Array
from ._native import Calibration, Scale


# Of a worker, so that its tasks share one calibration.
@functools.lru_cache(maxsize=2)
def _loaded(file: str, text: str) -> Calibration:
    calibration = Calibration.load(file)
    if calibration.to_json() != text:
        raise ValueError(f"{file} is another calibration by now; start again with it")
    return calibration


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
    zero_direction: float = 0.0
    noise: Optional[_trust.Noise] = None

    def __getstate__(self) -> dict[str, Any]:
        state = dict(self.__dict__)
        if self.calibration is not None and self.calibration.maps and self.calibration_file:
            # Maps take several bytes a pixel: every worker reads them once, no task carries them.
            state["calibration"] = self.calibration.to_json()
        return state

    def __setstate__(self, state: dict[str, Any]) -> None:
        if isinstance(state["calibration"], str):
            state["calibration"] = _loaded(state["calibration_file"], state["calibration"])
        self.__dict__.update(state)

    def choices(self) -> _processing.Choices:
        return _processing.choices_of(
            self.scale,
            self.phase,
            self.planes,
            self.mode,
            self.calibration,
            self.signed,
            self.noise,
            self.zero_direction,
        )

    def process(self, raw: Array, threads: int = 1) -> _processing.Result:
        return _processing.process_as(self.choices(), raw, threads=threads)
