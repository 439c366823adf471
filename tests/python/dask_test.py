"""Lazy processing: bit for bit the same, whatever the chunks."""

from __future__ import annotations

import dask
import dask.array as da
import numpy as np
import pytest
from hypothesis import given, strategies as st

import veldrane_polarization as vp
from veldrane_polarization import _processing, dask as vp_dask


def cuts(draw, length):
    """A ragged way to cut a length into chunks."""
    chunks = []
    while sum(chunks) < length:
        chunks.append(draw(st.integers(1, length - sum(chunks))))
    return tuple(chunks)


@st.composite
def chunked(draw):
    shape = draw(st.integers(1, 7)), draw(st.integers(2, 12)), draw(st.integers(16, 60))
    raw = np.random.default_rng(draw(st.integers(0, 2**32))).integers(0, 4096, shape, np.uint16)
    if draw(st.booleans()):
        return raw, tuple((1,) * length for length in shape)
    return raw, tuple(cuts(draw, length) for length in shape)


@given(chunked(), st.integers(0, 3), st.sampled_from((None, "calibrated")), st.booleans())
def test_chunks_change_no_bit(frames, phase, mode, signed):
    raw, chunks = frames
    options = dict(layout=phase, bit_depth=12, planes="all", mode=mode, signed=signed)
    expected = vp.process(raw, **options)
    planes = vp_dask.process(da.from_array(raw, chunks=chunks), **options)
    with dask.config.set(scheduler="sync"):
        (computed,) = dask.compute(planes)
    assert list(planes) == list(expected)
    for name, plane in planes.items():
        assert plane.shape == expected[name].shape and plane.dtype == expected[name].dtype
        assert plane._meta.dtype == plane.dtype and plane.chunks[0] == chunks[0]
        assert np.array_equal(computed[name].view(np.uint8), expected[name].view(np.uint8))
        part = plane[: raw.shape[0] // 2 + 1, 1:, :5].compute(scheduler="sync")
        np.testing.assert_array_equal(part, expected[name][: raw.shape[0] // 2 + 1, 1:, :5])


def test_a_block_of_frames_is_one_task_for_all_planes_and_lazy():
    calls = []

    def source(block_info=None):
        calls.append(block_info)
        return np.zeros((2, 4, 20), np.uint16)

    frames = da.map_blocks(
        source,
        chunks=((2, 2, 2), (4,), (20,)),
        dtype=np.uint16,
        meta=np.empty((0, 0, 0), np.uint16),
    )
    planes = vp_dask.process(frames, layout=0, bit_depth=12)
    graph = da.Array.__dask_graph__(planes["s0"])
    assert calls == []
    assert (
        sum(str(key[0]).startswith("polarization-") for key in graph if isinstance(key, tuple)) == 3
    )
    dask.compute(planes, scheduler="sync")
    assert len(calls) == 3


def test_tasks_take_one_thread(monkeypatch):
    seen = []
    original = _processing.process_as
    monkeypatch.setattr(
        _processing, "process_as", lambda *a, **k: seen.append(k["threads"]) or original(*a, **k)
    )
    frames = da.zeros((3, 4, 20), chunks=(1, 4, 20), dtype=np.uint16)
    vp_dask.process(frames, layout=0, bit_depth=12, planes="s0")["s0"].compute(scheduler="sync")
    assert seen == [1, 1, 1]


def test_keys_named_like_planes_are_no_planes():
    source = dask.delayed(np.ones)((2, 4, 20), np.uint16, dask_key_name="s0")
    frames = da.from_delayed(source, (2, 4, 20), np.uint16)
    planes = vp_dask.process(frames, layout=0, bit_depth=12, planes="s0,dolp")
    assert planes["s0"].compute(scheduler="sync").shape == (2, 4, 20)


def test_noise_reaches_the_workers():
    raw = np.random.default_rng(3).integers(100, 4096, (3, 4, 20), np.uint16)
    options = dict(layout=2, bit_depth=12, planes="validity,uncertainty", noise=vp.Noise(2.5, 7))
    planes = vp_dask.process(da.from_array(raw, chunks=(1, 4, 20)), **options)
    (computed,) = dask.compute(planes, scheduler="sync")
    expected = vp.process(raw, **options)
    assert computed["uncertainty"].shape == (3, 4, 20, 3)
    for name in expected:
        assert computed[name].tobytes() == expected[name].tobytes(), name


def test_names_follow_the_arguments():
    frames = da.zeros((3, 4, 20), chunks=(1, 4, 20), dtype=np.uint16)
    base = dict(layout=2, bit_depth=12, planes="s0")
    name = vp_dask.process(frames, **base)["s0"].name
    assert name == vp_dask.process(frames, **base)["s0"].name
    others = [
        base | change
        for change in (
            {"layout": 0},
            {"bit_depth": 10},
            {"mode": "calibrated"},
            {"calibration": vp.imperfect_sensor(2, 1)},
            {"calibration": vp.imperfect_sensor(2, 2)},
            {"noise": vp.Noise(2.5)},
            {"mode": "calibrated", "zero_direction": 30},
        )
    ]
    assert len({name, *(vp_dask.process(frames, **other)["s0"].name for other in others)}) == 8


@pytest.mark.parametrize(
    "array, changes, error, words",
    [
        (np.zeros((2, 4, 20), np.uint16), {}, TypeError, "ndarray; give a dask array"),
        (da.zeros((4, 20), dtype=np.uint16), {}, ValueError, r"\(4, 20\); give frames"),
        (da.zeros((2, 4, 20), dtype=np.float32), {}, TypeError, "float32"),
        (da.zeros((2, 4, 15), dtype=np.uint16), {}, ValueError, "16 columns"),
        (da.zeros((2, 4, 20), dtype=np.uint8), {}, ValueError, "at most 8"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"planes": "aolp"}, ValueError, "aolp"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"layout": 9}, ValueError, "layout is 9"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"signed": "no"}, TypeError, "signed is 'no'"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"noise": (2, 3)}, TypeError, r"noise is \(2, 3\)"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"noise": vp.Noise(0)}, ValueError, "0.0"),
        (da.zeros((2, 4, 20), dtype=np.uint16), {"planes": "uncertainty"}, ValueError, "noise"),
        (da.from_array(np.ma.zeros((2, 4, 20), np.uint16), asarray=False), {}, TypeError, "masked"),
    ],
)
def test_is_refused_before_any_work(array, changes, error, words):
    with pytest.raises(error, match=words):
        vp_dask.process(array, **({"layout": 0, "bit_depth": 12} | changes))
