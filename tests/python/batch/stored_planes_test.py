"""What a reader of OUT finds: the values xarray makes of the stored numbers, and their attributes."""

from __future__ import annotations

import json
import os
import subprocess

import numpy as np
import pytest
import tifffile
import xarray
import zarr
from batch_support import assert_equal, frames_of, output, settings, store_all

import veldrane_polarization as vp
from veldrane_polarization import _recordings, datasets


def stored(folder, frames, **changes):
    """A group of these frames' planes: as numbers, as values, its attributes."""
    zarr.save_array(str(folder / "in.zarr"), frames, chunks=(1, *frames.shape[1:]))
    recording = _recordings.open_recording(folder / "in.zarr")
    store_all(recording, output(folder / "out.zarr"), settings(**changes))
    group = zarr.open_group(str(folder / "out.zarr"), mode="r")
    return group, xarray.open_zarr(folder / "out.zarr", consolidated=False)


def frames_with_zeros():
    frames = frames_of(4, 32, 48)
    frames[0] = 0
    frames[1, :16] = 100
    # Light a little beyond 90 degrees, which is stored as the azimuth 0.
    frames[2, 0::2, 0::2], frames[2, 1::2, 1::2] = 2000, 0
    frames[2, 0::2, 1::2], frames[2, 1::2, 0::2] = 1000, 1001
    return frames


# Of each plane: scale, offset and units of its values, by bit depth 12 and the full scale 1000.
MEANINGS = {
    "s0": (2 * 4095 / 1000, 0, "count", "total intensity"),
    "s1": (2 * 4095 / 1000, 0, "count", "linear Stokes quantity S1, I(0) - I(90)"),
    "s2": (2 * 4095 / 1000, 0, "count", "linear Stokes quantity S2, I(45) - I(135)"),
    "azimuth": (0.18, -90, "degree", "angle of linear polarisation"),
    "dolp": (0.001, 0, "1", "degree of linear polarisation"),
    "normalized_stokes": (1, 0, "1", "S1 / S0 and S2 / S0"),
}


@pytest.mark.parametrize("signed", (False, True))
def test_values_are_scale_times_number_plus_offset_zeros_included(tmp_path, signed):
    group, data = stored(
        tmp_path,
        frames_with_zeros(),
        planes=vp.PLANES,
        full_scale=1000,
        signed=signed,
        mode="calibrated",
    )
    for name, (scale, offset, units, long_name) in MEANINGS.items():
        numbers = group[name][:]
        attributes = dict(group[name].attrs)
        assert attributes["units"] == data[name].attrs["units"] == units
        assert attributes["long_name"] == long_name
        if name == "normalized_stokes":
            assert "scale_factor" not in attributes and np.isnan(group[name].fill_value)
            np.testing.assert_array_equal(data[name], numbers)
            continue
        assert (numbers == 0).any() and group[name].fill_value is None
        assert attributes["scale_factor"] == pytest.approx(scale, rel=1e-12)
        assert attributes["add_offset"] == offset and attributes["valid_max"] == 1000
        np.testing.assert_allclose(data[name], numbers * scale + offset, rtol=1e-6, atol=1e-4)
        has_sign = signed and name in ("s1", "s2")
        assert attributes.get("valid_min") == (-1000 if has_sign else None)
        assert (numbers.min() < 0) == has_sign
        assert ("positive half" in attributes.get("comment", "")) == (
            not signed and name in ("s1", "s2")
        )
    assert "modulo 180" in group["azimuth"].attrs["comment"]
    assert (data.complete == 1).all()


def test_values_are_those_of_a_dataset(tmp_path):
    frames = frames_with_zeros()
    _, data = stored(tmp_path, frames, planes=("s0", "s1", "azimuth", "dolp"), signed=True)
    expected = datasets.to_dataset(
        vp.process(frames, layout=2, bit_depth=12, planes="s0,s1,azimuth,dolp", signed=True),
        unit="degrees",
    )
    for name in ("s0", "s1"):
        np.testing.assert_allclose(data[name], expected[name], rtol=1e-6)
    is_known = np.isfinite(np.asarray(expected.angle))
    assert 0.5 < is_known.mean() < 1
    np.testing.assert_allclose(
        (np.asarray(data.azimuth) % 180)[is_known], np.asarray(expected.angle)[is_known], atol=1e-3
    )
    is_lit = np.isfinite(np.asarray(expected.degree))
    np.testing.assert_allclose(
        np.asarray(data.dolp)[is_lit], np.asarray(expected.degree)[is_lit], atol=1e-6
    )


@pytest.mark.parametrize(
    "mode, shape, dimensions",
    [
        ("fast", (32, 48), ("time", "packed_row", "packed_column", "component")),
        ("fast", (2, 48), ("time", "y", "x", "component")),
        ("calibrated", (32, 48), ("time", "y", "x", "component")),
    ],
)
def test_packed_numbers_claim_no_pixels(tmp_path, mode, shape, dimensions):
    group, data = stored(
        tmp_path, frames_of(2, *shape), planes=("s0", "normalized_stokes"), mode=mode
    )
    assert data.normalized_stokes.dims == dimensions and data.s0.dims == ("time", "y", "x")
    placement = group["normalized_stokes"].attrs["placement"]
    assert placement.startswith("as the processor packs them") == (mode == "fast")
    assert group["s0"].attrs["placement"] == "row by row, each number at its pixel"


# Of a sidecar's fields, those of its file; the others are about the numbers.
OF_A_FILE = {
    "file",
    "width",
    "height",
    "channels",
    "sample_type",
    "byte_order",
    "source",
    "software",
}
OF_ALL_PLANES = {
    "zero_direction",
    "zero_direction_degrees",
    "sense",
    "bit_depth",
    "mode",
    "calibration",
}


def sidecars(folder, frame, *more):
    """What the program writes beside the planes of this frame, by the name of the plane."""
    tifffile.imwrite(folder / "f.tif", frame)
    subprocess.run(
        [
            os.environ["VELDRANE_POLARIZE"],
            "process",
            folder / "f.tif",
            "--output",
            folder / "planes",
            "--layout",
            "90,45,135,0",
            "--bit-depth",
            "12",
            "--full-scale",
            "1000",
            "--quiet",
            *more,
        ],
        check=True,
    )
    fields = [json.loads(file.read_text()) for file in (folder / "planes").glob("*.json")]
    return {each["plane"]: each for each in fields}


@pytest.mark.skipif("VELDRANE_POLARIZE" not in os.environ, reason="the program is not built")
def test_attributes_are_those_of_a_sidecar(tmp_path, capsys):
    """Both ask the same source; here it shows that neither puts words of its own in between."""
    frames = frames_of(1, 33, 48)  # of mixed parity: its last pixel has a field of its own
    group, _ = stored(tmp_path, frames, planes=vp.PLANES, full_scale=1000, mode="fast")
    written = sidecars(tmp_path, frames[0], "--mode", "fast")
    assert set(written) == set(vp.PLANES)
    of_group = dict(group.attrs)
    compared = 0
    for name, fields in written.items():
        attributes = dict(group[name].attrs)
        assert fields.pop("mosaic") == {"phase": of_group["phase"], "layout": of_group["layout"]}
        for key in set(fields) - OF_A_FILE:
            has = (of_group if key in OF_ALL_PLANES else attributes).get(key)
            wanted = fields[key]
            if isinstance(wanted, float):
                assert has == pytest.approx(wanted, rel=1e-12), (name, key)
            else:
                assert has == wanted, (name, key)
            compared += 1
    with capsys.disabled():
        print(f"\n  {compared} fields of a sidecar compared")
    assert compared == 6 * 18


def test_zero_direction_and_noise_are_told_and_bind_an_out(tmp_path):
    chosen = dict(
        mode="calibrated",
        planes=("azimuth", "normalized_stokes", "uncertainty"),
        zero_direction=30.5,
    )
    noise = vp.Noise(2.5, 7.0)
    frames = frames_of(2)
    group, data = stored(tmp_path, frames, **chosen, noise=noise)
    assert_equal(tmp_path / "out.zarr", frames, mode="calibrated", zero_direction=30.5, noise=noise)
    attributes = dict(group.attrs)
    assert attributes["zero_direction"] == "30.5 degrees counter-clockwise from the rows"
    assert attributes["zero_direction_degrees"] == 30.5
    assert attributes["electrons_per_count"] == 2.5 and attributes["read_noise_electrons"] == 7
    assert "0 at 30.5 degrees counter-clockwise" in group["azimuth"].attrs["comment"]
    # Dimensions of a name have one size in all arrays.
    assert data.normalized_stokes.dims[3:] == ("component",)
    assert data.uncertainty.dims[3:] == ("deviation_of",)
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    for changes, words in (
        ({"noise": vp.Noise(2.5, 8.0)}, "read_noise_electrons 7.0, not 8.0"),
        ({"noise": noise, "zero_direction": 31.0}, "zero_direction '30.5 degrees"),
    ):
        with pytest.raises(ValueError, match=f"was made with {words}"):
            store_all(recording, output(tmp_path / "out.zarr"), settings(**(chosen | changes)))


@pytest.mark.parametrize(
    "mode, words", [("fast", "of an even row and column"), ("calibrated", "mended")]
)
def test_the_final_pixel_of_mixed_parity_is_told(tmp_path, mode, words):
    group, _ = stored(tmp_path, frames_of(1, 33, 48), mode=mode)
    assert words in group["s0"].attrs["final_pixel"]


def test_the_group_tells_recording_calibration_and_software(tmp_path):
    calibration = vp.imperfect_sensor(2, seed=3)
    group, data = stored(
        tmp_path,
        frames_of(3),
        calibration=calibration,
        mode="calibrated",
        calibration_file="/somewhere/c.json",
    )
    attributes = dict(group.attrs)
    assert attributes["source"] == {
        "kind": "zarr array",
        "file": str(tmp_path / "in.zarr"),
        "frames": 3,
        "frame_shape": [64, 96],
        "dtype": "uint16",
        "chunks": [1, 64, 96],
        "shift": 0,
        "dark_frame_subtracted": False,
    }
    told = attributes["calibration"]
    assert told["file"] == "/somewhere/c.json" and told["sensor"] == calibration.sensor
    assert told["time"] == calibration.time and told["rms_residual"] == calibration.rms_residual
    assert vp.Calibration.from_json(told["text"]).to_json() == calibration.to_json()
    software = attributes["software"]
    assert software.pop("processor").startswith(f"Version = {vp.__version__}_")
    assert software == {"name": "veldrane_polarization", "version": vp.__version__}
    assert attributes["layout"] == [90, 45, 135, 0] and attributes["phase"] == 2
    assert attributes["bit_depth"] == 12 and attributes["mode"] == "calibrated"
    assert attributes["state"] == "ready" and data.attrs["planes"] == ["s0", "dolp"]
    assert "rows" in attributes["zero_direction"] and "counter-clockwise" in attributes["sense"]
    json.dumps(attributes, allow_nan=False)


def test_without_a_calibration_the_analysers_are_ideal(tmp_path):
    group, _ = stored(tmp_path, frames_of(1))
    assert group.attrs["calibration"] == "ideal analysers"
