"""Recordings as lazy datasets: the planes of `process`, whatever is looked at."""

from __future__ import annotations

import json
import os
import pickle
import subprocess
import sys

import dask
import numpy as np
import pytest
import tifffile
import xarray
import zarr
from batch_support import frames_of, output, settings, store_all
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization._lazy import frame_blocks

COUNT, HEIGHT, WIDTH = 5, 64, 96
BARE = dict(pixel_format="Mono12p", height=HEIGHT, width=WIDTH)
PLANES = ("s0", "s1", "s2", "azimuth", "dolp", "normalized_stokes", "validity")


@pytest.fixture(autouse=True)
def in_this_thread():
    with dask.config.set(scheduler="sync"):
        yield


def written(folder, kind, frames):
    """What to open, with the arguments that its samples need."""
    if kind == "folder":
        file = folder / "frames"
        file.mkdir()
        for number, frame in enumerate(frames):
            Image.fromarray(frame).save(file / f"f{number}.png")
    elif kind == "zarr":
        file = folder / "run.zarr"
        zarr.save_array(str(file), frames, chunks=(2, 40, 50))
    elif kind == "npy":
        file = folder / "run.npy"
        np.save(file, frames)
    elif kind == "tiff":
        file = folder / "run.tif"
        tifffile.imwrite(file, frames, photometric="minisblack", compression="zlib")
    else:
        file = folder / "run.raw"
        file.write_bytes(b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames))
        return file, BARE
    return file, {"bit_depth": 12}


@pytest.fixture
def bare(tmp_path):
    frames = frames_of(COUNT, HEIGHT, WIDTH)
    return written(tmp_path, "bare", frames)[0], frames


def opened(file, **more):
    return vp.open_recording(file, **({"layout": 2, **BARE} | more))


@pytest.fixture
def calls(monkeypatch):
    """What is read and which planes are computed, in their order."""
    seen = []
    read, process = _recordings.Raw_recording.read, frame_blocks.Settings.process

    def reading(self, first, stop):
        seen.append((first, stop))
        return read(self, first, stop)

    def processing(self, raw, threads=1):
        assert threads == 1
        seen.append(self.planes)
        return process(self, raw, threads)

    monkeypatch.setattr(_recordings.Raw_recording, "read", reading)
    monkeypatch.setattr(frame_blocks.Settings, "process", processing)
    return seen


@pytest.mark.parametrize("kind", ("bare", "folder", "npy", "tiff", "zarr"))
@pytest.mark.parametrize("changes", ({}, {"mode": "calibrated", "signed": True}))
def test_planes_are_those_of_process(tmp_path, kind, changes):
    frames = frames_of(COUNT, HEIGHT, WIDTH)
    file, samples = written(tmp_path, kind, frames)
    options = {"layout": 2, "planes": PLANES, **changes}
    run = vp.open_recording(file, **options, **samples, mask_and_scale=False)
    expected = vp.process(frames, bit_depth=12, **options)
    assert run.raw.dtype == np.uint16 and np.array_equal(run.raw, frames)
    for name in PLANES:
        assert run[name].chunks[0] == ((2, 2, 1) if kind == "zarr" else (1,) * COUNT)
        assert run[name].dtype == expected[name].dtype, name
        assert run[name].values.tobytes() == expected[name].tobytes(), name


def test_parts_of_a_calibrated_sensor_with_maps(bare):
    file, frames = bare
    maps = vp.imperfect_pixels(HEIGHT, WIDTH, layout=2, bit_depth=12, seed=3)
    options = {"calibration": maps, "planes": "s0,uncertainty", "noise": vp.Noise(2.5, 7)}
    run = opened(file, layout=None, mask_and_scale=False, **options)
    expected = vp.process(frames, bit_depth=12, **options)
    np.testing.assert_array_equal(run.s0[3, 5:9, ::2], expected.s0[3, 5:9, ::2])
    np.testing.assert_array_equal(
        run.uncertainty.isel(deviation_of=1), expected.uncertainty[..., 1]
    )
    assert run.uncertainty.dims == ("time", "y", "x", "deviation_of")
    with pytest.raises(ValueError, match="the calibration's maps 96 x 32"):
        opened(file, layout=None, calibration=maps.of_region(0, 0, 32, 96))


def test_pictures_of_8_bits(tmp_path):
    frames = (frames_of(3, HEIGHT, WIDTH) >> 4).astype(np.uint8)
    file, _ = written(tmp_path, "folder", frames)
    run = vp.open_recording(file, layout=2, bit_depth=8, mask_and_scale=False)
    assert run.raw.dtype == np.uint8
    np.testing.assert_array_equal(run.dolp, vp.process(frames, layout=2, bit_depth=8).dolp)
    with pytest.raises(ValueError, match="bit_depth is 12, but .*frames has the dtype uint8"):
        vp.open_recording(file, layout=2, bit_depth=12)


@pytest.mark.parametrize("changes", ({}, {"mode": "calibrated", "signed": True}))
@pytest.mark.parametrize("scaled", (True, False))
def test_it_reads_like_stored_planes(tmp_path, bare, changes, scaled):
    file, _ = bare
    names = ("s0", "s1", "azimuth", "dolp", "normalized_stokes")
    recording = _recordings.open_recording(file, "Mono12p", HEIGHT, WIDTH)
    store_all(recording, output(tmp_path / "out.zarr"), settings(planes=names, **changes))
    stored = xarray.open_zarr(tmp_path / "out.zarr", mask_and_scale=scaled, consolidated=False)
    run = opened(file, planes=names, mask_and_scale=scaled, **changes)
    assert set(run.data_vars) == {"raw", *names}
    for name in names:
        assert run[name].dims == stored[name].dims
        told = {key: value for key, value in stored[name].attrs.items() if key != "_FillValue"}
        assert run[name].attrs == told
        np.testing.assert_allclose(run[name], stored[name], rtol=1e-6, atol=2e-5)
    assert run.attrs["recording"] == str(file) and run.attrs["bit_depth"] == 12
    assert run.time.attrs == {"long_name": "frame number"} and run.y.attrs["units"] == "pixel"


def test_planes_come_back_from_zarr_in_units(tmp_path, bare):
    file, _ = bare
    opened(file, mask_and_scale=False).to_zarr(tmp_path / "planes.zarr")
    back = xarray.open_zarr(tmp_path / "planes.zarr")
    np.testing.assert_allclose(back.azimuth, opened(file).azimuth, rtol=1e-6, atol=2e-5)


def test_what_is_not_looked_at_is_neither_read_nor_computed(bare, calls):
    run = opened(bare[0])
    assert all(names == ("s0", "azimuth", "dolp") for names in calls)  # of no frame
    calls.clear()
    run.dolp.isel(time=3).compute()
    assert calls == [(3, 4), ("dolp",)]
    calls.clear()
    run.raw.isel(time=slice(0, 5, 2)).compute()
    assert sorted(calls) == [(0, 1), (2, 3), (4, 5)]


def test_planes_of_a_frame_that_are_looked_at_together_come_from_one_task(bare, calls):
    run = opened(bare[0]).isel(time=[1])
    calls.clear()
    both = run[["dolp", "s0", "raw"]].mean("time").compute()
    assert calls == [(1, 2), ("dolp", "s0")]
    for name in both:
        np.testing.assert_array_equal(both[name], run[name][0].values.astype(both[name].dtype))
    whole = dask.compute(run[["dolp", "s0"]], optimize_graph=False)[0]  # each by itself
    assert whole.dolp.equals(run.dolp.compute()) and whole.s0.equals(run.s0.compute())


def test_several_frames_a_block(bare, calls):
    file, frames = bare
    run = opened(file, frames_per_block=2, mask_and_scale=False)
    calls.clear()
    expected = vp.process(frames, layout=2, bit_depth=12).dolp
    np.testing.assert_array_equal(run.dolp, expected)
    assert [call for call in calls if call != ("dolp",)] == [(0, 2), (2, 4), (4, 5)]
    mean = run.dolp[::2].mean("time")
    np.testing.assert_allclose(mean, expected[::2].mean(0), rtol=1e-12)


def test_nothing_is_made_for_each_frame_before_it_is_looked_at(bare, monkeypatch):
    def made(*_):
        raise AssertionError("tasks were made")

    for layer in (frame_blocks._Blocks, frame_blocks._Plane):
        for method in ("__iter__", "get_output_keys", "cull"):
            monkeypatch.setattr(layer, method, made)
    assert opened(bare[0]).sizes["time"] == COUNT


def test_threads_compute_side_by_side(bare):
    file, frames = bare
    run = opened(file, mask_and_scale=False)
    with dask.config.set(scheduler="threads", num_workers=4):
        planes = run[["s0", "dolp"]].compute()
    expected = vp.process(frames, layout=2, bit_depth=12)
    assert all(np.array_equal(planes[name], expected[name]) for name in ("s0", "dolp"))


def test_tasks_are_told_to_other_processes(tmp_path):
    frames = frames_of(3, HEIGHT, WIDTH)
    file, samples = written(tmp_path, "folder", frames)
    calibration = vp.imperfect_sensor(2, 1)
    run = vp.open_recording(file, calibration=calibration, **samples, mask_and_scale=False)
    sent, got = tmp_path / "sent", tmp_path / "got.npy"
    sent.write_bytes(pickle.dumps((run.dolp, *dask.optimize(run[["dolp", "s0"]]))))
    code = (
        "import pickle, sys, numpy; lazy, optimised = pickle.load(open(sys.argv[1], 'rb'));"
        "assert optimised.dolp.equals(lazy); numpy.save(sys.argv[2], lazy)"
    )
    subprocess.run([sys.executable, "-c", code, sent, got], check=True, cwd="/")
    expected = vp.process(frames, bit_depth=12, calibration=calibration).dolp
    np.testing.assert_array_equal(np.load(got), expected)


def test_names_follow_recording_and_options(bare):
    file, _ = bare
    name = opened(file).dolp.data.name
    assert name == opened(file).dolp.data.name
    others = [{"layout": 0}, {"mode": "calibrated"}, {"mask_and_scale": False}]
    names = {name, *(opened(file, **other).dolp.data.name for other in others)}
    os.utime(file, (1, 1))
    assert len(names | {opened(file).dolp.data.name}) == 5


def test_a_frame_that_fails_is_named_once_it_is_looked_at(tmp_path):
    frames = frames_of(4, HEIGHT, WIDTH)
    file, samples = written(tmp_path, "folder", frames)
    (file / "f1.png").write_bytes((file / "f1.png").read_bytes()[:500])
    run = vp.open_recording(file, layout=2, **samples, frames_per_block=3)
    with pytest.raises(vp.Recording_error) as failure:
        run.dolp.compute()
    assert str(failure.value).startswith(f"{file}/f1.png: damaged or cut short")
    (file / "f3.png").unlink()
    with pytest.raises(vp.Recording_error) as failure:
        run.raw.isel(time=3).compute()
    assert str(failure.value) == (
        f"{file}/f3.png: cannot be read (No such file or directory); put its file back, or make it "
        "readable"
    )


def test_a_file_that_changes_is_told(bare):
    file, _ = bare
    run = opened(file)
    with open(file, "ab") as stream:
        stream.write(b"more")
    with pytest.raises(vp.Recording_error) as failure:
        run.s0.isel(time=2).compute()
    size = file.stat().st_size
    assert str(failure.value) == (
        f"{file} frame 2: the file was changed from {size - 4} to {size} bytes since it was opened; "
        "open the recording again, once nothing writes to it any more"
    )
    file.unlink()
    with pytest.raises(vp.Recording_error, match=r"frame 0: cannot be read \(No such file"):
        run.s0.isel(time=0).compute()


@pytest.mark.parametrize(
    "changes, error, words",
    [
        ({"layout": None}, TypeError, "layout is missing"),
        ({"planes": "aolp"}, ValueError, "aolp"),
        ({"planes": "uncertainty"}, ValueError, "noise"),
        ({"pixel_format": "Mono12q"}, ValueError, "pixel_format is 'Mono12q'"),
        ({"pixel_format": None, "bit_depth": 12}, TypeError, "height is for bare samples; give"),
        ({"height": None}, vp.Recording_error, "needs a size; give height and width with pixel_f"),
        ({"height": 0}, vp.Recording_error, "^height is 0; give 1 to"),
        ({"height": 64.0}, TypeError, "height is 64.0"),
        ({"header_bytes": 1 << 40}, vp.Recording_error, "^header_bytes is 1099511627776, but"),
        ({"header_bytes": None}, TypeError, "^header_bytes is None; give"),
        ({"stride": 7}, vp.Recording_error, "^stride is 7; give at least 144"),
        ({"width": 8, "height": 3}, ValueError, "at least 2 rows and 16 columns"),
        ({"frames_per_block": 0}, ValueError, "frames_per_block is 0; give"),
        ({"mask_and_scale": 1}, TypeError, "mask_and_scale is 1; give True or False"),
    ],
)
def test_is_refused_at_once(bare, changes, error, words):
    with pytest.raises(error, match=words) as refusal:
        opened(bare[0], **changes)
    assert "\n" not in str(refusal.value) and "--" not in str(refusal.value)


def test_paths_that_hold_no_frames_are_refused(tmp_path, bare):
    with pytest.raises(vp.Recording_error, match="does not exist; give"):
        vp.open_recording(tmp_path / "none", layout=2, bit_depth=12)
    with pytest.raises(TypeError, match="bit_depth is missing; give"):
        vp.open_recording(tmp_path, layout=2)
    with pytest.raises(TypeError, match="path is 3; give the name of a file"):
        vp.open_recording(3, layout=2, bit_depth=12)
    with pytest.raises(
        vp.Recording_error, match="bare samples; give pixel_format, height and width"
    ):
        vp.open_recording(bare[0], layout=2, bit_depth=12)


def test_what_follows_damage_in_a_file_is_told(tmp_path):
    file, frames = tmp_path / "run.tif", frames_of(3)
    tifffile.imwrite(file, frames, photometric="minisblack")
    with tifffile.TiffFile(file) as tiff:
        last = tiff.pages[2].offset
    file.write_bytes(file.read_bytes()[: last + 3])
    with pytest.warns(UserWarning, match="damaged or cut short behind picture 2"):
        assert vp.open_recording(file, layout=2, bit_depth=12).sizes["time"] == 2


def test_xarray_is_asked_for_where_it_is_needed(bare):
    code = (
        "import sys, veldrane_polarization as vp, json\n"
        "assert not {'xarray', 'dask', 'zarr'} & set(sys.modules)\n"
        "sys.modules['xarray'] = None\n"
        "try:\n"
        "    vp.open_recording('x', layout=2, bit_depth=12)\n"
        "except ImportError as error:\n"
        "    print(json.dumps(str(error)))\n"
    )
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True)
    assert json.loads(done.stdout).endswith("; install it, in Debian python3-xarray")


def test_an_array_that_becomes_another_is_told(tmp_path):
    file, samples = written(tmp_path, "zarr", frames_of(4, HEIGHT, WIDTH))
    run = vp.open_recording(file, layout=2, **samples)
    zarr.save_array(str(file), np.zeros((4, HEIGHT, WIDTH), np.uint8), chunks=(2, 40, 50))
    with pytest.raises(vp.Recording_error, match="run.zarr is another array than at the start"):
        run.raw.isel(time=0).compute()


@pytest.mark.parametrize("kind", ("zarr", "folder"))
def test_names_are_new_where_files_may_be_replaced(tmp_path, kind):
    file, samples = written(tmp_path, kind, frames_of(2, HEIGHT, WIDTH))
    first, second = (vp.open_recording(file, layout=2, **samples) for _ in range(2))
    assert first.dolp.data.name != second.dolp.data.name


def test_a_recording_without_frames_is_told(tmp_path):
    file, samples = written(tmp_path, "zarr", np.zeros((0, HEIGHT, WIDTH), np.uint16))
    with pytest.raises(vp.Recording_error, match="run.zarr holds no frames; give"):
        vp.open_recording(file, layout=2, **samples)
