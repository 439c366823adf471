"""A cluster of processes of this machine: for one run, and for nobody else who works here.

Whoever reaches a scheduler runs code as its user, and any user of this machine reaches loopback. So
all parts speak TLS, with a key that is made for the run and stays in its processes.
"""

from __future__ import annotations

import importlib
import logging
import os
import signal
from multiprocessing import resource_tracker
from typing import Any, Optional

import dask
import distributed

_LOOPBACK = "127.0.0.1"
# Dask has malloc give freed blocks back to the system, which then makes new pages for every plane:
# with compression, a third of a frame's time. A worker warns of a slow disk before any code of ours
# runs in it.
_ENVIRONMENT = {
    "MALLOC_TRIM_THRESHOLD_": str(1 << 29),
    "MALLOC_MMAP_THRESHOLD_": str(1 << 25),
    "PYTHONWARNINGS": "ignore",
}


class Worker_without_pages(distributed.Worker):  # type: ignore[misc]
    """Else a worker shows pages on a port for all interfaces, whatever it listens on itself."""

    def start_http_server(self, *arguments: Any, **options: Any) -> None:
        pass


class _Nanny(distributed.Nanny):  # type: ignore[misc]
    def __init__(self, *arguments: Any, **options: Any) -> None:
        super().__init__(*arguments, worker_class=Worker_without_pages, **options)


def start(workers: Optional[int], folder: str, dashboard: bool) -> Any:
    """The cluster. Files of its processes, those of keys too, are in a folder of the user's own."""
    importlib.import_module("cryptography")  # the error of Security itself names no package
    # Ctrl-C in a terminal goes to all processes; workers are to be ended by us. They inherit the
    # mask of the threads that start them, which are made here. Python's tracker of resources gets
    # it too; its start unblocks Ctrl-C, in whatever thread it falls.
    signals = {signal.SIGINT, signal.SIGHUP}
    before = signal.pthread_sigmask(signal.SIG_BLOCK, signals)
    try:
        # Dask leaves all of _ENVIRONMENT here. The tracker has to have it, too: it would warn of what
        # a worker that was killed has not released.
        os.environ.setdefault("PYTHONWARNINGS", _ENVIRONMENT["PYTHONWARNINGS"])
        resource_tracker.ensure_running()
        signal.pthread_sigmask(signal.SIG_BLOCK, signals)
        place = "distributed.nanny.pre-spawn-environ."
        changes: dict[str, Any] = {place + name: value for name, value in _ENVIRONMENT.items()}
        if not dashboard:
            changes["distributed.scheduler.http.routes"] = []
        with dask.config.set(changes):
            cluster = distributed.LocalCluster(
                n_workers=workers or len(os.sched_getaffinity(0)),
                threads_per_worker=1,
                host=_LOOPBACK,
                security=distributed.Security.temporary(),
                worker_class=_Nanny,
                # Without an address it listens on a port for all.
                dashboard_address=f"{_LOOPBACK}:0",
                scheduler_kwargs={"dashboard": dashboard},
                silence_logs=logging.CRITICAL,
                local_directory=folder,
                env={"TMPDIR": folder},
            )
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)
    if not dashboard:
        cluster.loop.add_callback(cluster.scheduler.http_server.stop)
    return cluster


def pages(cluster: Any) -> str:
    """Where its scheduler shows what is going on."""
    return f"http://{_LOOPBACK}:{cluster.scheduler.http_server.port}/info/main/workers.html"
