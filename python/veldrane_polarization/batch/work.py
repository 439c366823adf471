"""What a worker does with some frames."""

from __future__ import annotations

import itertools
from collections.abc import Iterator, Sequence
from typing import Optional, Union

import numpy as np

from .._arguments import Array
from .._native import software_version
from .._recordings import Recording, Recording_changed
from .._settings import Settings
from . import metrics
from .retrying import Retries, is_passing
from .storing import GO_ON, Chunk, Output, Output_lost

# Frames of one stored chunk are read together, which may hold thousands of them.
_MOST_BYTES_AT_ONCE = 256 << 20


class Outcome(list[tuple[int, Optional[str]]]):
    """Each frame with None, or with what went wrong."""

    retries = 0
    bytes_stored = 0


class Run_ended(Exception):
    """No frame after these can be done by anybody: one line for a user, and what came of these."""

    def __init__(self, line: str, outcome: Outcome) -> None:
        super().__init__(line, outcome)
        self.line, self.outcome = line, outcome


def process_frames(
    recording: Recording, output: Output, settings: Settings, indices: Sequence[int], version: str
) -> Outcome:
    """A frame that fails stops no other.

    Raises
    ------
    Run_ended
        If it is not the frame that is at fault.
    """
    if software_version() != version:
        raise RuntimeError(f"a worker has version {software_version()}, not {version}")
    outcome, retries = Outcome(), Retries()
    reader = _Reader(recording, indices, retries)
    try:
        for number, group in itertools.groupby(indices, lambda i: i // output.frames_per_chunk):
            part = _process_chunk(reader, number, list(group), output, settings, retries)
            outcome += part
            failures = sum(problem is not None for _, problem in part)
            metrics.count(frames=len(part) - failures, bytes=part.bytes_stored, failures=failures)
    except (Output_lost, Recording_changed) as error:
        raise Run_ended(str(error), outcome) from None
    finally:
        outcome.retries = retries.count
    return outcome


class _Reader:
    """Frames one by one, of which those of one stored chunk are read together."""

    def __init__(self, recording: Recording, indices: Sequence[int], retries: Retries) -> None:
        self._recording, self._retries = recording, retries
        parts = _parts(indices, _frames_at_once(recording), recording.frames_per_task)
        self._part_of = {index: part for part in parts for index in part}
        self._part: Sequence[int] = ()
        self._block: Union[None, Array, Sequence[Array]] = None
        # Whether the part has had its tries already.
        self._is_tired = False

    def read(self, index: int) -> Array:
        part = self._part_of[index]
        if part is not self._part:
            self._part, self._block, self._is_tired = part, None, False
            if len(part) > 1:
                try:
                    self._block = self._read(part[0], part[-1] + 1)
                except Exception as error:  # frame by frame it shows which one is at fault
                    self._is_tired = is_passing(error)
        raw = (
            self._read(index, index + 1)[0] if self._block is None else self._block[index - part[0]]
        )
        if raw.shape != self._recording.shape or raw.dtype != self._recording.dtype:
            raise ValueError(
                f"holds {raw.dtype} in the shape {raw.shape}; the recording has "
                f"{self._recording.dtype} in {self._recording.shape}"
            )
        return np.ascontiguousarray(raw)

    def _read(self, first: int, stop: int) -> Union[Array, Sequence[Array]]:
        if self._is_tired:
            return self._recording.read(first, stop)
        return self._retries(lambda: self._recording.read(first, stop))


def _frames_at_once(recording: Recording) -> int:
    size = int(np.prod(recording.shape)) * np.dtype(recording.dtype).itemsize
    return max(1, _MOST_BYTES_AT_ONCE // size)


def _parts(indices: Sequence[int], most: int, per_chunk: int) -> Iterator[list[int]]:
    """Neighbours of one chunk, no part from its first to its last longer than `most`."""
    part: list[int] = []
    for index in indices:
        if part and (index - part[0] >= most or index // per_chunk != part[0] // per_chunk):
            yield part
            part = []
        part.append(index)
    if part:
        yield part


def _process_chunk(
    reader: _Reader,
    number: int,
    indices: Sequence[int],
    output: Output,
    settings: Settings,
    retries: Retries,
) -> Outcome:
    """Frames of one chunk of OUT. Where storing fails, it begins again with the raw frames."""
    try:
        return retries(lambda: _stored(reader, number, indices, output, settings))
    except (Output_lost, Recording_changed):
        raise
    except Exception as error:
        if isinstance(error, OSError):
            output.raise_if_lost(error, settings.planes)
        problem = _problem(error, "stored")
        return Outcome((index, problem) for index in indices)


def _problem(error: Exception, step: str) -> str:
    if isinstance(error, OSError) and error.strerror:
        return f"cannot be {step} ({error.strerror}); see to its file, and {GO_ON}"
    if isinstance(error, MemoryError) and step == "stored":
        return (
            "its chunk does not fit into memory; give more of it to the worker, or another OUT with "
            "fewer --frames-per-chunk"
        )
    # What this package says needs no word of Python's before it.
    return str(error) if isinstance(error, ValueError) else f"{type(error).__name__}: {error}"


def _stored(
    reader: _Reader, number: int, indices: Sequence[int], output: Output, settings: Settings
) -> Outcome:
    """
    Raises
    ------
    OSError
        If the chunk cannot be stored. What is wrong with a frame is in the outcome.
    """
    outcome = Outcome()
    first = number * output.frames_per_chunk
    with Chunk(output, number) as chunk:
        for index in indices:
            if index != indices[0]:
                output.show_progress(number)
            try:
                result = settings.process(reader.read(index))
            except Recording_changed:
                raise
            except Exception as error:
                outcome.append((index, _problem(error, "read")))
                continue
            chunk.put(index - first, {name: result[name] for name in settings.planes})
            outcome.append((index, None))
        done = [index - first for index, problem in outcome if problem is None]
        if done:
            chunk.store(done)
            outcome.bytes_stored = chunk.bytes
    return outcome
