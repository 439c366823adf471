"""The scale of the planes on its way: the same for process, recordings, dask, the program and copies."""

from __future__ import annotations

import copy
import inspect
import json
import os
import pickle
import subprocess

import dask
import dask.array as da
import numpy as np
import pytest
import tifffile
import zarr
from batch_support import output, store_all
from hypothesis import given, strategies as st

import veldrane_polarization as vp
from veldrane_polarization import _recordings, dask as vp_dask
from veldrane_polarization.batch import command

WAYS_TO_COPY = {
    "copy": copy.copy,
    "deepcopy": copy.deepcopy,
    **{
        f"pickle {protocol}": lambda value, protocol=protocol: pickle.loads(
            pickle.dumps(value, protocol)
        )
        for protocol in range(2, pickle.HIGHEST_PROTOCOL + 1)
    },
}


def frames_of_all_samples(bit_depth, shape=(3, 4, 40), seed=0):
    return np.random.default_rng(seed).integers(0, 2**bit_depth, shape, np.uint16)


def settings_of_command(bit_depth, full_scale, *more):
    """As workers get them."""
    line = ["in", "out", "--layout", "2", "--bit-depth", str(bit_depth), *more]
    if full_scale is not None:
        line += ["--full-scale", str(full_scale)]
    return pickle.loads(pickle.dumps(command._settings(command._parser().parse_line(line))))


def assert_same_planes(found, expected):
    assert list(found) == list(expected)
    for name in expected:
        assert np.asarray(found[name]).tobytes() == expected[name].tobytes(), name


@st.composite
def depths_and_full_scales(draw):
    bit_depth = draw(st.sampled_from((*range(1, 17), 16, 16)))
    return bit_depth, draw(
        st.sampled_from((None, 65535, 2**bit_depth - 1)) | st.integers(1, 65535)
    )


@given(
    depths_and_full_scales(),
    st.sampled_from(("fast", "calibrated")),
    st.booleans(),
    st.integers(0, 2**32),
)
def test_recordings_and_dask_scale_as_process_does(numbers, mode, signed, seed):
    bit_depth, full_scale = numbers
    raw = frames_of_all_samples(bit_depth, seed=seed)
    options = dict(
        layout=2, bit_depth=bit_depth, planes="all", mode=mode, signed=signed, full_scale=full_scale
    )
    expected = vp.process(raw, **options)
    chosen = settings_of_command(
        bit_depth, full_scale, "--planes", "all", "--mode", mode, *(("--signed",) if signed else ())
    )
    found = chosen.process(raw)
    assert found.scale == expected.scale
    assert_same_planes(found, expected)
    planes = vp_dask.process(da.from_array(raw, chunks=(2, 4, 40)), **options)
    (computed,) = dask.compute(planes, scheduler="sync")
    assert_same_planes(computed, expected)


@pytest.mark.skipif("VELDRANE_POLARIZE" not in os.environ, reason="the program is not built")
@pytest.mark.parametrize("full_scale", (None, 65535, 1000))
def test_planes_of_16_bits_are_those_of_the_program(tmp_path, full_scale):
    raw = frames_of_all_samples(16, (2, 32, 48))
    zarr.save_array(str(tmp_path / "in.zarr"), raw, chunks=(1, 32, 48))
    names = "s0", "s1", "azimuth", "dolp"
    chosen = settings_of_command(16, full_scale, "--planes", ",".join(names))
    store_all(
        _recordings.open_recording(tmp_path / "in.zarr"), output(tmp_path / "out.zarr"), chosen
    )
    group = zarr.open_group(str(tmp_path / "out.zarr"), mode="r")
    tifffile.imwrite(tmp_path / "f.tif", raw[1])
    subprocess.run(
        [
            os.environ["VELDRANE_POLARIZE"],
            "process",
            tmp_path / "f.tif",
            "--output",
            tmp_path / "planes",
            "--phase",
            "2",
            "--bit-depth",
            "16",
            "--planes",
            ",".join(names),
            "--quiet",
            *(("--full-scale", str(full_scale)) if full_scale else ()),
        ],
        check=True,
    )
    sidecars = [json.loads(file.read_text()) for file in (tmp_path / "planes").glob("*.json")]
    assert {each["plane"] for each in sidecars} == set(names)
    for each in sidecars:
        written = tifffile.imread(tmp_path / "planes" / each["file"])
        assert np.array_equal(group[each["plane"]][1], written), each["plane"]
        assert group[each["plane"]].attrs["step"] == pytest.approx(each["step"], rel=1e-12)
    step = group.attrs["sample_units_per_step"]
    assert step == {None: 2, 65535: 1, 1000: 131.07}[full_scale]
    # Clipped in sample units only: half of the pixels of random frames.
    assert ((group["s0"][:] == 65535).mean() > 0.4) == (full_scale == 65535)


def test_an_out_of_another_scale_of_the_same_numbers_is_refused(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of_all_samples(16), chunks=(1, 4, 40))
    recording, out = _recordings.open_recording(tmp_path / "in.zarr"), output(tmp_path / "out.zarr")
    store_all(recording, out, settings_of_command(16, None))
    with pytest.raises(ValueError, match="was made with sample_units_per_step 2.0, not 1.0"):
        store_all(recording, out, settings_of_command(16, 65535))


def test_names_in_dask_follow_the_scale():
    frames = da.zeros((3, 4, 20), chunks=(1, 4, 20), dtype=np.uint16)
    names = {
        full_scale: vp_dask.process(
            frames, layout=2, bit_depth=16, planes="s0", full_scale=full_scale
        )["s0"].name
        for full_scale in (None, 65535, 1000)
    }
    assert len(set(names.values())) == 3
    assert names[None] == vp_dask.process(frames, layout=2, bit_depth=16, planes="s0")["s0"].name


@pytest.mark.parametrize("way", WAYS_TO_COPY)
def test_a_copy_of_a_scale_is_that_scale(way):
    for bit_depth in range(1, 17):
        for full_scale in (None, 1, 1000, 65535, 2**bit_depth - 1):
            scale = vp.Scale(bit_depth, full_scale)
            copied = WAYS_TO_COPY[way](scale)
            assert copied == scale and hash(copied) == hash(scale) and repr(copied) == repr(scale)
            assert copied.rescaled == scale.rescaled
            assert eval(repr(scale), {"Scale": vp.Scale}) == scale


def public_objects():
    simulation = vp.simulate(16, 32, layout=2, bit_depth=16)
    calibration = vp.imperfect_sensor(2, 5)
    return {
        "Calibration": calibration,
        "Camera_frame": vp.Camera_frame(simulation.frames[0], 65535, 1, 2),
        "Inspection": vp.inspect(simulation.frames[0]),
        "Noise": vp.Noise(2.5, 2.4),
        "Result": vp.process(
            simulation.frames,
            bit_depth=16,
            planes="all",
            signed=True,
            calibration=calibration,
            noise=vp.Noise(2.5, 2.4),
            zero_direction=30,
        ),
        "Scale": vp.Scale(16),
        "Simulation": simulation,
        "Validity": vp.Validity(5),
    }


def content(value):
    if isinstance(value, np.ndarray):
        return value.dtype.str, value.shape, value.tobytes()
    if isinstance(value, vp.Result):
        return [content(value[name]) for name in value] + [
            value.scale,
            value.phase,
            value.mode,
            value.signed,
            value.noise,
            value.zero_direction,
            *(content(value.stokes(name)) for name in ("s0", "s1", "s2")),
        ]
    if isinstance(value, (vp.Camera_frame, vp.Simulation)):
        return [content(each) for each in vars(value).values()]
    if isinstance(value, vp.Calibration):
        return value, {name: content(numbers) for name, numbers in value.maps.items()}
    return value


@pytest.mark.parametrize("way", WAYS_TO_COPY)
def test_copies_of_public_objects_hold_the_same(way):
    objects = public_objects()
    classes = {name for name in vp.__all__ if inspect.isclass(getattr(vp, name))}
    with_maps = vp.calibrate(
        [vp.simulate(16, 32, layout=2, polariser_angle=a).frames[0] for a in range(0, 180, 30)],
        range(0, 180, 30),
        layout=2,
        bit_depth=12,
        model="gain",
        noise=vp.Noise(2.5, 2.4),
    )
    assert list(with_maps.maps) == ["dark_level", "gain", "bad_pixels"]
    parts = {"Analyser": objects["Calibration"].analysers[0], "Model_quality": with_maps.models[0]}
    errors = {"Camera_error", "Recording_error"}
    assert classes == {*objects, *parts, *errors, "Camera"}  # a camera is a connection
    for name in errors:
        error = WAYS_TO_COPY[way](getattr(vp, name)("run.raw: has changed"))
        assert type(error) is getattr(vp, name) and str(error) == "run.raw: has changed"
    for value in (*objects.values(), with_maps):
        copied = WAYS_TO_COPY[way](value)
        assert type(copied) is type(value) and content(copied) == content(value)
    for name, part in parts.items():
        with pytest.raises(TypeError, match=name):
            WAYS_TO_COPY[way](part)


@pytest.mark.parametrize(
    "state",
    [
        (16, 65535),
        (),
        (0, 65535, True),
        (17, 65535, True),
        (16, 0, True),
        (16, 65536, True),
        (16, 65535, 2),
        (12, 4095, True),
        ("16", 65535, True),
        (10**30, 65535, True),
    ],
)
def test_a_pickled_scale_that_is_none_is_refused(state):
    with pytest.raises(
        (TypeError, ValueError), match="the pickled scale is|bit_depth is|full_scale is"
    ):
        vp.Scale.__new__(vp.Scale).__setstate__(state)
