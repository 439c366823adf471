"""The planes that say which pixels to trust, and how far."""

from __future__ import annotations

import numpy as np
import pytest
import veldrane_polarization as vp
from veldrane_polarization.datasets import to_dataset

NOISE = vp.Noise(electrons_per_count=10, read_noise=5)


def frames_of(degree: float, count: int = 3) -> np.ndarray:
    rng = np.random.default_rng(1)
    means = 1000 * (1 + degree * np.array([[-1, 0], [0, 1]]))  # layout 2: 90, 45, 135, 0 degrees
    means = np.tile(means, (count, 8, 16))
    variances = means / NOISE.electrons_per_count + 0.25
    return np.rint(rng.normal(means, np.sqrt(variances))).astype(np.uint16)


def test_a_saturated_sample_marks_its_neighbourhood_in_its_frame():
    raw = frames_of(0.5)
    raw[1, 6, 9] = 4095
    for mode in ("fast", "calibrated"):
        result = vp.process(raw, layout=2, bit_depth=12, planes="s0,validity", mode=mode)
        assert result.validity.dtype == np.uint8 and result.validity.shape == raw.shape
        assert np.argwhere(result.validity).tolist() == [[1, 5, 8], [1, 5, 9], [1, 6, 8], [1, 6, 9]]
        assert vp.Validity(int(result.validity.max())) is vp.Validity.SATURATED


def test_weak_light_and_deviations_need_a_noise_model():
    options = dict(layout=2, bit_depth=12, planes=("validity", "uncertainty", "dolp"))
    with pytest.raises(ValueError, match="noise model.*electrons"):
        vp.process(frames_of(0), **options)
    weak = vp.process(frames_of(0), noise=NOISE, **options)
    strong = vp.process(frames_of(0.5), noise=NOISE, **options)
    assert np.mean(weak.validity == vp.Validity.WEAK) > 0.95
    assert not strong.validity.any()
    assert strong.uncertainty.shape == (*strong.dolp.shape, 3)
    scatter = strong.degree()[:, ::2, ::2].std()
    assert np.median(strong.uncertainty[..., 1]) == pytest.approx(scatter, rel=0.1)


def test_all_stands_for_the_six_of_the_processor():
    result = vp.process(frames_of(0), layout=2, bit_depth=12, planes="all")
    assert result.planes == vp.PLANES
    assert "validity" not in result and "uncertainty" not in vp.PLANES


@pytest.mark.parametrize(
    "noise, error",
    [
        ((10, 5), TypeError),
        (vp.Noise(0, 5), ValueError),
        (vp.Noise(10, -1), ValueError),
        (vp.Noise(float("nan")), ValueError),
        (vp.Noise("10"), TypeError),  # type: ignore[arg-type]
    ],
)
def test_noise_that_is_none_is_refused(noise, error):
    with pytest.raises(error, match="give"):
        vp.process(frames_of(0), layout=2, bit_depth=12, noise=noise)


def test_they_go_into_datasets():
    result = vp.process(
        frames_of(0.5), layout=2, bit_depth=12, planes="validity,uncertainty", noise=NOISE
    )
    data = to_dataset(result)
    assert data.validity.dims == ("time", "y", "x")
    assert data.validity.attrs["flag_meanings"] == "saturated below_dark bad_pixel weak"
    assert data.validity.attrs["flag_masks"].tolist() == [1, 2, 4, 8]
    assert data.uncertainty.dims == ("time", "y", "x", "deviation_of")
    assert data.uncertainty.sizes["deviation_of"] == 3
    assert data.attrs["electrons_per_count"] == 10 and data.attrs["read_noise_electrons"] == 5


def test_a_result_says_which_noise_it_rests_on():
    raw = frames_of(0.5)
    options = dict(layout=2, bit_depth=12, planes="validity")
    assert vp.process(raw, **options).noise is None
    assert "electrons_per_count" not in to_dataset(vp.process(raw, **options)).attrs
    assert vp.process(raw, noise=NOISE, **options).noise == NOISE
