"""The client of a run: the workers, what is under way, what went wrong."""

from __future__ import annotations

import asyncio
import itertools
import pydoc
import queue
import sys
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from typing import Any, Optional, Union

import numpy as np

from .._arguments import Array
from .._native import software_version
from .._recordings import Picture_recording, Recording
from .._settings import Settings
from . import work
from .cluster import Cluster_error, reason_of
from .interruption import raise_if_interrupted
from .storing import GO_ON, Output

_STEP_SECONDS = 1.0


class Unfinished(Exception):
    """A run that ends before its frames do: one line for a user."""


@dataclass
class Report:
    """What has come of the frames so far."""

    frames: int
    shows_progress: bool
    handled: int = 0
    retries: int = 0
    failures: dict[int, str] = field(default_factory=dict)
    _begin: Optional[float] = None
    _seconds: float = 0.0
    _longest: int = 0

    @property
    def done(self) -> int:
        return self.handled - len(self.failures)

    @property
    def seconds(self) -> float:
        return self._seconds if self._begin is None else time.monotonic() - self._begin

    def start(self) -> None:
        self._begin = time.monotonic()

    def end(self) -> None:
        self._seconds, self._begin = self.seconds, None
        if self.shows_progress and self.handled:
            print(file=sys.stderr)

    def add(self, outcome: work.Outcome) -> None:
        self.retries += outcome.retries
        self.failures |= {index: problem for index, problem in outcome if problem is not None}
        self.handled += len(outcome)
        if not self.shows_progress:
            return
        rate = self.handled / max(self.seconds, 1e-9)
        left = (self.frames - self.handled) / max(rate, 1e-9)
        bar = "#" * int(30 * self.handled / self.frames)
        failed = f", {len(self.failures)} failed" if self.failures else ""
        line = (
            f"[{bar:<30}] {self.handled}/{self.frames} frames{failed}, {rate:.1f} a second, "
            f"{left:.0f} s left"
        )
        # A shorter line leaves nothing of the longer one before it.
        print(f"\r{line:<{self._longest}}", end="", file=sys.stderr, flush=True)
        self._longest = max(self._longest, len(line))


def _ask(
    client: Any, whom: str, seconds: float, function: Any, *arguments: Any, **options: Any
) -> Any:
    """What a part of the cluster answers. One that has stopped never does, and stays connected."""
    try:
        return client.sync(function, *arguments, callback_timeout=seconds, **options)
    except TimeoutError:
        raise Unfinished(f"{whom} has not answered for {seconds:.3g} s; {GO_ON}") from None
    except (OSError, RuntimeError, asyncio.CancelledError) as error:
        raise Unfinished(f"the scheduler has gone ({reason_of(error)}); {GO_ON}") from None


def check_workers(client: Any, patience: float) -> int:
    """Threads of all workers, once they are known to run the same version.

    Raises
    ------
    Cluster_error
        If there is no worker, or one that cannot do the work.
    Unfinished
        If the scheduler has gone, or it or a worker has stopped.
    """
    versions = _versions_of_workers(client, patience)
    threads: int = sum(_ask(client, "the scheduler", patience, client.nthreads).values())
    if not versions:
        raise Cluster_error(
            f"the cluster has had no worker for {patience:g} s; start dask-worker for it"
        )
    here = software_version()
    for address, version in versions.items():
        if version is None or isinstance(version, BaseException):
            reason = f" ({version})".replace("\n", " ") if version is not None else ""
            raise Cluster_error(
                f"the worker {address} cannot import veldrane_polarization{reason}; install the "
                "package there"
            )
        if version != here:
            raise Cluster_error(
                f"the worker {address} has version {version}, this machine {here}; install the "
                "same everywhere"
            )
    return threads


def _versions_of_workers(client: Any, patience: float) -> dict[str, Any]:
    """By address: a version, None without the package, or what its import failed with."""
    end = time.monotonic() + patience
    while True:
        raise_if_interrupted()
        # A function of Python's own: one of this package could not even be sent where it is
        # missing.
        answers = _ask(
            client,
            "the scheduler or a worker",
            patience,
            client.run,
            pydoc.locate,
            "veldrane_polarization.__version__",
            on_error="return",
        )
        # Whatever an import fails with comes wrapped: an OSError is of a worker that has gone.
        versions = {
            address: answer
            for address, answer in answers.items()
            if not isinstance(answer, OSError)
        }
        if versions or time.monotonic() >= end:
            return versions
        time.sleep(min(_STEP_SECONDS, patience))


def tasks_of(frames: Union[Array, Sequence[int]], per_task: int) -> Iterator[list[int]]:
    """Neighbours of one stored chunk together, so that it is read once."""
    numbers = np.asarray(frames)
    starts = np.flatnonzero(np.diff(numbers // per_task, prepend=-1))
    for first, stop in zip(starts, itertools.chain(starts[1:], [numbers.size])):
        yield numbers[first:stop].tolist()


def _problem_of(error: Exception) -> str:
    """Of a task that ended otherwise than by the word of a worker."""
    from distributed.scheduler import KilledWorker

    if isinstance(error, KilledWorker):  # whose text is of Dask's tasks and pages
        return (
            "all workers that were at it died, one after the other; give them more memory, and "
            f"{GO_ON}"
        )
    return f"{type(error).__name__}: {error}"


class Run:
    """Frames on their way through a cluster, a few tasks a thread known to it at a time."""

    def __init__(
        self,
        client: Any,
        recording: Recording,
        output: Output,
        settings: Settings,
        report: Report,
        patience: float,
    ) -> None:
        self._client = client
        self._work = recording, output, settings
        self._report = report
        self._patience = patience
        self._seen_workers = self._quiet_since = time.monotonic()
        self._last_mark: Optional[int] = None
        # Of each worker the scheduler's time of its last heartbeat, and ours of when that was told.
        self._heartbeats: dict[str, tuple[float, float]] = {}
        self._avoided: set[str] = set()
        self._given_to: set[str] = set()
        self._under_way: dict[Any, list[int]] = {}
        self._ended: queue.SimpleQueue[Any] = queue.SimpleQueue()

    def process(self, frames: Union[Array, Sequence[int]], in_flight: int) -> None:
        """Until all frames are handled.

        Raises
        ------
        Unfinished
            If no frame is done for as long as patience lasts, or the scheduler has gone.
        """
        recording, output, _ = self._work
        # Of OUT all of a chunk, since it is written whole.
        together = max(1, recording.frames_per_task // output.frames_per_chunk)
        tasks = tasks_of(frames, together * output.frames_per_chunk)
        for _ in range(in_flight):
            self._submit(next(tasks, None))
        while self._under_way:
            self._take(self._next_ended())
            while len(self._under_way) < in_flight:
                indices = next(tasks, None)
                if indices is None:
                    break
                self._submit(indices)

    def _submit(self, indices: Optional[list[int]]) -> None:
        if indices is None:
            return
        recording, output, settings = self._work
        if isinstance(recording, Picture_recording):
            recording = recording.part(indices[0], indices[-1] + 1)
        try:
            future = self._client.submit(
                work.process_frames,
                recording,
                output,
                settings,
                indices,
                software_version(),
                pure=False,
                **self._where(),
            )
        except Exception as error:  # of a client that has closed itself
            raise Unfinished(f"the scheduler has gone ({reason_of(error)}); {GO_ON}") from None
        self._under_way[future] = indices
        future.add_done_callback(self._ended.put)

    def _next_ended(self) -> Any:
        while True:
            raise_if_interrupted()
            try:
                return self._ended.get(timeout=min(_STEP_SECONDS, self._patience))
            except queue.Empty:
                self._check_cluster()

    def _check_cluster(self) -> None:
        if self._client.status != "running":
            raise Unfinished(f"the scheduler has gone; {GO_ON}")
        if self._last_mark is None:
            self._last_mark = self._marked()
        left = self._patience - (time.monotonic() - self._quiet_since)
        workers = _ask(
            self._client, "the scheduler", max(left, _STEP_SECONDS), self._client.scheduler.identity
        )["workers"]
        now = time.monotonic()
        self._heartbeats = {
            address: self._heartbeat(address, each["last_seen"], now)
            for address, each in workers.items()
        }
        self._avoided &= self._silent(now)
        if not workers:
            if now - self._seen_workers > self._patience:
                raise Unfinished(
                    f"the cluster has had no worker for {self._patience:g} s; start dask-worker "
                    f"for it, and {GO_ON}"
                )
            self._quiet_since = now
            return
        self._seen_workers = now
        if now - self._quiet_since > self._patience:
            self._out_of_patience(now)

    def _heartbeat(self, address: str, told: float, now: float) -> tuple[float, float]:
        known = self._heartbeats.get(address)
        return known if known is not None and known[0] == told else (told, now)

    def _silent(self, now: float) -> set[str]:
        """Workers without a heartbeat of late; they have one every second or two."""
        return {
            address
            for address, (_, since) in self._heartbeats.items()
            if now - since > self._patience / 2
        }

    def _marked(self) -> int:
        """When a frame of a task that is under way was last done. A task may have thousands."""
        output = self._work[1]
        try:
            return max(output.last_mark(each[0], each[-1]) for each in self._under_way.values())
        except OSError as error:
            raise Unfinished(
                f"{output.path} cannot be read any more ({error.strerror}); put it back, and {GO_ON}"
            ) from None

    def _out_of_patience(self, now: float) -> None:
        """Give what is under way to workers that answer, once for each that does not.

        One that goes on later stores the same frames again: each chunk whole and under its name in
        one step, the marks last, so that a reader finds the one or the other; frames that have a
        mark and failed for it stay in the chunk as they are.
        """
        last_mark, self._last_mark = self._last_mark, self._marked()
        if self._last_mark != last_mark:
            self._quiet_since = now
            return
        silent = self._silent(now)
        answering = self._heartbeats.keys() - silent
        given_before = not self._avoided or self._given_to & answering
        if not answering or (silent <= self._avoided and given_before):
            hint = f" ({', '.join(sorted(silent))} without a heartbeat)" if silent else ""
            raise Unfinished(
                f"no frame has been done for {self._patience:g} s{hint}; see to the workers or give "
                f"more --patience, and {GO_ON}"
            )
        self._avoided, self._given_to = silent, answering
        self._quiet_since = now
        given = dict(self._under_way)
        self._under_way.clear()
        _ask(self._client, "the scheduler", self._patience, self._client.cancel, list(given))
        for indices in given.values():
            self._submit(indices)

    def _where(self) -> dict[str, Any]:
        """For the scheduler, which takes a worker that has stopped for one that is at work."""
        if not self._avoided:
            return {}
        return {"workers": [each for each in self._heartbeats if each not in self._avoided]}

    def _take(self, future: Any) -> None:
        if future not in self._under_way:  # its frames were given to others
            return
        outcome = self._outcome_of(future)
        if outcome is None:
            self._check_cluster()
            future.add_done_callback(self._ended.put)
            return
        # While outcomes come, nobody asks the scheduler for its workers.
        self._seen_workers = self._quiet_since = time.monotonic()
        self._last_mark = None
        del self._under_way[future]
        self._report.add(outcome)

    def _outcome_of(self, future: Any) -> Optional[work.Outcome]:
        """None where it lies with a worker that died; another one is at it then."""
        try:
            if future.status == "error":
                error = future.exception()
                if isinstance(error, work.Run_ended):
                    self._report.add(error.outcome)
                    raise Unfinished(error.line)
                problem = _problem_of(error)
                return work.Outcome((index, problem) for index in self._under_way[future])
            outcome: work.Outcome = future.result(timeout=_STEP_SECONDS)
            return outcome
        except Unfinished:
            raise
        except TimeoutError:
            return None
        except (Exception, asyncio.CancelledError):  # what the task raised is the error above
            raise Unfinished(f"the scheduler has gone; {GO_ON}") from None
