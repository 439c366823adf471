"""The client of a run on a made-up cluster: workers and schedulers that go, clocks, exit codes."""

from __future__ import annotations

import contextlib
import os
import pydoc
import sys
from pathlib import Path
from types import SimpleNamespace

import distributed
import pytest
from batch_support import Made_up_client, assert_equal, frames_of, mark, options, output
from distributed.comm import CommClosedError
from distributed.scheduler import KilledWorker
from made_up_run import FRAMES, a_run, clock, command_on, recording

import veldrane_polarization as vp
from veldrane_polarization import batch
from veldrane_polarization.batch import output_group, running, work

# Fixtures.
__all__ = ["a_run", "clock", "recording"]


def test_patience_counts_from_the_last_sign_of_a_worker(clock, a_run):
    """A worker that is started anew after ten minutes of work is not missed for 60 seconds."""
    asked = []

    def workers():
        asked.append(clock.now)
        clock.now += 2
        if len(asked) < 3:
            return []
        client.futures[-1].ended()
        return ["a worker"]

    client = Made_up_client(clock, 150, workers, held=(FRAMES - 1,))
    run, report = a_run(client)
    run.process(range(FRAMES), 1)
    assert report.handled == report.done == FRAMES
    assert asked == [1600, 1602, 1604]


def test_patience_ends(clock, a_run):
    asked = []

    def workers():
        asked.append(clock.now)
        clock.now += 25
        return []

    run, report = a_run(Made_up_client(clock, 150, workers, held=(FRAMES - 1,)))
    with pytest.raises(running.Unfinished, match="no worker for 60 s"):
        run.process(range(FRAMES), 1)
    assert asked == [1600, 1625, 1650] and report.handled == FRAMES - 1


class Client_with_stopped_workers(Made_up_client):
    """Asked for its workers it takes 25 seconds; the last future of those at the start never ends."""

    def __init__(self, clock, beating, stopped, told=lambda asked: None):
        super().__init__(clock, held=(FRAMES - 1,))
        self.beating, self.stopped, self.told, self.asked = beating, stopped, told, 0
        self.chosen, self.cancelled = [], []

    def identity(self):
        self.asked += 1
        self.clock.now += 25
        self.told(self.asked)
        beats = dict.fromkeys(self.stopped, 1.0) | dict.fromkeys(self.beating, self.clock.now)
        return {"workers": {name: {"last_seen": beat} for name, beat in beats.items()}}

    def submit(self, *arguments, pure, workers=None):
        self.chosen.append(workers)
        return super().submit(*arguments, pure=pure)

    def cancel(self, futures):
        self.cancelled += futures


def test_frames_of_a_worker_that_has_stopped_go_to_others(clock, a_run):
    client = Client_with_stopped_workers(clock, ["one"], ["two"])
    run, report = a_run(client)
    run.process(range(FRAMES), 2)
    assert report.done == FRAMES and client.asked == 3
    assert client.chosen == [None] * FRAMES + [["one"]]
    assert client.cancelled == [client.futures[FRAMES - 1]]
    client.cancelled[0].ended()  # it has gone on after all
    run.process([], 2)
    assert report.done == FRAMES


@pytest.mark.parametrize(
    "beating, stopped, words",
    [
        (["one"], [], r"60 s; see to the workers or give more --patience, and the same"),
        ([], ["two", "one"], r"60 s \(one, two without a heartbeat\); see to"),
    ],
)
def test_patience_ends_where_workers_do_no_frame(clock, a_run, beating, stopped, words):
    run, report = a_run(Client_with_stopped_workers(clock, beating, stopped))
    with pytest.raises(running.Unfinished, match=f"no frame has been done for {words}"):
        run.process(range(FRAMES), 1)
    assert report.done == FRAMES - 1 and clock.now == 1075


def test_frames_are_not_given_to_others_for_ever(clock, a_run):
    client = Client_with_stopped_workers(clock, ["one"], ["two"])
    client.held = (FRAMES - 1, FRAMES)
    run, report = a_run(client)
    with pytest.raises(running.Unfinished, match=r"\(two without a heartbeat\)"):
        run.process(range(FRAMES), 1)
    assert report.done == FRAMES - 1 and client.chosen[FRAMES:] == [["one"]]


def test_patience_counts_from_the_last_frame_of_a_long_task(clock, a_run, tmp_path):
    def told(asked):
        if asked == 2:
            mark(output(tmp_path / "out.zarr"), 4)

    client = Client_with_stopped_workers(clock, ["one"], [], told)
    run, report = a_run(client)
    with pytest.raises(running.Unfinished, match="no frame has been done"):
        run.process(range(FRAMES), 1)
    assert clock.now == 1150  # seen after 75 seconds, and 75 more


def test_what_never_answers_ends_the_run(clock, a_run):
    class Client_of_a_stopped_scheduler(Made_up_client):
        def sync(self, function, *arguments, callback_timeout, **options):
            self.clock.now += callback_timeout
            raise TimeoutError

    client = Client_of_a_stopped_scheduler(clock, held=(1,))
    run, report = a_run(client)
    with pytest.raises(running.Unfinished, match="the scheduler has not answered for 60 s"):
        run.process(range(FRAMES), 1)
    assert report.done == 1 and clock.now == 1060
    with pytest.raises(running.Unfinished, match="or a worker has not answered for 60 s"):
        running.check_workers(client, 60)


def test_a_scheduler_that_does_not_answer_any_more_ends_the_run(clock, a_run):
    def workers():
        raise CommClosedError("closed")

    run, _ = a_run(Made_up_client(clock, 0, workers, held=(1,)))
    with pytest.raises(running.Unfinished, match="the scheduler has gone"):
        run.process(range(FRAMES), 1)


def test_workers_that_leave_before_the_first_frame_are_waited_for(
    tmp_path, recording, clock, monkeypatch, capsys
):
    client = Made_up_client(clock, workers=lambda: [])
    assert command_on(client, tmp_path, monkeypatch) == 0
    printed, errors = capsys.readouterr()
    assert f"{FRAMES} frames done, 0 skipped, 0 failed" in printed and not errors
    assert assert_equal(tmp_path / "out.zarr", frames_of(FRAMES)) == FRAMES


def test_frames_that_were_not_done_are_no_success(tmp_path, recording, clock, monkeypatch, capsys):
    monkeypatch.setattr(running.Run, "process", lambda *arguments: None)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
    assert f"{FRAMES} not finished" in capsys.readouterr().out


def test_frames_that_no_worker_survives_fail_in_our_words(clock, a_run, monkeypatch):
    def killing(*arguments):
        raise KilledWorker("a task", SimpleNamespace(address="tcp://one"), 3)

    monkeypatch.setattr(work, "process_frames", killing)
    run, report = a_run(Made_up_client(clock))
    run.process([2, 3], 1)
    line = (
        "all workers that were at it died, one after the other; give them more memory, and the "
        "same command goes on from here"
    )
    assert report.failures == {2: line, 3: line} and report.done == 0


def test_failures_are_told_where_the_summary_cannot_be(
    tmp_path, recording, clock, monkeypatch, capsys
):
    (tmp_path / "in.zarr" / "1.0.0").unlink()
    reader, writer = os.pipe()
    os.close(reader)
    with open(writer, "w", closefd=False) as nobody:
        monkeypatch.setattr(sys, "stdout", nobody)
        assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
        (tmp_path / "in.zarr" / "1.0.0").write_bytes((tmp_path / "in.zarr" / "0.0.0").read_bytes())
        assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
        monkeypatch.undo()
        with contextlib.suppress(OSError):
            nobody.close()
    os.close(writer)
    lost = "error: the summary cannot be printed (Broken pipe); leave it out with --quiet\n"
    assert capsys.readouterr().err == (
        f"error: {tmp_path}/in.zarr frame 1: the chunk 1.0.0 is missing\n{lost}{lost}"
    )


def test_a_scheduler_that_goes_before_the_first_frame_is_no_wrong_usage(
    tmp_path, recording, clock, monkeypatch, capsys
):
    def gone():
        raise CommClosedError("closed")

    client = Made_up_client(clock)
    client.answers = gone
    assert command_on(client, tmp_path, monkeypatch) == 1
    printed, errors = capsys.readouterr()
    assert errors == (
        "error: the scheduler has gone (closed); the same command goes on from here\n"
    )
    assert f"{FRAMES} not finished" in printed


def test_files_that_cannot_be_looked_at_are_no_wrong_usage(
    tmp_path, recording, clock, monkeypatch, capsys
):
    def refused(*arguments):
        raise PermissionError(13, "Permission denied", "complete")

    monkeypatch.setattr(output_group, "incomplete_frames", refused)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
    assert capsys.readouterr().err == "error: complete: Permission denied\n"


@pytest.mark.parametrize(
    "answers, words",
    [
        ({"tcp://one": None}, r"tcp://one cannot import veldrane_polarization; install"),
        (
            {"tcp://one": pydoc.ErrorDuringImport("x", (OSError, OSError("disk"), None))},
            r"tcp://one cannot import veldrane_polarization \(problem in x - OSError: disk\)",
        ),
        ({"tcp://one": vp.__version__, "tcp://two": "0.0"}, "tcp://two has version 0.0"),
        ({"tcp://one": vp.__version__, "tcp://two": None}, "tcp://two cannot import"),
        ({"tcp://one": CommClosedError("gone"), "tcp://two": None}, "tcp://two cannot import"),
        ({"tcp://one": CommClosedError("gone")}, "no worker for 60 s"),
        ({}, "no worker for 60 s"),
    ],
)
def test_workers_are_refused_for_what_they_answer(clock, answers, words):
    client = Made_up_client(clock)
    client.answers = lambda: answers
    with pytest.raises(running.Cluster_error, match=words):
        running.check_workers(client, 60)


@pytest.mark.parametrize(
    "error",
    [CommClosedError("gone"), OSError("Timed out"), TimeoutError(), ConnectionRefusedError()],
)
def test_workers_that_have_gone_are_not_taken_for_ones_without_the_package(clock, error):
    client = Made_up_client(clock)
    client.answers = lambda: {"tcp://one": error, "tcp://two": vp.__version__}
    assert running.check_workers(client, 60) == 1
    # Alone, it may be followed by another.
    answers = iter(({"tcp://one": error}, {}, {"tcp://two": vp.__version__}))
    client.answers = lambda: next(answers)
    assert running.check_workers(client, 60) == 1


@pytest.mark.parametrize("part", ("LocalCluster", "Client"))
def test_a_local_cluster_that_cannot_start_is_one_line(
    tmp_path, recording, monkeypatch, capsys, part
):
    closed, folders = [], []

    def local_cluster(local_directory, **more):
        folders.append(Path(local_directory))
        assert folders[-1].is_dir()
        server = SimpleNamespace(stop=lambda: None)
        return SimpleNamespace(
            close=lambda: closed.append(True),
            scheduler=SimpleNamespace(http_server=server),
            loop=SimpleNamespace(add_callback=lambda function: function()),
        )

    def failing(*arguments, **more):
        raise RuntimeError("Cluster failed to start: no\nmemory")

    monkeypatch.setattr(distributed, "LocalCluster", local_cluster)
    monkeypatch.setattr(distributed, part, failing)
    line = (tmp_path / "in.zarr", tmp_path / "out.zarr", *options("--workers", 2))
    assert batch.main(list(map(str, line))) == 2
    printed, errors = capsys.readouterr()
    assert errors == (
        "error: no cluster can be started on this machine (Cluster failed to start: no "
        "memory); give fewer --workers, or a --scheduler\n"
    )
    assert not printed and len(closed) == len(folders) == (part == "Client")
    assert not any(folder.exists() for folder in folders)
    # The next run may have other options.
    assert [file.name for file in tmp_path.iterdir()] == ["in.zarr"]
