"""The client of a run: the cluster, its workers, what is under way, what went wrong."""

from __future__ import annotations

import asyncio
import contextlib
import logging
import os
import pydoc
import queue
import signal
import sys
import tempfile
import threading
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from multiprocessing import resource_tracker
from typing import Any, Optional

from . import _batch_work, _recordings
from ._batch_output import Output
from ._batch_settings import Settings
from ._native import software_version
from ._recordings import Recording

# Of workers of our own. Dask has malloc give freed blocks back to the system, which then makes new
# pages for every plane: with compression, a third of a frame's time. A worker warns of a slow disk
# before any code of ours runs in it.
_ENVIRONMENT = {
    "MALLOC_TRIM_THRESHOLD_": 1 << 29,
    "MALLOC_MMAP_THRESHOLD_": 1 << 25,
    "PYTHONWARNINGS": "ignore",
}
_CONNECT_SECONDS = 10
_STEP_SECONDS = 1.0


class Cluster_error(ValueError):
    """A cluster that no run can begin on: one line for a user."""


class Unfinished(Exception):
    """The cluster was lost under way: one line for a user."""


class Interruption(BaseException):
    """Ctrl-C, the system's request to end, or a terminal that closes."""


# What a handler raises is lost where it falls into a finaliser; the event stays.
_interrupted = threading.Event()


def _reason(error: BaseException) -> str:
    """That of a time that has run out has no text."""
    return str(error) or type(error).__name__


def raise_if_interrupted() -> None:
    """Whatever became of the exception of a signal."""
    if _interrupted.is_set():
        raise Interruption


@contextlib.contextmanager
def interruptible() -> Iterator[None]:
    """The first signal raises Interruption; more of them leave the clearing up alone."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    numbers = [signal.SIGINT, signal.SIGTERM]
    # nohup starts a program that is to outlive its terminal.
    if signal.getsignal(signal.SIGHUP) is not signal.SIG_IGN:
        numbers.append(signal.SIGHUP)

    def interrupt(number: int, frame: Any) -> None:
        for each in numbers:
            signal.signal(each, signal.SIG_IGN)
        _interrupted.set()
        raise Interruption

    def tell_lost(lost: Any) -> None:
        # Objects that the signal leaves half-made fail in their finalisers, too.
        if not _interrupted.is_set():
            before_lost(lost)

    _interrupted.clear()
    before_lost, sys.unraisablehook = sys.unraisablehook, tell_lost
    before = {number: signal.signal(number, interrupt) for number in numbers}
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
        sys.unraisablehook = before_lost
        _interrupted.clear()


@dataclass
class Report:
    """What has come of the frames so far."""

    frames: int
    shows_progress: bool
    handled: int = 0
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

    def add(self, outcome: _batch_work.Outcome) -> None:
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


@contextlib.contextmanager
def cluster(scheduler: Optional[str], workers: Optional[int]) -> Iterator[Any]:
    """A client of the cluster that is there, or of one of our own."""
    from distributed import Client

    if scheduler is not None:
        try:
            client = Client(scheduler, timeout=_CONNECT_SECONDS)
        except (OSError, ValueError) as error:
            raise Cluster_error(
                f"--scheduler {scheduler} does not answer ({_reason(error)}); start "
                "dask-scheduler there, or leave the option out"
            ) from None
        with _closing(client):
            yield client
        return
    folder = tempfile.TemporaryDirectory(prefix="veldrane-", ignore_cleanup_errors=True)
    with folder, _closing(_local_cluster(workers, folder.name)) as local:
        try:
            client = Client(local)
        except (OSError, RuntimeError) as error:
            raise _local_failure(error) from None
        with _closing(client):
            yield client


def _local_failure(error: Exception) -> Cluster_error:
    return Cluster_error(
        f"no cluster can be started on this machine ({_reason(error)}); give fewer --workers, or a "
        "--scheduler"
    )


def _local_cluster(workers: Optional[int], folder: str) -> Any:
    import dask
    from distributed import LocalCluster

    # Ctrl-C in a terminal goes to all processes; workers are to be ended by us. They inherit the
    # mask of the threads that start them, which are made here. Python's tracker of resources gets
    # it too; its start unblocks Ctrl-C, in whatever thread it falls.
    signals = {signal.SIGINT, signal.SIGHUP}
    before = signal.pthread_sigmask(signal.SIG_BLOCK, signals)
    try:
        resource_tracker.ensure_running()
        signal.pthread_sigmask(signal.SIG_BLOCK, signals)
        place = "distributed.nanny.pre-spawn-environ."
        with dask.config.set({place + name: value for name, value in _ENVIRONMENT.items()}):
            # It serves pages in any case, without an address on a port for all, which may be taken.
            return LocalCluster(
                n_workers=workers or len(os.sched_getaffinity(0)), threads_per_worker=1,
                dashboard_address="127.0.0.1:0", silence_logs=logging.CRITICAL,
                local_directory=folder,
            )
    except (OSError, RuntimeError) as error:
        raise _local_failure(error) from None
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)


@contextlib.contextmanager
def _closing(part: Any) -> Iterator[Any]:
    try:
        yield part
    finally:
        # What cannot be closed is gone already.
        with contextlib.suppress(Exception):
            part.close()


def check_workers(client: Any, patience: float) -> int:
    """Threads of all workers, once they are known to run the same version.

    Raises
    ------
    Cluster_error
        If there is no worker, or one that cannot do the work.
    Unfinished
        If the scheduler has gone.
    """
    try:
        versions = _versions_of_workers(client, patience)
        threads: int = sum(client.nthreads().values())
    except (OSError, RuntimeError, asyncio.CancelledError) as error:
        raise Unfinished(f"the scheduler has gone ({_reason(error)})") from None
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
        with contextlib.suppress(TimeoutError):
            client.wait_for_workers(1, timeout=max(end - time.monotonic(), _STEP_SECONDS))
        # A function of Python's own: one of this package could not even be sent where it is
        # missing.
        answers = client.run(
            pydoc.locate, "veldrane_polarization.__version__", on_error="return"
        )
        # Whatever an import fails with comes wrapped: an OSError is of a worker that has gone.
        versions = {
            address: answer for address, answer in answers.items()
            if not isinstance(answer, OSError)
        }
        if versions or time.monotonic() >= end:
            return versions
        time.sleep(min(_STEP_SECONDS, patience))


def tasks_of(frames: Sequence[int], per_task: int) -> Iterator[list[int]]:
    """Neighbours of one stored chunk together, so that it is read once."""
    group: list[int] = []
    for index in frames:
        if group and index // per_task != group[0] // per_task:
            yield group
            group = []
        group.append(index)
    if group:
        yield group


class Run:
    """Frames on their way through a cluster, a few tasks a thread known to it at a time."""

    def __init__(
        self, client: Any, recording: Recording, output: Output, settings: Settings, report: Report,
        patience: float,
    ) -> None:
        self._client = client
        self._work = recording, output, settings
        self._report = report
        self._patience = patience
        self._seen_workers = time.monotonic()
        self._under_way: dict[Any, list[int]] = {}
        self._ended: queue.SimpleQueue[Any] = queue.SimpleQueue()

    def process(self, frames: Sequence[int], in_flight: int) -> None:
        """Until all frames are handled.

        Raises
        ------
        Unfinished
            If the scheduler, or all workers, have gone and do not come back.
        """
        tasks = tasks_of(frames, self._work[0].frames_per_task)
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
        if isinstance(recording, _recordings.Folder_recording):
            recording = recording.part(indices[0], indices[-1] + 1)
        try:
            future = self._client.submit(
                _batch_work.process_frames, recording, output, settings, indices,
                software_version(), pure=False,
            )
        except Exception as error:  # of a client that has closed itself
            raise Unfinished(f"the scheduler has gone ({_reason(error)})") from None
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
            raise Unfinished("the scheduler has gone")
        try:
            workers = self._client.scheduler_info()["workers"]
        except (OSError, RuntimeError, asyncio.CancelledError) as error:
            raise Unfinished(f"the scheduler has gone ({_reason(error)})") from None
        if workers:
            self._seen_workers = time.monotonic()
        elif time.monotonic() - self._seen_workers > self._patience:
            raise Unfinished(
                f"the cluster has had no worker for {self._patience:g} s; start dask-worker for it"
            )

    def _take(self, future: Any) -> None:
        outcome = self._outcome_of(future)
        if outcome is None:
            self._check_cluster()
            future.add_done_callback(self._ended.put)
            return
        # While outcomes come, nobody asks the scheduler for its workers.
        self._seen_workers = time.monotonic()
        del self._under_way[future]
        self._report.add(outcome)

    def _outcome_of(self, future: Any) -> Optional[_batch_work.Outcome]:
        """None where it lies with a worker that died; another one is at it then."""
        try:
            if future.status == "error":
                error = future.exception()
                problem = f"{type(error).__name__}: {error}"
                return [(index, problem) for index in self._under_way[future]]
            outcome: _batch_work.Outcome = future.result(timeout=_STEP_SECONDS)
            return outcome
        except TimeoutError:
            return None
        except (Exception, asyncio.CancelledError):  # what the task raised is the error above
            raise Unfinished("the scheduler has gone") from None
