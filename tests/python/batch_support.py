"""What the tests of recordings share: the command, frames, comparison, a cluster on loopback, a gate."""

from __future__ import annotations

import contextlib
import functools
import json
import os
import pickle
import pydoc
import re
import subprocess
import sys
import threading
import time
from pathlib import Path
from types import SimpleNamespace

import numpy as np
import zarr

import veldrane_polarization as vp
from veldrane_polarization._settings import Settings
from veldrane_polarization.batch import output_group, storing
from veldrane_polarization.batch.work import process_frames

LAYOUT, BIT_DEPTH = "90,45,135,0", 12


# Whatever becomes of the tests, nothing that they started outlives them.
WITH_US = ["setpriv", "--pdeathsig", "KILL", sys.executable]


def command(*arguments):
    return [*WITH_US, "-B", "-m", "veldrane_polarization.batch", *map(str, arguments)]


def run(*arguments, **more):
    done = subprocess.run(command(*arguments), capture_output=True, text=True, **more)
    return done.returncode, done.stdout, done.stderr


class Gate:
    """Workers in this environment hold frames from a number on until it is opened."""

    def __init__(self, folder, first):
        self._folder = folder / "gate"
        self._folder.mkdir()
        preload = str(Path(__file__).parent / "batch" / "gate.py")
        self.environment = {
            "DASK_DISTRIBUTED__WORKER__PRELOAD": repr([preload]),
            "GATE_FOLDER": str(self._folder),
            "GATE_FRAME": str(first),
            "PYTHONDONTWRITEBYTECODE": "1",
            # Workers tell of what they preload.
            "DASK_LOGGING__DISTRIBUTED": "critical",
            # Else a frame before the gate may come to lie behind one that is held.
            "DASK_DISTRIBUTED__SCHEDULER__WORK_STEALING": "False",
        }

    def wait_for(self, workers):
        """Until each of so many workers holds a frame and nothing goes on any more."""
        wait_until(lambda: sum(file.name != "open" for file in self._folder.iterdir()) == workers)

    def holders(self):
        """Numbers of their processes."""
        return {int(file.name) for file in self._folder.iterdir() if file.name != "open"}

    def open(self):
        (self._folder / "open").touch()


def started(*arguments, **more):
    return subprocess.Popen(
        command(*arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **more
    )


class Watched_run:
    """The command on a terminal, where its progress tells which frames it knows the fate of."""

    def __init__(self, *arguments, **more):
        master, slave = os.openpty()
        self.process = subprocess.Popen(
            command(*arguments), stdout=subprocess.PIPE, stderr=slave, text=True, **more
        )
        os.close(slave)
        self._seen = bytearray()
        self._reader = threading.Thread(target=self._read, args=(master,), daemon=True)
        self._reader.start()

    def _read(self, master):
        with open(master, "rb", buffering=0) as terminal, contextlib.suppress(OSError):
            while part := terminal.read(4096):  # an error where nobody writes any more
                self._seen += part

    def progress(self):
        """Frames handled and frames failed, in the last whole line of progress."""
        found = re.findall(
            rb"\] (\d+)/\d+ frames(?:, (\d+) failed)?, .* s left", self._seen.replace(b"\r", b"\n")
        )
        return (int(found[-1][0]), int(found[-1][1] or 0)) if found else (0, 0)

    def ended(self):
        """Exit code, what was printed, and the lines of errors behind the progress."""
        printed, _ = self.process.communicate()
        self._reader.join()
        errors = bytes(self._seen).decode().replace("\r\n", "\n")
        return self.process.returncode, printed, re.sub(r"^(\r\[[^\r\n]*)+\n", "", errors)


def options(*more):
    return ("--layout", LAYOUT, "--bit-depth", BIT_DEPTH, *more)


def frames_of(count, height=64, width=96):
    one = vp.simulate(height, width, layout=2, frames=min(count, 8)).frames
    numbers = np.arange(count, dtype=np.uint16)[:, None, None]
    return np.minimum(np.resize(one, (count, height, width)) + numbers, 4095).astype(np.uint16)


class Long_recording:
    """240 frames, a place for their planes, and workers that hold frames from the 60th on."""

    count, first_held = 240, 60

    def __init__(self, folder, first_held=first_held):
        self.frames = frames_of(self.count, 400, 600)
        self.source, self.out = folder / "in.zarr", folder / "out.zarr"
        zarr.save_array(str(self.source), self.frames, chunks=(1, 400, 600), compressor=None)
        self.gate = Gate(folder, first_held)
        self.environment = os.environ | self.gate.environment

    def remove_frame_1(self):
        """What puts it back."""
        chunk = self.source / "1.0.0"
        kept = chunk.read_bytes()
        chunk.unlink()
        return lambda: chunk.write_bytes(kept)

    def wait_in_the_middle(self, client=None):
        """Until both workers hold a frame, and the client knows of all that is before them."""
        self.gate.wait_for(2)
        if client is not None:
            wait_until(lambda: client.progress() == (completed(self.out) + 1, 1))


def assert_equal(out, frames, indices=None, **changes):
    """Bit for bit what one process gives."""
    group = zarr.open_group(str(out), mode="r")
    chosen = range(len(frames)) if indices is None else indices
    names = group.attrs["planes"]
    assert names
    for index in chosen:
        expected = vp.process(frames[index], layout=2, bit_depth=BIT_DEPTH, planes=names, **changes)
        for name in names:
            stored = group[name][index]
            assert stored.dtype == expected[name].dtype
            assert stored.tobytes() == expected[name].tobytes(), (index, name)
        assert group["complete"][index] == 1
    return len(chosen)


def settings(**changes):
    values = dict(phase=2, planes=("s0", "dolp"), mode="fast", calibration=None, signed=False)
    scale = vp.Scale(changes.pop("bit_depth", BIT_DEPTH), changes.pop("full_scale", None))
    return Settings(**(values | {"scale": scale} | changes))


def output(path, compression="lz4", run="0123abcd", frames_per_chunk=1):
    return storing.Output(str(path), compression, run, frames_per_chunk)


def store(out, number, **planes):
    """One chunk of one frame."""
    with storing.Chunk(out, number) as chunk:
        chunk.put(0, planes)
        chunk.store([0])


def mark(out, index, value=1):
    """Of a frame, as a worker does."""
    with out.opened_marks(index // out.frames_per_chunk) as (descriptor, place):
        os.pwrite(descriptor, bytes([value]), place + index % out.frames_per_chunk)


def store_all(recording, out, chosen=None):
    """A whole run in this process."""
    chosen = chosen or settings()
    output_group.prepare(out, chosen, recording)
    outcome = process_frames(recording, out, chosen, range(recording.count), vp.__version__)
    assert outcome == [(index, None) for index in range(recording.count)]


def wait_until(condition, seconds=300):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.005)


def marked(out):
    """Numbers of frames."""
    files = sorted((out / "complete").glob("[0-9]*"), key=lambda file: int(file.name))
    marks = b"".join(file.read_bytes() for file in files if not file.suffix)
    return np.flatnonzero(np.frombuffer(marks, np.uint8) == 1).tolist()


def completed(out):
    return len(marked(out))


@contextlib.contextmanager
def loopback_cluster(folder, worker_environments=({}, {}), shared={}, security=None):
    """Address, scheduler and worker processes; nothing restarts them."""
    environment = os.environ | {"DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": "10"} | shared
    file = folder / "scheduler.json"
    started = [
        subprocess.Popen(
            [
                *WITH_US,
                "-m",
                "distributed.cli.dask_scheduler",
                "--host",
                "127.0.0.1",
                "--port",
                "0",
                "--no-dashboard",
                "--scheduler-file",
                file,
            ],
            env=environment,
            stderr=subprocess.DEVNULL,
        )
    ]
    try:
        wait_until(file.exists)
        for number, changes in enumerate(worker_environments):
            started.append(
                subprocess.Popen(
                    [
                        *WITH_US,
                        "-m",
                        "distributed.cli.dask_worker",
                        "--scheduler-file",
                        file,
                        "--no-nanny",
                        "--nthreads",
                        "1",
                        "--no-dashboard",
                        "--name",
                        f"worker-{number}",
                        "--local-directory",
                        folder / f"worker-{number}",
                    ],
                    env=environment | changes,
                    stderr=subprocess.DEVNULL,
                )
            )
        wait_until(lambda: file.read_text().endswith("}"))
        address = json.loads(file.read_text())["address"]
        from distributed import Client

        with Client(address, timeout=300, security=security) as client:
            client.wait_for_workers(len(worker_environments), timeout=300)
        yield address, started[0], started[1:]
    finally:
        for process in reversed(started):
            with contextlib.suppress(ProcessLookupError):
                process.kill()
            process.wait()


class Made_up_future:
    def __init__(self, work):
        self._work = functools.cache(lambda: self._outcome_of(work))
        self.ended = lambda: None

    @staticmethod
    def _outcome_of(work):
        try:
            return work(), None
        except Exception as error:  # as it comes from a worker
            return None, pickle.loads(pickle.dumps(error))

    @property
    def status(self):
        return "finished" if self.exception() is None else "error"

    def exception(self):
        return self._work()[1]

    def add_done_callback(self, function):
        self.ended = lambda: function(self)

    def result(self, timeout=None):
        return self._work()[0]


class Made_up_client:
    """Tasks run in this process, each when its result is asked for, and take `seconds`."""

    status = "running"

    def __init__(self, clock, seconds=0, workers=lambda: ["a worker"], held=()):
        self.clock, self.seconds, self.workers, self.held = clock, seconds, workers, held
        self.futures = []
        self.answers = lambda: {"tcp://one": vp.__version__}
        self.scheduler = SimpleNamespace(identity=self.identity)

    def sync(self, function, *arguments, callback_timeout, **options):
        return function(*arguments, **options)

    def submit(self, function, *arguments, pure):
        def work():
            self.clock.now += self.seconds
            return function(*arguments)

        future = Made_up_future(work)
        self.futures.append(future)
        if len(self.futures) - 1 in self.held:
            return future
        add = future.add_done_callback
        future.add_done_callback = lambda called: (add(called), future.ended())
        return future

    def identity(self):
        return {"workers": {name: {"last_seen": self.clock.now} for name in self.workers()}}

    def run(self, function, *arguments, on_error):
        assert function is pydoc.locate and on_error == "return"
        return self.answers()

    def nthreads(self):
        return {address: 1 for address in self.workers()}
