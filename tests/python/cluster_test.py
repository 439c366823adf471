"""Clusters of real processes: what is lost under way, what is interrupted, which workers are refused."""

from __future__ import annotations

import os
import signal
import subprocess
import time

import pytest
import zarr
from batch_support import (
    Watched_run,
    assert_equal,
    command,
    completed,
    frames_of,
    loopback_cluster,
    options,
    run,
    wait_until,
)


@pytest.fixture
def cluster(tmp_path):
    with loopback_cluster(tmp_path) as parts:
        yield parts


@pytest.fixture
def paths(tmp_path):
    """A recording whose second frame fails, and a place for its planes."""
    frames = frames_of(240, 400, 600)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(1, 400, 600), compressor=None)
    return frames, tmp_path / "in.zarr", tmp_path / "out.zarr"


def started(*arguments, **more):
    return subprocess.Popen(
        command(*arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **more)


def test_a_worker_killed_in_the_middle_costs_no_frame(cluster, paths, capsys):
    address, _, workers = cluster
    frames, source, out = paths
    client = started(source, out, *options("--scheduler", address, "--planes", "all"))
    wait_until(lambda: completed(out) >= 60)
    leftover = out / "s0" / "7.0.0.run.0.partial"
    leftover.write_text("of a writer that was killed two hours ago")
    os.utime(leftover, (time.time() - 7200, time.time() - 7200))
    workers[0].send_signal(signal.SIGKILL)
    at_kill = completed(out)
    printed, errors = client.communicate(timeout=240)
    assert workers[0].wait() == -signal.SIGKILL and workers[1].poll() is None
    assert client.returncode == 0 and not errors, errors
    assert at_kill < 240, "the run was over before the kill"
    assert "240 frames done, 0 skipped, 0 failed" in printed
    compared = assert_equal(out, frames)
    assert not list(out.glob("*/*.partial"))
    with capsys.disabled():
        print(f"\n  worker killed with {at_kill} of 240 frames stored; {compared} frames equal; "
              f"{printed.strip()}")


def test_a_killed_client_goes_on_where_it_ended(cluster, paths, capsys):
    address, _, _ = cluster
    frames, source, out = paths
    line = (source, out, *options("--scheduler", address))
    client = started(*line)
    wait_until(lambda: completed(out) >= 50)
    client.kill()
    client.communicate()
    # Tasks that had begun may still end.
    before = -1
    while before != completed(out):
        before = completed(out)
        time.sleep(1)
    assert 50 <= before < 240
    # A frame that was half written: one plane of three, cut off, and no mark.
    half = next(index for index in range(240) if not (out / "complete" / str(index)).exists())
    (out / "s0" / f"{half}.0.0").write_bytes(b"half a chunk")
    times = {index: (out / "dolp" / f"{index}.0.0").stat().st_mtime_ns for index in range(240)
             if (out / "complete" / str(index)).exists()}
    code, printed, errors = run(*line)
    assert code == 0 and not errors, errors
    assert f"{240 - before} frames done, {before} skipped, 0 failed" in printed
    assert all((out / "dolp" / f"{index}.0.0").stat().st_mtime_ns == then
               for index, then in times.items())
    compared = assert_equal(out, frames)
    code, printed_again, _ = run(*line)
    assert code == 0 and "0 frames done, 240 skipped" in printed_again
    with capsys.disabled():
        print(f"\n  client killed with {before} of 240 frames stored; {compared} frames equal; "
              f"{printed.strip()}")


def knows_of_a_failure(client):
    """A worker that starts late may hold the frame that fails while the other one does a hundred."""
    handled, failed = client.progress()
    return handled >= 20 and failed == 1


def lost(client, out, parts, patience_line):
    """Kill parts of the cluster in the middle, and see how the client ends."""
    wait_until(lambda: knows_of_a_failure(client))
    for part in parts:
        part.kill()
    code, printed, errors = client.ended()
    lines = errors.splitlines()
    assert code == 1
    assert " not finished, " in printed and "1 failed" in printed, printed
    assert len(lines) == 2 and "in.zarr frame 1: " in lines[0], errors
    assert patience_line in lines[1] and "the same command goes on from here" in lines[1]
    done = int(printed.split(" frames done")[0])
    assert 0 < done < 239 and completed(out) >= done
    return done


def test_a_cluster_without_workers_ends_the_run_with_a_line(cluster, paths):
    address, _, workers = cluster
    frames, source, out = paths
    (source / "1.0.0").unlink()
    client = Watched_run(source, out, *options("--scheduler", address, "--patience", 3))
    lost(client, out, workers, "the cluster has had no worker for 3 s")


def test_a_scheduler_that_dies_ends_the_run_with_a_line(cluster, paths, tmp_path):
    address, scheduler, _ = cluster
    frames, source, out = paths
    chunk = (source / "1.0.0").read_bytes()
    (source / "1.0.0").unlink()
    client = Watched_run(source, out, *options("--scheduler", address))
    done = lost(client, out, [scheduler], "the scheduler has gone")
    (source / "1.0.0").write_bytes(chunk)
    code, printed, errors = run(source, out, *options("--workers", 2))
    assert code == 0 and not errors, errors
    skipped = int(printed.split(" skipped")[0].split()[-1])
    assert done <= skipped < 240
    assert_equal(out, frames)


@pytest.mark.parametrize("number, to_all", [
    (signal.SIGINT, True), (signal.SIGTERM, False), (signal.SIGHUP, True)])
def test_an_interrupted_run_tells_what_has_failed_and_goes_on_later(paths, number, to_all):
    """Ctrl-C and a closed terminal reach all processes of a run, `kill` only the first."""
    frames, source, out = paths
    chunk = (source / "1.0.0").read_bytes()
    (source / "1.0.0").unlink()
    line = (source, out, *options("--workers", 2))
    client = Watched_run(*line, start_new_session=True)
    wait_until(lambda: knows_of_a_failure(client))
    (os.killpg if to_all else os.kill)(client.process.pid, number)
    code, printed, errors = client.ended()
    lines = errors.splitlines()
    assert code == 130, errors
    assert len(lines) == 2 and "in.zarr frame 1: " in lines[0], errors
    assert lines[1] == "error: interrupted; the same command goes on from here"
    assert " not finished, " in printed and "1 failed" in printed
    wait_until(lambda: not group_is_there(client.process.pid), 10)
    (source / "1.0.0").write_bytes(chunk)
    code, printed, errors = run(*line)
    assert code == 0 and not errors and int(printed.split(" skipped")[0].split()[-1]) >= 19
    assert_equal(out, frames)


def group_is_there(number):
    try:
        os.killpg(number, 0)
    except ProcessLookupError:
        return False
    return True


def test_an_interruption_before_the_work_is_one_line(paths):
    frames, source, out = paths
    client = started(source, out, *options("--workers", 2), start_new_session=True)
    wait_until(lambda: (out / "complete" / ".zattrs").exists())
    os.killpg(client.pid, signal.SIGINT)
    printed, errors = client.communicate(timeout=60)
    assert client.returncode == 130
    assert errors == "error: interrupted; the same command goes on from here\n"


@pytest.mark.parametrize("contents, words", [
    ("raise ImportError('not here')", "cannot import veldrane_polarization"),
    ("__version__ = '0.0'", "has version 0.0, this machine"),
])
def test_a_worker_of_another_installation_is_refused(tmp_path, contents, words):
    package = tmp_path / "other" / "veldrane_polarization"
    package.mkdir(parents=True)
    (package / "__init__.py").write_text(contents)
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(2), chunks=(1, 64, 96))
    with loopback_cluster(tmp_path, ({}, {"PYTHONPATH": str(package.parent)})) as (address, *_):
        line = (tmp_path / "in.zarr", tmp_path / "out.zarr", *options("--scheduler", address))
        code, printed, errors = run(*line)
        assert code == 2 and not printed
        assert errors.startswith("error: the worker tcp://") and words in errors, errors
        assert errors.count("\n") == 1
    assert completed(tmp_path / "out.zarr") == 0


def test_a_worker_without_the_package_is_refused(tmp_path):
    folder = tmp_path / "nothing"
    folder.mkdir()
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(2), chunks=(1, 64, 96))
    with loopback_cluster(tmp_path, ({"PYTHONPATH": str(folder)},)) as (address, *_):
        code, printed, errors = run(
            tmp_path / "in.zarr", tmp_path / "out.zarr", *options("--scheduler", address))
        if "has version" not in errors:  # unless this machine has one installed for all
            assert "cannot import veldrane_polarization; install the package there" in errors
        assert code == 2 and errors.count("\n") == 1, errors


def test_a_scheduler_without_workers_is_refused(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(2), chunks=(1, 64, 96))
    with loopback_cluster(tmp_path, ({},)) as (address, _, workers):
        workers[0].kill()
        workers[0].wait()
        code, printed, errors = run(tmp_path / "in.zarr", tmp_path / "out.zarr",
                                    *options("--scheduler", address, "--patience", 1))
    assert code == 2 and "no worker for 1 s; start dask-worker" in errors
    assert errors.count("\n") == 1
