"""Clusters of real processes, parts of which are lost while both workers hold a frame."""

from __future__ import annotations

import os
import signal
import time

import pytest
from batch_support import (
    Long_recording,
    Watched_run,
    assert_equal,
    completed,
    loopback_cluster,
    marked,
    options,
    run,
    started,
)


@pytest.fixture
def recording(tmp_path):
    return Long_recording(tmp_path)


@pytest.fixture
def cluster(tmp_path, recording):
    with loopback_cluster(tmp_path, shared=recording.gate.environment) as parts:
        yield parts


def test_a_worker_killed_in_the_middle_costs_no_frame(cluster, recording, capsys):
    address, _, workers = cluster
    out = recording.out
    client = started(recording.source, out, *options("--scheduler", address, "--planes", "all"))
    recording.wait_in_the_middle()
    leftover = out / "s0" / "7.0.0.run.0.partial"
    leftover.write_text("of a writer that was killed two hours ago")
    os.utime(leftover, (time.time() - 7200, time.time() - 7200))
    at_kill = completed(out)
    workers[0].send_signal(signal.SIGKILL)
    assert workers[0].wait() == -signal.SIGKILL
    recording.gate.open()
    printed, errors = client.communicate()
    assert workers[1].poll() is None
    assert client.returncode == 0 and not errors, errors
    assert 50 <= at_kill < 240
    assert "240 frames done, 0 skipped, 0 failed" in printed
    compared = assert_equal(out, recording.frames)
    assert not list(out.glob("*/*.partial"))
    with capsys.disabled():
        print(
            f"\n  worker killed with {at_kill} of 240 frames stored; {compared} frames equal; "
            f"{printed.strip()}"
        )


def test_a_killed_client_goes_on_where_it_ended(cluster, recording, capsys):
    address, _, _ = cluster
    out = recording.out
    line = (recording.source, out, *options("--scheduler", address))
    client = started(*line)
    recording.wait_in_the_middle()
    client.kill()
    client.communicate()
    before = completed(out)
    assert 50 <= before < 240
    times = {index: (out / "dolp" / f"{index}.0.0").stat().st_mtime_ns for index in marked(out)}
    # A frame that was half written, which no worker has at hand: one plane of three, cut off.
    assert 239 not in times and len(times) == before
    (out / "s0" / "239.0.0").write_bytes(b"half a chunk")
    recording.gate.open()
    code, printed, errors = run(*line)
    assert code == 0 and not errors, errors
    # Tasks of the killed client that had begun may have ended before the others were counted.
    done, skipped = int(printed.split()[0]), int(printed.split(" skipped")[0].split()[-1])
    assert done + skipped == 240 and before <= skipped < 239 and " 0 failed" in printed, printed
    assert all(
        (out / "dolp" / f"{index}.0.0").stat().st_mtime_ns == then for index, then in times.items()
    )
    compared = assert_equal(out, recording.frames)
    code, printed_again, _ = run(*line)
    assert code == 0 and "0 frames done, 240 skipped" in printed_again
    with capsys.disabled():
        print(
            f"\n  client killed with {before} of 240 frames stored; {compared} frames equal; "
            f"{printed.strip()}"
        )


def lost(client, recording, parts, patience_line):
    """Kill parts of the cluster in the middle, and see how the client ends."""
    recording.wait_in_the_middle(client)
    known = completed(recording.out)
    for part in parts:
        part.kill()
    code, printed, errors = client.ended()
    lines = errors.splitlines()
    assert code == 1
    assert f"{known} frames done, 0 skipped, 1 failed, {239 - known} not finished, " in printed
    assert len(lines) == 2 and "in.zarr frame 1: " in lines[0], errors
    assert patience_line in lines[1] and "the same command goes on from here" in lines[1]
    assert 50 <= known < 239
    return known


def test_a_cluster_without_workers_ends_the_run_with_a_line(cluster, recording):
    address, _, workers = cluster
    recording.remove_frame_1()
    client = Watched_run(
        recording.source, recording.out, *options("--scheduler", address, "--patience", 3)
    )
    lost(client, recording, workers, "the cluster has had no worker for 3 s")


def test_a_scheduler_that_dies_ends_the_run_with_a_line(cluster, recording):
    address, scheduler, workers = cluster
    put_back = recording.remove_frame_1()
    client = Watched_run(recording.source, recording.out, *options("--scheduler", address))
    done = lost(client, recording, [scheduler], "the scheduler has gone")
    put_back()
    # What they hold would be done twice.
    for worker in workers:
        worker.kill()
    code, printed, errors = run(recording.source, recording.out, *options("--workers", 2))
    assert code == 0 and not errors, errors
    assert f"{240 - done} frames done, {done} skipped, 0 failed" in printed
    assert_equal(recording.out, recording.frames)
