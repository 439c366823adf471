"""Calibrations of every pixel, and the noise: frames one by one, against the sensor simulated."""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path
from tempfile import TemporaryDirectory

import numpy as np
import pytest

import veldrane_polarization as vp

ANGLES = list(range(0, 180, 20))
SIZE = (48, 64)
SENSOR = vp.imperfect_pixels(*SIZE, layout=1)
OPTIONS = {"layout": 1, "bit_depth": 12}
CHOICES = OPTIONS | {"model": "pixel"}


def maps_of(calibration):
    """What its files hold: planes by their names, and the bad pixels."""
    with TemporaryDirectory() as folder:
        file = Path(folder, "sensor.json")
        calibration.save(file)
        about = json.loads(file.read_text())["maps"]
        (array,) = Path(folder).glob("*.npy")
        return dict(zip(about["planes"], np.load(array))) | {"bad": about["bad_pixels"]}


def simulated(**more):
    return vp.simulate(*SIZE, layout=1, sensor=SENSOR, **more).frames


DARK = simulated(flat_level=0, frames=6)
SERIES = [simulated(polariser_angle=angle, seed=angle)[0] for angle in ANGLES]
FLATS = np.concatenate([simulated(flat_level=n / 10, frames=2, seed=n) for n in (1, 3, 5, 8)])


def test_each_model_buys_something_and_pixels_are_found():
    residuals = np.zeros(SIZE, np.float32)
    found = vp.calibrate(iter(SERIES), ANGLES, dark=iter(DARK), residuals=residuals, **CHOICES)
    assert [each.model for each in found.models] == ["position", "gain", "pixel"]
    for worse, better in zip(found.models, found.models[1:]):
        assert better.rms_degree_error < worse.rms_degree_error
        assert better.rms_angle_error_degrees < worse.rms_angle_error_degrees
        assert better.rms_sample_residual < worse.rms_sample_residual
    assert found.held_out_frame == "frames[4]" and "Model_quality pixel" in repr(found.models[2])
    assert 0 < residuals.mean() < 0.03
    maps, true = maps_of(found), maps_of(SENSOR)
    good = np.setdiff1d(np.arange(residuals.size), maps["bad"])
    for name, most in (("diattenuation", 0.01), ("throughput", 0.01), ("dark_level", 1)):
        apart = maps[name].ravel()[good] - true[name].ravel()[good]
        assert np.sqrt(np.mean(apart**2)) < most, name


def test_arrays_and_iterators_give_the_same():
    one = vp.calibrate(np.stack(SERIES), ANGLES, dark=DARK, **CHOICES)
    other = vp.calibrate(iter(SERIES), iter(ANGLES), dark=list(DARK), **CHOICES)
    theirs = maps_of(other)
    for name, numbers in maps_of(one).items():
        assert np.array_equal(numbers, theirs[name])
    assert one.models[0].rms_degree_error == other.models[0].rms_degree_error


def test_what_is_known_is_taken_over():
    bad = np.zeros(SIZE, bool)
    bad[3, 5] = bad[47, 63] = True
    noise = vp.noise_from_flats(FLATS, bit_depth=12, dark=DARK)
    assert noise.electrons_per_count == pytest.approx(10500 / 4095, rel=0.1)
    assert noise == vp.noise_from_flats(iter(FLATS), bit_depth=12, dark=iter(DARK))
    found = vp.calibrate(
        SERIES, ANGLES, dark=DARK, bad_pixels=bad, hold_out=2, noise=noise, **CHOICES
    )
    assert {3 * 64 + 5, 47 * 64 + 63} <= set(maps_of(found)["bad"])
    assert tuple(json.loads(found.to_json())["noise"].values()) == noise
    assert found.held_out_frame == "frames[2]"
    none = vp.calibrate(SERIES, ANGLES, dark=DARK, hold_out=None, **CHOICES)
    assert none.models == () and none.held_out_frame == ""


def test_dark_frames_do_for_positions_too():
    levels = [DARK[:, row::2, column::2].mean() for row in (0, 1) for column in (0, 1)]
    found = vp.calibrate(SERIES, ANGLES, dark=DARK, noise=vp.Noise(2.5, 2.4), **OPTIONS)
    for analyser, level in zip(found.analysers, levels):
        assert analyser.dark_level == pytest.approx(level, abs=0.1)
    assert tuple(json.loads(found.to_json())["noise"].values()) == (2.5, 2.4)


def calibrate(frames=SERIES, angles=ANGLES, **more):
    return lambda: vp.calibrate(frames, angles, **(CHOICES | {"dark": DARK} | more))


REFUSED = {
    "another model": (calibrate(model="pixels"), ValueError, "'position', 'gain', 'pixel'"),
    "too few angles": (calibrate(SERIES[:2], ANGLES[:2]), ValueError, "polariser angles is 2"),
    "no frame": (calibrate([], []), ValueError, "frames holds no frame"),
    "a frame too many": (
        calibrate(iter(SERIES), ANGLES[:4]),
        ValueError,
        "4 numbers; give one for each frame, of",
    ),
    "an angle too many": (calibrate(iter(SERIES[:4])), ValueError, "each of the 4 frames"),
    "a frame of another size": (
        calibrate([*SERIES[:8], SERIES[8][2:]]),
        ValueError,
        r"size of frames\[8\] is 64 x 46",
    ),
    "a saturated frame": (
        calibrate([*SERIES[:8], np.full(SIZE, 4095, np.uint16)]),
        ValueError,
        r"saturated samples of frames\[8\]",
    ),
    "dark frames of another size": (calibrate(dark=DARK[:, 2:]), ValueError, "dark has frames"),
    "dark frames of two sizes": (
        calibrate(dark=[DARK[0], DARK[0, 2:]]),
        ValueError,
        "size of dark frame 1",
    ),
    "no dark frame": (calibrate(dark=[]), ValueError, "number of dark frames is 0"),
    "dark that is none": (calibrate(dark=16), TypeError, "dark is a int"),
    "dark levels of positions": (
        calibrate(dark=None, dark_levels=[16] * 4),
        ValueError,
        "dark_levels is for the model 'position'",
    ),
    "both": (calibrate(model="position", dark_levels=[1] * 4), ValueError, "give one of them"),
    "bad pixels of positions": (
        calibrate(model="position", bad_pixels=np.zeros(SIZE, bool)),
        ValueError,
        "bad_pixels is for the model 'gain' and 'pixel'",
    ),
    "a list of bad pixels": (calibrate(bad_pixels=[3]), TypeError, "bad_pixels is a list"),
    "bad pixels of another size": (
        calibrate(bad_pixels=np.zeros((2, 2), bool)),
        ValueError,
        r"bad_pixels has the shape \(2, 2\)",
    ),
    "residuals of another type": (
        calibrate(residuals=np.zeros(SIZE)),
        TypeError,
        "residuals is a float64",
    ),
    "no angle": (
        calibrate([], [], hold_out=3),
        ValueError,
        "angles is empty; give one for each frame",
    ),
    "no such frame": (calibrate(hold_out=9), ValueError, "hold_out is 9"),
    "a frame that is needed": (
        calibrate(SERIES[::3], ANGLES[::3], hold_out=1),
        ValueError,
        r"frame to hold out is frames\[1\]",
    ),
    "a word": (calibrate(hold_out="last"), ValueError, "'middle'"),
    "noise that is none": (calibrate(noise=(0, 1)), TypeError, r"noise is \(0, 1\)"),
    "an odd flat frame": (
        lambda: vp.noise_from_flats(FLATS[:7], bit_depth=12, dark=DARK),
        ValueError,
        "flats holds 7 frames; give pairs",
    ),
    "flat frames of two lights": (
        lambda: vp.noise_from_flats(FLATS[1:7], bit_depth=12, dark=DARK),
        ValueError,
        r"two means of flats\[0\] and flats\[1\]",
    ),
    "one level": (
        lambda: vp.noise_from_flats(FLATS[:2], bit_depth=12, dark=DARK),
        ValueError,
        "number of levels is 1",
    ),
    "flats without dark": (
        lambda: vp.noise_from_flats(FLATS, bit_depth=12),
        ValueError,
        "dark is None; give dark=",
    ),
    "flats that are none": (
        lambda: vp.noise_from_flats(None, bit_depth=12, dark=DARK),
        TypeError,
        "flats is a NoneType",
    ),
}


@pytest.mark.parametrize("case", REFUSED)
def test_what_cannot_be_is_refused(case):
    call, kind, words = REFUSED[case]
    with pytest.raises(kind, match=words) as error:
        call()
    assert "\n" not in str(error.value)


def test_the_program_finds_the_same(tmp_path):
    program = os.environ.get("VELDRANE_POLARIZE")
    if program is None:
        pytest.skip("VELDRANE_POLARIZE does not name the program")
    size = ["--height", str(SIZE[0]), "--width", str(SIZE[1])]
    raw = ["--pixel-format", "Mono16", *size, "--bit-depth", "12"]
    np.stack(SERIES).tofile(tmp_path / "series.raw")
    DARK.tofile(tmp_path / "dark.raw")
    FLATS.tofile(tmp_path / "flats.raw")
    rows = [f"series.raw,{number},{angle}" for number, angle in enumerate(ANGLES)]
    (tmp_path / "angles.csv").write_text("\n".join(["file,frame,angle", *rows]))
    subprocess.run(
        [program, "calibrate", "series.raw", "-o", "sensor.json", "--phase", "1", *raw]
        + ["--angles", "angles.csv", "--model", "pixel", "--dark", "dark.raw"]
        + ["--noise", "flats.raw", "-q"],
        cwd=tmp_path,
        check=True,
    )
    theirs = vp.Calibration.load(tmp_path / "sensor.json")
    noise = vp.noise_from_flats(FLATS, bit_depth=12, dark=DARK)
    ours = vp.calibrate(SERIES, ANGLES, dark=DARK, noise=noise, **CHOICES)
    maps = maps_of(theirs)
    for name, numbers in maps_of(ours).items():
        assert np.array_equal(numbers, maps[name]), name
    assert str(ours.analysers) == str(theirs.analysers)
    assert str(ours.models) == str(theirs.models)
    assert json.loads(ours.to_json())["noise"] == json.loads(theirs.to_json())["noise"]
