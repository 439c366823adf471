"""Calibrations, inspection, simulation, pixel formats."""

from __future__ import annotations

import os
import pickle

import numpy as np
import pytest
from hypothesis import given, strategies as st

import veldrane_polarization as vp


def series_of(sensor, step=15, **options):
    angles = list(range(0, 180, step))
    frames = [
        vp.simulate(
            64,
            96,
            layout=sensor.phase,
            bit_depth=14,
            sensor=sensor,
            seed=angle,
            polariser_angle=angle,
            **options,
        ).frames[0]
        for angle in angles
    ]
    return frames, angles


@pytest.mark.parametrize("phase", range(4))
def test_an_estimate_finds_the_sensor(phase, tmp_path):
    sensor = vp.imperfect_sensor(phase, seed=phase + 1)
    frames, angles = series_of(sensor)
    found = vp.calibrate(
        np.stack(frames), angles, layout=phase, bit_depth=14, sensor="bench 3", dark_levels=[0] * 4
    )
    assert found.phase == phase and found.frame_count == len(angles) and found.sensor == "bench 3"
    for one, true in zip(found.analysers, sensor.analysers):
        assert one.throughput == pytest.approx(true.throughput, abs=0.003)
        assert one.diattenuation == pytest.approx(true.diattenuation, abs=0.003)
        assert one.orientation == pytest.approx(true.orientation, abs=0.2) or (
            abs(one.orientation - true.orientation) > 179.8
        )
    assert found.flags == []
    found.save(tmp_path / "sensor.json")
    assert vp.Calibration.load(tmp_path / "sensor.json") == found
    assert vp.Calibration.load(str(tmp_path / "sensor.json")) == pickle.loads(pickle.dumps(found))
    assert found.matrices.shape == (4, 4, 4) and found.matrices.dtype == np.float32


def test_a_damaged_file_is_refused_with_its_name(tmp_path):
    file = tmp_path / "sensor.json"
    vp.Calibration.ideal(1).save(file)
    file.write_text(file.read_text()[:-40])
    with pytest.raises(ValueError, match="sensor.json"):
        vp.Calibration.load(file)


def test_a_file_that_is_there_is_replaced_only_when_told(tmp_path):
    file = tmp_path / "sensor.json"
    vp.Calibration.ideal(1).save(file)
    with pytest.raises(ValueError, match="sensor.json: exists already.*overwrite=True"):
        vp.Calibration.ideal(2).save(file)
    assert vp.Calibration.load(file).phase == 1
    with pytest.raises(TypeError, match="overwrite is 'yes'"):
        vp.Calibration.ideal(2).save(file, overwrite="yes")
    vp.Calibration.ideal(2).save(file, overwrite=True)
    assert vp.Calibration.load(file).phase == 2


def test_what_is_no_regular_file_is_neither_read_nor_replaced(tmp_path):
    # Nobody writes into the pipe: who opens it as usual waits for ever.
    os.mkfifo(tmp_path / "pipe")
    (tmp_path / "link").symlink_to("nowhere")
    for name, kind in (("pipe", "no regular file but a pipe"), ("link", "a link to nowhere")):
        with pytest.raises(ValueError, match=f"{name}: cannot be written: it is {kind}"):
            vp.Calibration.ideal(2).save(tmp_path / name, overwrite=True)
    with pytest.raises(ValueError, match="pipe: cannot be read: it is no regular file but a pipe"):
        vp.Calibration.load(tmp_path / "pipe")
    with pytest.raises(ValueError, match="cannot be read: it is a folder"):
        vp.Calibration.load(tmp_path)
    assert sorted(each.name for each in tmp_path.iterdir()) == ["link", "pipe"]
    assert (tmp_path / "pipe").is_fifo() and (tmp_path / "link").is_symlink()


@pytest.mark.parametrize("name, words", [("", "path is empty"), ("a\0b", "character of code 0")])
def test_names_that_name_nothing_are_refused(name, words, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for action in (vp.Calibration.load, vp.Calibration.ideal(2).save):
        with pytest.raises(ValueError, match=words):
            action(name)
    assert not list(tmp_path.iterdir())


def test_an_offset_and_a_wrong_frame_are_told():
    sensor = vp.imperfect_sensor(2, seed=3)
    frames, angles = series_of(sensor)
    turned = [angle + 5 - sensor.common_offset + 6 * (angle == 45) for angle in angles]
    found = vp.calibrate(frames, turned, layout=2, bit_depth=14, dark_levels=[0] * 4)
    assert found.common_offset == pytest.approx(5.5, abs=0.5)
    assert found.flags == ["large_residual", "orientation_offset"]
    ((name, angle, residual),) = found.outlying_frames
    assert (name, angle) == ("frames[3]", turned[3]) and 0.1 < residual < 0.2
    assert repr(found).startswith("<Calibration of the layout 90,45,135,0, 12 frames, residual ")
    assert f"offset {found.common_offset:+.2f} degrees, flags large_residual" in repr(found)
    assert pickle.loads(pickle.dumps(found)).outlying_frames == found.outlying_frames
    ideal = vp.Calibration.ideal(2)
    assert (ideal.common_offset, ideal.outlying_frames, ideal.flags) == (0, [], [])


def test_weights_that_are_not_those_of_the_analysers_are_refused(tmp_path):
    file = tmp_path / "sensor.json"
    vp.Calibration.ideal(1).save(file)
    text = file.read_text()
    for old, new in (("-1.0", "-1.1"), ("90.0", "92.0"), ("45,90,0,135", "90,45,135,0")):
        file.write_text(text.replace(old, new, 1))
        with pytest.raises(ValueError, match="sensor.json, (matrices|mosaic)") as error:
            vp.Calibration.load(file)
        assert str(error.value).endswith("restore the file, or calibrate again")


def test_regions_move_the_layout():
    for phase in range(4):
        ideal = vp.Calibration.ideal(phase)
        assert ideal.of_region(2, 4) == ideal
        assert ideal.of_region(1, 0).layout == ideal.layout[2:] + ideal.layout[:2]


def test_inspection_tells_phase_depth_and_shift():
    for phase in range(4):
        frame = vp.simulate(64, 64, layout=phase, bit_depth=12, polariser_angle=45).frames[0]
        assert vp.inspect(frame, polariser_angle=45).phase == phase
        found = vp.inspect(frame << 4)
        assert (found.shift, found.bit_depth, found.phase) == (4, 12, None)
        assert len(found.position_means) == 4 and found.mosaic in ("possible", "undecided")


def test_simulated_frames_differ_by_noise_alone():
    made = vp.simulate(40, 50, layout=1, frames=3, seed=5)
    again = vp.simulate(40, 50, layout=1, frames=3, seed=5)
    assert np.array_equal(made.frames, again.frames)
    assert not np.array_equal(made.frames[0], made.frames[1])
    quiet = vp.simulate(40, 50, layout=1, frames=2, noise=False)
    assert np.array_equal(quiet.frames[0], quiet.frames[1])


def test_frames_of_a_number_are_the_same_wherever_they_stand():
    made = vp.simulate(40, 50, layout=1, frames=5)
    later = vp.simulate(40, 50, layout=1, frames=2, first_frame=3)
    assert np.array_equal(later.frames, made.frames[3:])


def test_flat_frames_show_pixels_and_noise():
    camera = vp.imperfect_pixels(200, 300, layout=3, dark_level=50, hot_pixels=0.01)
    same = {"layout": 3, "sensor": camera}
    dark = vp.simulate(200, 300, flat_level=0, noise=False, **same).frames[0]
    assert 0.005 < np.mean(dark == 4095) < 0.015
    assert abs(np.median(dark) - 50) <= 1
    flat = vp.simulate(200, 300, flat_level=0.5, noise=False, **same)
    assert np.all(flat.s0 == 4095) and not flat.degree.any()
    good = dark < 4095
    gains = (flat.frames[0].astype(float) - dark)[good] / (0.5 * 4095)
    assert abs(gains.mean() - 1) < 0.002 and abs(gains.std() - 0.02) < 0.001
    pair = vp.simulate(
        200, 300, flat_level=0.5, frames=2, electrons_per_count=0.5, read_noise=0, **same
    ).frames.astype(float)
    variance = np.mean((pair[0] - pair[1])[good] ** 2) / 2
    assert abs(variance / (0.5 * 4095 / 0.5) - 1) < 0.03


@given(
    st.sampled_from(vp.PIXEL_FORMATS),
    st.integers(1, 5),
    st.integers(1, 9),
    st.integers(1, 3),
    st.integers(0, 3),
    st.integers(0, 2**32),
)
def test_unpacking_is_the_way_back_of_packing(pixel_format, height, width, count, skipped, seed):
    top = 2 ** vp.bit_depth_of(pixel_format)
    samples = np.random.default_rng(seed).integers(0, top, (count, height, width)).astype(np.uint16)
    packed = [vp.pack(frame, pixel_format) for frame in samples]
    data = bytes(skipped) + b"".join(frame.tobytes() for frame in packed)
    for given_as in (data, bytearray(data), memoryview(data), np.frombuffer(data, np.uint8)):
        result = vp.unpack(given_as, pixel_format, height, width, offset=skipped)
        assert result.dtype == np.uint16 and np.array_equal(result, samples)
    stride = packed[0].size // height + 3
    rows = b"".join(
        bytes(row).ljust(stride, b"\xaa") for frame in packed for row in np.split(frame, height)
    )
    for end in (len(rows), len(rows) - 3):
        result = vp.unpack(rows[:end], pixel_format, height, width, stride=stride)
        assert np.array_equal(result, samples)
    with pytest.raises(ValueError, match="bytes behind the offset"):
        vp.unpack(data, pixel_format, height, width, frames=count + 1, offset=skipped)
    if packed[0].size > 1:
        with pytest.raises(ValueError, match="bytes behind the offset"):
            vp.unpack(data + b"1", pixel_format, height, width, offset=skipped)


def test_twelve_bits_as_the_convention_draws_them():
    assert vp.pack(np.array([[0xABC, 0x123]], np.uint16), "Mono12p").tobytes() == b"\xbc\x3a\x12"
    assert (
        vp.pack(np.array([[0xABC, 0x123]], np.uint16), "Mono12Packed").tobytes() == b"\xab\x3c\x12"
    )
