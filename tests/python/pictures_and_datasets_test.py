"""Colours and their legend; datasets with units and layout."""

from __future__ import annotations

import matplotlib.pyplot as plt
import numpy as np
import pytest

import veldrane_polarization as vp
from veldrane_polarization import colours
from veldrane_polarization.datasets import to_dataset


def lightness(rgb):
    """OKLab's L of sRGB bytes, by the inverse of the encoding."""
    c = np.asarray(rgb, float) / 255
    linear = np.where(c <= 0.04045, c / 12.92, ((c + 0.055) / 1.055) ** 2.4)
    cones = (
        linear
        @ np.array(
            [
                [0.4122214708, 0.5363325363, 0.0514459929],
                [0.2119034982, 0.6806995451, 0.1073969566],
                [0.0883024619, 0.2817188376, 0.6299787005],
            ]
        ).T
    )
    return np.cbrt(cones) @ [0.2104542553, 0.7936177850, -0.0040720468]


def test_all_hues_look_equally_bright_and_brightness_tells_the_degree():
    angle = np.linspace(0, np.pi, 360, endpoint=False)
    for degree in (0.1, 0.5, 1.0):
        light = lightness(colours.angle_degree_picture(angle, np.full(360, degree)))
        assert np.ptp(light) < 0.012
        assert light.mean() == pytest.approx(0.75 * np.sqrt(degree), abs=0.01)


def test_hues_close_the_circle_and_differ_within():
    ends = colours.angle_degree_picture(np.array([0, np.pi - 1e-9, np.pi]), np.ones(3)).astype(int)
    assert np.abs(np.diff(ends, axis=0)).max() <= 2
    four = colours.angle_degree_picture(np.radians([0, 45, 90, 135]), np.ones(4)).astype(int)
    apart = np.abs(four[:, None] - four[None]).sum(-1)
    assert apart[~np.eye(4, dtype=bool)].min() > 100
    table = colours.angle_colours()(np.linspace(0, 1, 720, endpoint=False))[:, :3]
    wanted = colours.angle_degree_picture(np.arange(720) / 720 * np.pi, np.ones(720))
    assert np.abs(255 * table - wanted).max() <= 0.5001


def test_the_degree_has_the_colours_of_a_published_palette():
    import matplotlib

    own, published = colours.degree_colours(), matplotlib.colormaps["inferno"]
    assert own.N == 256 and own.name == "inferno"
    np.testing.assert_array_equal(own(np.arange(256)), published(np.arange(256)))


def test_nothing_polarised_is_black():
    black = colours.angle_degree_picture(np.array([1.0, np.nan, 2.0]), np.array([0, 1, np.nan]))
    assert black.max() == 0
    dark = vp.process(np.zeros((4, 20), np.uint16), layout=0, bit_depth=12)
    assert colours.picture(dark).max() == 0 and colours.picture(dark).shape == (4, 20, 3)
    with pytest.raises(ValueError, match="one shape"):
        colours.angle_degree_picture(np.zeros(3), np.zeros(4))


def test_the_legend_shows_each_colour_in_its_direction():
    figure, axes = plt.subplots(figsize=(4, 4), dpi=100)
    axes.set_axis_off()
    axes.set_position([0, 0, 1, 1])
    wheel = colours.add_angle_legend(axes, size=0.96, label=False)
    figure.canvas.draw()
    shown = np.asarray(figure.canvas.buffer_rgba())[..., :3].astype(int)
    for turn in range(10, 360, 25):
        x, y = wheel.transData.transform(
            [0.8 * np.cos(np.radians(turn)), 0.8 * np.sin(np.radians(turn))]
        )
        expected = colours.angle_degree_picture(np.radians([turn % 180]), np.array([0.8]))[
            0
        ].astype(int)
        assert np.abs(shown[shown.shape[0] - 1 - int(y), int(x)] - expected).max() < 12, turn
    plt.close(figure)
    with pytest.raises(ValueError, match="size is 2"):
        colours.add_angle_legend(axes, size=2)


def test_a_dataset_has_units_names_dimensions_and_layout():
    made = vp.simulate(32, 48, layout=1, frames=3)
    result = vp.process(
        made.frames, layout=1, bit_depth=12, planes="all", signed=True, mode="calibrated"
    )
    data = to_dataset(result, unit="degrees", times=np.array([0, 1, 2], "datetime64[s]"))
    assert set(data.data_vars) == {"s0", "s1", "s2", "angle", "degree", "normalized_stokes"}
    for name, variable in data.data_vars.items():
        assert variable.dims[:3] == ("time", "y", "x") and variable.dtype == np.float32
        assert variable.attrs["long_name"] and variable.attrs["units"]
    assert data.angle.attrs["units"] == "degree" and data.degree.attrs["units"] == "1"
    assert data.attrs["layout"] == [45, 90, 0, 135] and data.attrs["bit_depth"] == 12
    np.testing.assert_array_equal(data.angle, result.angle("degrees"))
    np.testing.assert_array_equal(data.s1, result.stokes("s1"))
    assert (data.s1 < 0).any() and "comment" not in data.s1.attrs
    assert to_dataset(vp.process(made.frames[0], layout=1, bit_depth=12)).sizes["time"] == 1
    with pytest.raises(ValueError, match="give 3, one a frame"):
        to_dataset(result, times=[1, 2])
    with pytest.raises(TypeError, match="ndarray"):
        to_dataset(made.frames)


def test_a_dataset_comes_back_from_zarr_with_its_attributes(tmp_path):
    result = vp.process(vp.simulate(16, 20, layout=3).frames, layout=3, bit_depth=12)
    import xarray

    data = to_dataset(result)
    data.to_zarr(tmp_path / "d.zarr")
    back = xarray.open_zarr(tmp_path / "d.zarr").load()
    assert back.identical(data)


@pytest.mark.parametrize(
    "height, width, is_packed", [(3, 32, True), (16, 48, True), (2, 48, False), (16, 31, False)]
)
def test_packed_numbers_get_no_pixel_coordinates(height, width, is_packed):
    frames = vp.simulate(height, width, layout=1, frames=2).frames
    results = {
        mode: vp.process(frames, layout=1, bit_depth=12, planes="s0,normalized_stokes", mode=mode)
        for mode in ("fast", "calibrated")
    }
    inner = (slice(None), slice(0, height - 1), slice(0, 16))
    numbers = [results[mode].normalized_stokes[inner] for mode in ("fast", "calibrated")]
    assert np.array_equal(*numbers, equal_nan=True) != is_packed
    assert to_dataset(results["calibrated"]).normalized_stokes.dims == (
        "time",
        "y",
        "x",
        "component",
    )
    if not is_packed:
        assert "normalized_stokes" in to_dataset(results["fast"])
        return
    with pytest.raises(
        ValueError, match="normalized_stokes of mode 'fast' is not at pixel positions"
    ):
        to_dataset(results["fast"])


def test_physical_values_are_those_of_the_planes():
    """Against the stored numbers, not against the functions that a dataset is made with."""
    frames = vp.simulate(32, 48, layout=1, frames=2).frames
    result = vp.process(
        frames, layout=1, bit_depth=12, planes="s0,s1,s2,azimuth,dolp", signed=True, full_scale=1000
    )
    data = to_dataset(result)
    step = 2 * 4095 / 1000
    for name in ("s0", "s1", "s2"):
        np.testing.assert_allclose(data[name], result[name] * step, rtol=1e-6)
        assert data[name].attrs["units"] == "count"
    turn = (np.asarray(data.angle) - np.pi * (result.azimuth / 1000 - 0.5)) / np.pi
    is_known = result.dolp > 0
    assert is_known.mean() > 0.9
    assert np.abs(turn - turn.round())[is_known].max() < 1e-5
    degree = np.where(result.s0 > 0, result.dolp / 1000, np.nan)
    np.testing.assert_allclose(data.degree, degree, rtol=1e-6)
