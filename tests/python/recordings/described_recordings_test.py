"""Recordings of a camera, which tell by themselves what they are."""

from __future__ import annotations

import json
import pickle

import dask
import numpy as np
import pytest
import zarr
from batch_support import frames_of, run

import veldrane_polarization as vp
from veldrane_polarization import _recordings

COUNT, HEIGHT, WIDTH = 3, 64, 96
LARGEST = (1 << 64) - 1
HOST_TIME = 1_790_000_000_123_456_789


@pytest.fixture(autouse=True)
def in_this_thread():
    with dask.config.set(scheduler="sync"):
        yield


@pytest.fixture
def frames():
    return frames_of(COUNT, HEIGHT, WIDTH)


@pytest.fixture
def file(tmp_path, frames):
    file = tmp_path / "run.raw"
    file.write_bytes(b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames))
    describe(file)
    return file


def describe(file, **changes):
    told = {
        "format": "veldrane-recording",
        "version": 1,
        "pixel_format": "Mono12p",
        "width": WIDTH,
        "height": HEIGHT,
        "frames": COUNT,
        "layout": "135,0,90,45",
        "frame_number": [65535, 1, 2],
        "camera_time_ns": [5, LARGEST, 9007199254740993],
        "host_time_ns": [HOST_TIME, HOST_TIME + 1, HOST_TIME + 2],
    }
    file.with_name(file.name + ".json").write_text(json.dumps(told | changes))


def test_open_recording_needs_no_argument(file, frames):
    run = vp.open_recording(file)
    expected = vp.process(frames, layout=3, bit_depth=12)
    np.testing.assert_array_equal(run.raw.values, frames)
    assert run.attrs["phase"] == 3 and run.attrs["bit_depth"] == 12
    np.testing.assert_array_equal(
        run.dolp.values, np.float32(expected.dolp) * np.float32(1 / 65535)
    )


def test_frames_keep_their_numbers_and_times(file):
    run = vp.open_recording(file)
    assert run.frame_number.values.tolist() == [65535, 1, 2]
    assert run.camera_time.values.tolist() == [5, LARGEST, 9007199254740993]
    assert run.host_time.dtype == "datetime64[ns]"
    assert run.host_time.values.astype("int64").tolist() == [HOST_TIME + each for each in range(3)]
    assert run.isel(time=1).frame_number == 1
    describe(file, frame_number=None)
    assert "frame_number" not in vp.open_recording(file).coords


def test_arguments_go_before_the_mosaic_and_never_against_the_samples(file):
    assert vp.open_recording(file, layout=0, bit_depth=13).attrs["phase"] == 0
    same = dict(pixel_format="Mono12p", height=HEIGHT, width=WIDTH)
    assert vp.open_recording(file, **same).sizes["time"] == COUNT
    with pytest.raises(vp.Recording_error, match=r"width is 48, but .*run\.raw\.json tells 96"):
        vp.open_recording(file, **same | {"width": 48})
    with pytest.raises(vp.Recording_error, match="header-bytes is 8, but"):
        vp.open_recording(file, header_bytes=8, **same)


def test_an_unknown_mosaic_is_asked_for(file):
    describe(file, layout=None)
    with pytest.raises(TypeError, match="layout is missing"):
        vp.open_recording(file)
    assert vp.open_recording(file, layout=1).attrs["phase"] == 1


def test_a_cut_recording_has_its_whole_frames(file):
    file.write_bytes(file.read_bytes()[:-1])
    with pytest.warns(UserWarning, match="is cut short within frame 2 of 3"):
        run = vp.open_recording(file)
    assert run.sizes["time"] == 2
    assert run.frame_number.values.tolist() == [65535, 1]


@pytest.mark.parametrize(
    "changes, problem",
    [
        ({"version": 2}, "version: is 2, of a newer program"),
        ({"width": 1e300}, "width: is no whole number"),
        ({"host_time_ns": [1, 2]}, "host_time_ns: is no list of 3 whole numbers"),
    ],
)
def test_a_damaged_description_is_one_line(file, changes, problem):
    describe(file, **changes)
    with pytest.raises(vp.Recording_error, match=rf"run\.raw\.json, {problem}"):
        vp.open_recording(file)


def test_a_layout_that_nobody_gave_is_not_to_be_left_out(file, tmp_path):
    other = vp.Calibration.ideal(0)
    told = (
        f"{file}.json tells the layout 135,0,90,45, but the calibration is for (0, 135, 45, 90); "
        "give a calibration of this part of the sensor, or {} if that of the calibration is right"
    )
    with pytest.raises(ValueError) as refused:
        vp.open_recording(file, calibration=other)
    assert str(refused.value) == told.format("layout")
    assert vp.open_recording(file, calibration=other, layout=0).attrs["phase"] == 0
    assert vp.open_recording(file, calibration=vp.Calibration.ideal(3)).attrs["phase"] == 3
    with pytest.raises(TypeError, match="calibration is a str"):
        vp.open_recording(file, calibration="sensor.json")
    saved = tmp_path / "sensor.json"
    other.save(saved)
    code, _, errors = run(file, tmp_path / "out.zarr", "--calibration", saved, "-q")
    assert code == 2
    assert told.format("--layout") in errors and errors.count("\n") == 1


def test_a_damaged_description_is_told_in_words_of_python(file):
    describe(file, version=2)
    with pytest.raises(
        vp.Recording_error, match="the samples with pixel_format, width and height$"
    ):
        vp.open_recording(file)


def test_a_task_carries_no_numbers(file):
    recording = _recordings.open_recording(file)
    assert recording.count == COUNT
    assert len(pickle.dumps(recording)) < 1000


def test_the_batch_command_needs_no_option(file, frames, tmp_path):
    code, _, errors = run(file, tmp_path / "out.zarr", "--workers", 1, "-q")
    assert code == 0, errors
    expected = vp.process(frames, layout=3, bit_depth=12)
    group = zarr.open_group(str(tmp_path / "out.zarr"), "r")
    np.testing.assert_array_equal(group["dolp"][:], expected.dolp)
