"""Runs on workers of their own that are interrupted while both of them hold a frame."""

from __future__ import annotations

import os
import signal
from pathlib import Path

import pytest
from batch_support import (
    Long_recording,
    Watched_run,
    assert_equal,
    completed,
    options,
    run,
    started,
    wait_until,
)


@pytest.mark.parametrize(
    "number, to_all", [(signal.SIGINT, True), (signal.SIGTERM, False), (signal.SIGHUP, True)]
)
def test_an_interrupted_run_tells_what_has_failed_and_goes_on_later(tmp_path, number, to_all):
    """Ctrl-C and a closed terminal reach all processes of a run, `kill` only the first."""
    recording = Long_recording(tmp_path)
    put_back = recording.remove_frame_1()
    line = (recording.source, recording.out, *options("--workers", 2))
    client = Watched_run(*line, env=recording.environment, start_new_session=True)
    recording.wait_in_the_middle(client)
    known = completed(recording.out)
    (os.killpg if to_all else os.kill)(client.process.pid, number)
    recording.gate.open()
    code, printed, errors = client.ended()
    lines = errors.splitlines()
    assert code == 130, errors
    assert len(lines) == 2 and "in.zarr frame 1: " in lines[0], errors
    assert lines[1] == "error: interrupted; the same command goes on from here"
    assert " not finished, " in printed and "1 failed" in printed
    wait_until(lambda: not living_of_group(client.process.pid))
    put_back()
    # Of those it did not know of, the workers may have ended some.
    code, printed, errors = run(*line)
    skipped = int(printed.split(" skipped")[0].split()[-1])
    assert code == 0 and not errors and 50 <= known <= skipped < 239, (printed, errors)
    assert_equal(recording.out, recording.frames)


def living_of_group(number):
    """Its processes; those that have ended may stay in the system's table for ever."""
    living = []
    for file in Path("/proc").glob("[0-9]*/stat"):
        try:
            text = file.read_text()
        except (FileNotFoundError, ProcessLookupError):
            continue
        # The name before the last bracket may hold anything.
        state, _, group = text.rpartition(")")[2].split()[:3]
        if int(group) == number and state not in "ZX":
            living.append(int(file.parent.name))
    return living


def test_an_interruption_before_a_frame_is_done_is_one_line(tmp_path):
    recording = Long_recording(tmp_path, first_held=0)
    client = started(
        recording.source,
        recording.out,
        *options("--workers", 2),
        env=recording.environment,
        start_new_session=True,
    )
    wait_until(lambda: (recording.out / "complete" / ".zattrs").exists())
    assert living_of_group(client.pid)
    os.killpg(client.pid, signal.SIGINT)
    recording.gate.open()
    printed, errors = client.communicate()
    assert client.returncode == 130
    wait_until(lambda: not living_of_group(client.pid))
    assert errors == "error: interrupted; the same command goes on from here\n"
