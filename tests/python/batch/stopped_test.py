"""Parts of real clusters that are stopped, and do not end, while both workers hold a frame."""

from __future__ import annotations

import contextlib
import os
import signal
from pathlib import Path

import pytest
from batch_support import (
    Long_recording,
    Watched_run,
    assert_equal,
    completed,
    loopback_cluster,
    options,
    started,
    wait_until,
)


@pytest.fixture
def recording(tmp_path):
    return Long_recording(tmp_path)


def test_frames_of_a_stopped_worker_go_to_the_other(tmp_path, recording):
    client = started(
        recording.source,
        recording.out,
        *options("--workers", 2, "--patience", 10),
        env=recording.environment,
    )
    recording.gate.wait_for(2)
    stopped = min(recording.gate.holders())
    os.kill(stopped, signal.SIGSTOP)
    recording.gate.open()
    printed, errors = client.communicate()
    assert client.returncode == 0 and not errors, errors
    assert "240 frames done, 0 skipped, 0 failed" in printed
    assert assert_equal(recording.out, recording.frames) == 240
    assert not list(recording.out.glob("**/*.partial"))
    # The cluster of the run goes with it, stopped or not.
    with contextlib.suppress(FileNotFoundError):
        assert Path(f"/proc/{stopped}/stat").read_text().rpartition(")")[2].split()[0] in "ZX"


def test_a_stopped_scheduler_ends_the_run(tmp_path, recording):
    with loopback_cluster(tmp_path, shared=recording.gate.environment) as (address, scheduler, _):
        client = Watched_run(
            recording.source, recording.out, *options("--scheduler", address, "--patience", 5)
        )
        recording.gate.wait_for(2)
        wait_until(lambda: client.progress()[0] == completed(recording.out))
        known = completed(recording.out)
        scheduler.send_signal(signal.SIGSTOP)
        code, printed, errors = client.ended()
    assert code == 1 and f"{240 - known} not finished" in printed, printed
    assert (
        errors.count("\n") == 1 and "error: the scheduler has not answered for " in errors
    ), errors
    assert errors.endswith(" s; the same command goes on from here\n")
