"""Counters of a worker."""

from __future__ import annotations

import sys

import pytest
import zarr
from batch_support import frames_of, output, settings

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization.batch import metrics, output_group, work


def process(tmp_path, frames=5, broken=3):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(frames), chunks=(1, 64, 96))
    (tmp_path / "in.zarr" / f"{broken}.0.0").unlink()
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)
    work.process_frames(recording, out, settings(), range(frames), vp.__version__)
    chunks = [
        file for name in ("s0", "dolp") for file in (tmp_path / "out.zarr" / name).glob("[0-9]*")
    ]
    return sum(file.stat().st_size for file in chunks)


def test_frames_bytes_and_failures_are_counted(tmp_path):
    registry = pytest.importorskip("prometheus_client").REGISTRY

    def counted():
        names = ("frames", "bytes", "failures")
        return [registry.get_sample_value(f"veldrane_{name}_total") for name in names]

    before = counted()
    stored = process(tmp_path)
    assert stored > 0
    assert [now - then for now, then in zip(counted(), before)] == [4, stored, 1]


def test_without_the_client_of_prometheus_nothing_is_counted(tmp_path, monkeypatch):
    monkeypatch.setitem(sys.modules, "prometheus_client", None)
    monkeypatch.setattr(metrics, "_COUNTERS", metrics._registered())
    assert metrics._COUNTERS == {}
    assert process(tmp_path) > 0
