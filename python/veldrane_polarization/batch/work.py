"""What a worker does with some frames."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from typing import Optional

import numpy as np

from .._arguments import Array
from .._native import software_version
from .._recordings import Recording, Recording_changed
from .._settings import Settings
from .arrays import COMPLETE
from .output_group import GO_ON, Output, Output_lost

# Frames of one stored chunk are read together, which may hold thousands of them.
_MOST_BYTES_AT_ONCE = 256 << 20

Outcome = list[tuple[int, Optional[str]]]


class Run_ended(Exception):
    """No frame after these can be done by anybody: one line for a user, and what came of these."""

    def __init__(self, line: str, outcome: Outcome) -> None:
        super().__init__(line, outcome)
        self.line, self.outcome = line, outcome


def process_frames(
    recording: Recording, output: Output, settings: Settings, indices: Sequence[int], version: str
) -> Outcome:
    """Each frame with None, or with what went wrong. A frame that fails stops no other.

    Raises
    ------
    Run_ended
        If it is not the frame that is at fault.
    """
    if software_version() != version:
        raise RuntimeError(f"a worker has version {software_version()}, not {version}")
    outcome: Outcome = []
    try:
        for part in _parts(indices, _frames_at_once(recording)):
            _process_part(recording, output, settings, part, outcome)
    except (Output_lost, Recording_changed) as error:
        raise Run_ended(str(error), outcome) from None
    return outcome


def _frames_at_once(recording: Recording) -> int:
    size = int(np.prod(recording.shape)) * np.dtype(recording.dtype).itemsize
    return max(1, _MOST_BYTES_AT_ONCE // size)


def _parts(indices: Sequence[int], most: int) -> Iterator[list[int]]:
    """Neighbours, no part from its first to its last longer than `most`."""
    part: list[int] = []
    for index in indices:
        if part and index - part[0] >= most:
            yield part
            part = []
        part.append(index)
    if part:
        yield part


def _process_part(
    recording: Recording,
    output: Output,
    settings: Settings,
    indices: Sequence[int],
    outcome: Outcome,
) -> None:
    block = None
    if len(indices) > 1:
        try:
            block = recording.read(indices[0], indices[-1] + 1)
        except Exception:  # frame by frame it shows which one is at fault
            block = None
    for index in indices:
        step = "read"
        try:
            if block is None:
                raw = recording.read(index, index + 1)[0]
            else:
                raw = block[index - indices[0]]
            step = "stored"
            _store(raw, index, recording, output, settings)
            outcome.append((index, None))
        except (Output_lost, Recording_changed):
            raise
        except Exception as error:
            outcome.append((index, _problem(error, step)))


def _problem(error: Exception, step: str) -> str:
    if isinstance(error, OSError) and error.strerror:
        return f"cannot be {step} ({error.strerror}); see to its file, and {GO_ON}"
    # What this package says needs no word of Python's before it.
    return str(error) if isinstance(error, ValueError) else f"{type(error).__name__}: {error}"


def _store(
    raw: Array, index: int, recording: Recording, output: Output, settings: Settings
) -> None:
    if raw.shape != recording.shape or raw.dtype != recording.dtype:
        raise ValueError(
            f"holds {raw.dtype} in the shape {raw.shape}; the recording has {recording.dtype} in "
            f"{recording.shape}"
        )
    result = settings.process(np.ascontiguousarray(raw))
    for name in settings.planes:
        output.store(name, index, result[name][np.newaxis])
    # Only now: whoever is killed before leaves a frame that counts as not done.
    output.store(COMPLETE, index, np.ones(1, np.uint8))
