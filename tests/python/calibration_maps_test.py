"""Calibrations with maps of every pixel: files, pickles, parts, processing."""

from __future__ import annotations

import copy
import json
import pickle
import re

import numpy as np
import pytest

import veldrane_polarization as vp

from maps_support import HEIGHT, WIDTH, saved_calibration


@pytest.fixture(params=["gain", "pixel"])
def calibration(request, tmp_path):
    return vp.Calibration.load(saved_calibration(tmp_path, request.param))


NAMES = {
    "gain": ["dark_level", "gain", "bad_pixels"],
    "pixel": ["dark_level", "throughput", "diattenuation", "orientation", "bad_pixels"],
}


def frames(count=1, bit_depth=10):
    return np.random.default_rng(5).integers(
        100, 2**bit_depth, (count, HEIGHT, WIDTH), dtype=np.uint16
    )


def test_maps_are_read_only_arrays_by_name(calibration):
    maps = calibration.maps
    assert list(maps) == NAMES[calibration.model]
    for name, array in maps.items():
        assert not array.flags.writeable
        if name != "bad_pixels":
            assert array.shape == (HEIGHT, WIDTH) and array.dtype == np.float32
    assert maps["bad_pixels"].tolist() == [3, 70] and maps["bad_pixels"].dtype == np.uint32
    del calibration
    assert np.isfinite(maps["dark_level"]).all()  # the memory outlives the calibration
    assert vp.Calibration.ideal(0).maps == {} and vp.Calibration.ideal(0).model == "position"


def test_a_pair_of_files_and_a_pickle_hold_everything(calibration, tmp_path):
    calibration.save(tmp_path / "again.json")
    (array,) = tmp_path.glob("again.maps-*.npy")
    stacked = np.load(array)
    names = NAMES[calibration.model][:-1]
    assert np.array_equal(stacked, np.stack([calibration.maps[name] for name in names]))
    assert vp.Calibration.load(tmp_path / "again.json") == calibration
    raw = frames()[0]
    wanted = vp.process(raw, bit_depth=10, calibration=calibration).dolp
    for copied in (
        copy.copy(calibration),
        copy.deepcopy(calibration),
        pickle.loads(pickle.dumps(calibration)),
        pickle.loads(pickle.dumps(copy.copy(calibration.of_region(0, 0, HEIGHT, WIDTH)))),
    ):
        assert copied == calibration and list(copied.maps) == NAMES[calibration.model]
        assert np.array_equal(vp.process(raw, bit_depth=10, calibration=copied).dolp, wanted)
    assert calibration.noise == (2.5, 7.0) and calibration.bit_depth == 10
    assert json.loads(calibration.to_json())["maps"]["planes"] == names
    with pytest.raises(ValueError, match="maps: their numbers are in an array file"):
        vp.Calibration.from_json(calibration.to_json())


def test_damage_is_refused_with_the_array_file(calibration, tmp_path):
    calibration.save(tmp_path / "again.json")
    (array,) = tmp_path.glob("again.maps-*.npy")
    whole = array.read_bytes()
    for damaged, reason in (
        (whole[:-1], "the file has"),
        (whole[:200] + bytes([whole[200] ^ 1]) + whole[201:], "the hash of its bytes is"),
        (b"x" + whole[1:], "its header is not that of"),
    ):
        array.write_bytes(damaged)
        with pytest.raises(ValueError, match=f"^{re.escape(str(array))}: {reason}"):
            vp.Calibration.load(tmp_path / "again.json")
    array.rename(tmp_path / "other.npy")
    with pytest.raises(ValueError, match="put the array file of again.json beside it"):
        vp.Calibration.load(tmp_path / "again.json")


def test_a_region_has_its_part_of_the_maps(calibration):
    part = calibration.of_region(3, 5, 16, 32)
    for name in NAMES[calibration.model][:-1]:
        assert np.array_equal(part.maps[name], calibration.maps[name][3:19, 5:37])
    raw = frames()[0]
    whole = vp.process(raw, bit_depth=10, calibration=calibration, planes="all")
    cut = vp.process(raw[3:19, 5:37], bit_depth=10, calibration=part, planes="all")
    for name in cut:
        # The last row and column have other neighbours than in the whole frame.
        assert np.array_equal(cut[name][:-1, :-1], whole[name][3:18, 5:36]), name
    with pytest.raises(ValueError, match="give the width and height of the region"):
        calibration.of_region(0, 1)
    with pytest.raises(ValueError, match="give one inside that of the maps, 48 x 24"):
        calibration.of_region(10, 0, 16, 32)
    with pytest.raises(TypeError, match="height is 4 and width is None; give both"):
        calibration.of_region(10, 0, 4)


def test_maps_change_the_planes_and_frames_have_to_fit(calibration):
    raw = frames(3)
    result = vp.process(raw, bit_depth=10, calibration=calibration)
    plain = vp.process(raw, bit_depth=10, layout=calibration.phase, mode="calibrated")
    assert result.mode == "calibrated" and not np.array_equal(result.dolp, plain.dolp)
    for frame in range(3):
        one = vp.process(raw[frame], bit_depth=10, calibration=calibration)
        assert np.array_equal(one.dolp, result.dolp[frame])
    with pytest.raises(ValueError, match="the size of the frame is 40 x 24; give frames of the"):
        vp.process(raw[:, :, :40], bit_depth=10, calibration=calibration)
    with pytest.raises(ValueError, match="the bit depth is 12; give that of the calibration, 10"):
        vp.process(raw, bit_depth=12, calibration=calibration)


@pytest.mark.parametrize("with_maps", [False, True])
def test_angles_count_from_the_zero_direction(calibration, with_maps):
    raw = frames()[0]
    options = {"calibration": calibration} if with_maps else {"layout": 2, "mode": "calibrated"}
    before = vp.process(raw, bit_depth=10, **options)
    after = vp.process(raw, bit_depth=10, zero_direction=25.5, **options)
    turn = (after.angle("degrees") - before.angle("degrees") + 25.5 + 90) % 180 - 90
    assert np.abs(turn[before.degree() > 0.1]).max() < 0.35  # the polynomial arctangent
    with pytest.raises(ValueError, match="zero_direction is 25.5, which turns weights"):
        vp.process(raw, bit_depth=10, layout=2, zero_direction=25.5)
    with pytest.raises(ValueError, match="zero_direction is nan; give a finite number"):
        vp.process(raw, bit_depth=10, zero_direction=float("nan"), **options)


def test_workers_read_maps_once_and_tasks_do_not_carry_them(calibration, tmp_path):
    from veldrane_polarization._settings import Settings

    file = str(tmp_path / "again.json")
    calibration.save(file)
    settings = Settings(
        calibration.phase,
        vp.Scale(10),
        ("dolp",),
        "calibrated",
        calibration,
        False,
        calibration_file=file,
    )
    bytes_of_maps = sum(array.nbytes for array in calibration.maps.values())
    pickled = pickle.dumps(settings)
    assert len(pickled) < len(calibration.to_json()) + 2000 < bytes_of_maps + len(pickled)
    one, other = pickle.loads(pickled), pickle.loads(pickled)
    assert one.calibration is other.calibration and one.calibration == calibration
    raw = frames()[0]
    assert np.array_equal(one.process(raw)["dolp"], settings.process(raw)["dolp"])
    vp.Calibration.ideal(calibration.phase).save(file, overwrite=True)
    from veldrane_polarization import _settings

    _settings._loaded.cache_clear()
    with pytest.raises(ValueError, match="is another calibration by now"):
        pickle.loads(pickled)


def test_dask_blocks_share_the_maps(calibration):
    da = pytest.importorskip("dask.array")
    from veldrane_polarization import dask

    raw = frames(5)
    lazy = da.from_array(raw, chunks=(2, HEIGHT, WIDTH))
    planes = dask.process(lazy, bit_depth=10, calibration=calibration, zero_direction=10)
    wanted = vp.process(raw, bit_depth=10, calibration=calibration, zero_direction=10)
    assert np.array_equal(planes["dolp"].compute(scheduler="threads"), wanted.dolp)
    assert np.array_equal(planes["azimuth"].compute(scheduler="sync"), wanted.azimuth)
    graph = dict(planes["dolp"].__dask_graph__())
    holders = [key for key, value in graph.items() if getattr(value, "calibration", None)]
    assert len(holders) == 1
    part = dask.process(
        lazy[:, 2:20, 4:40], bit_depth=10, calibration=calibration.of_region(2, 4, 18, 36)
    )["dolp"]
    cut = vp.process(raw, bit_depth=10, calibration=calibration).dolp[:, 2:19, 4:39]
    assert np.array_equal(part.compute(scheduler="sync")[:, :-1, :-1], cut)
    assert part.name != planes["dolp"].name
    with pytest.raises(ValueError, match="40 x 24 pixels, but the calibration's maps 48 x 24"):
        dask.process(lazy[:, :, :40], bit_depth=10, calibration=calibration)
    with pytest.raises(ValueError, match="bit_depth is 12, but the calibration's maps are for 10"):
        dask.process(lazy, bit_depth=12, calibration=calibration)
