"""A run on a made-up cluster and clock, as fixtures and as a command; tests import what they take."""

from __future__ import annotations

import contextlib
from types import SimpleNamespace

import pytest
import zarr
from batch_support import frames_of, options, output, settings

from veldrane_polarization import _recordings, batch
from veldrane_polarization.batch import command, output_group, running

FRAMES = 5


@pytest.fixture
def clock(monkeypatch):
    clock = SimpleNamespace(now=1000.0)

    def sleep(seconds):
        clock.now += seconds

    monkeypatch.setattr(running, "time", SimpleNamespace(monotonic=lambda: clock.now, sleep=sleep))
    return clock


@pytest.fixture
def recording(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(FRAMES), chunks=(1, 64, 96))
    return _recordings.open_recording(tmp_path / "in.zarr")


@pytest.fixture
def a_run(tmp_path, recording, monkeypatch):
    """A run with a client, its patience 60 seconds of the clock; and its report."""
    monkeypatch.setattr(running, "_STEP_SECONDS", 0.001)
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)

    def of(client):
        report = running.Report(FRAMES, False)
        return running.Run(client, recording, out, settings(), report, 60), report

    return of


def command_on(client, tmp_path, monkeypatch, source="in.zarr", *chosen):
    @contextlib.contextmanager
    def cluster(*arguments):
        yield client

    monkeypatch.setattr(command.cluster, "cluster", cluster)
    chosen = chosen or options()
    line = (tmp_path / source, tmp_path / "out.zarr", *chosen, "--planes", "s0,dolp")
    return batch.main(list(map(str, line)))
