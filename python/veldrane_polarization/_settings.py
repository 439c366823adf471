"""What all frames of a recording have in common."""

from __future__ import annotations

import functools
from collections.abc import Iterable
from dataclasses import dataclass
from typing import Any, Optional, Union

import numpy as np

from . import _arguments, _processing, _trust
from ._arguments import Array, Layout
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

    def identity(self) -> tuple[Any, ...]:
        """What tells them from others, in values that are the same in every process."""
        scale, known = self.scale, self.calibration
        return (
            self.phase,
            (scale.bit_depth, scale.full_scale, scale.rescaled),
            self.planes,
            self.mode,
            known.to_json() if known is not None else None,
            self.signed,
            self.zero_direction,
            self.noise,
        )

    def check_frames(self, dtype: np.dtype[Any], shape: tuple[int, ...], name: str) -> None:
        """Whether frames (N, H, W) of such a type and shape can be processed as these say."""
        _arguments.check_samples(dtype, shape, name)
        # The smallest array tells whether the rest is right.
        _arguments.frames(np.zeros((0, *shape[1:]), dtype), self.scale.bit_depth, name)
        _arguments.check_maps(self.calibration, shape[1:], self.scale.bit_depth)
        self.choices()  # which refuses the noise, or that there is none

    def process(self, raw: Array, threads: int = 1) -> _processing.Result:
        return _processing.process_as(self.choices(), raw, threads=threads)


def checked(
    layout: Optional[Layout],
    bit_depth: int,
    planes: Union[str, Iterable[str]],
    mode: Optional[str],
    calibration: Optional[Calibration],
    full_scale: Optional[int],
    signed: bool,
    noise: Optional[_trust.Noise],
    zero_direction: float,
) -> Settings:
    """Of the arguments that functions of this package take."""
    scale = _arguments.scale_of(bit_depth, full_scale)
    phase, known = _arguments.phase_and_calibration(layout, calibration)
    mode = _arguments.mode_of(mode, calibration)
    return Settings(
        phase,
        scale,
        _arguments.planes_of(planes),
        mode,
        known,
        _arguments.truth("signed", signed),
        zero_direction=_arguments.zero_direction_of(zero_direction, mode),
        noise=None if noise is None else _trust.checked(noise),
    )
