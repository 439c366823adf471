"""What process() and its kin refuse, with what message, and that nothing has been written then."""

from __future__ import annotations

import array
import copy
import ctypes
import pickle

import numpy as np
import pytest

import veldrane_polarization as vp
from veldrane_polarization import _native

FRAME = np.arange(4 * 20, dtype=np.uint16).reshape(4, 20)
SERIES = np.stack([FRAME, FRAME])
READ_ONLY = np.zeros((4, 20), np.uint16)
READ_ONLY.setflags(write=False)
OTHER_LAYOUT = vp.Calibration.ideal(3)


def good(**changes):
    return {"raw": FRAME, "layout": 2, "bit_depth": 12, "planes": ("s0",), **changes}


CASES = {
    # what is wrong: (arguments, error, what its message names: the given, the accepted)
    "a list": (good(raw=[[1, 2]]), TypeError, ("list", "NumPy array")),
    "floats": (good(raw=FRAME.astype(float)), TypeError, ("float64", "uint8 or uint16")),
    "signed samples": (good(raw=FRAME.astype(np.int16)), TypeError, ("int16", "uint8 or uint16")),
    "32 bits": (good(raw=FRAME.astype(np.uint32)), TypeError, ("uint32", "uint8 or uint16")),
    "other byte order": (good(raw=FRAME.astype(">u2")), TypeError, (">u2", "host byte order")),
    "one row of samples": (
        good(raw=FRAME[0]),
        ValueError,
        ("(20,)", "(H, W) or several (N, H, W)"),
    ),
    "four dimensions": (good(raw=FRAME[None, None]), ValueError, ("(1, 1, 4, 20)", "(N, H, W)")),
    "too narrow": (good(raw=FRAME[:, :15]), ValueError, ("(4, 15)", "16 columns")),
    "one row": (good(raw=FRAME[:1]), ValueError, ("(1, 20)", "2 rows")),
    "one column": (good(raw=FRAME[:2, :1]), ValueError, ("(2, 1)", "2 columns")),
    "deep bytes": (good(raw=FRAME.astype(np.uint8)), ValueError, ("12", "uint8", "at most 8")),
    "no layout": (good(layout=None), TypeError, ("layout is missing", "calibration")),
    "phase 4": (good(layout=4), ValueError, ("4", "(90, 45, 135, 0)")),
    "a masked array": (good(raw=np.ma.masked_less(FRAME, 5)), TypeError, ("raw", "filled")),
    "a masked out": (good(out={"s0": np.ma.masked_less(FRAME, 5)}), TypeError, ("'s0'", "filled")),
    "a depth that is a truth": (good(bit_depth=True), TypeError, ("True", "1 to 16")),
    "a word for signed": (good(signed="no"), TypeError, ("'no'", "True or False")),
    "nothing for signed": (good(signed=None), TypeError, ("None", "True or False")),
    "a plane among unhashable ones": (good(planes=iter([["s0"], "s1"])), TypeError, ("names",)),
    "wrong order": (good(layout=(0, 45, 90, 135)), ValueError, ("(0, 45, 90, 135)", "phase 3")),
    "three angles": (good(layout=(0, 45, 90)), ValueError, ("(0, 45, 90)", "phase 0")),
    "nonsense text": (good(layout="rggb"), ValueError, ("rggb", "phase 1")),
    "a float as layout": (good(layout=1.5), TypeError, ("1.5", "four angles")),
    "truth as layout": (good(layout=True), TypeError, ("True", "four angles")),
    "depth 0": (good(bit_depth=0), ValueError, ("0", "1 to 16")),
    "depth 17": (good(bit_depth=17), ValueError, ("17", "1 to 16")),
    "half a bit": (good(bit_depth=11.5), TypeError, ("11.5", "whole number")),
    "unknown plane": (good(planes=("aolp",)), ValueError, ("'aolp'", "azimuth")),
    "no plane": (good(planes=()), ValueError, ("empty", "s0")),
    "a list among planes": (good(planes=(["s0"],)), TypeError, ("['s0']", "names")),
    "a generator that is used up": (good(planes=iter(())), ValueError, ("empty", "s0")),
    "a number as planes": (good(planes=3), TypeError, ("3", "names")),
    "unknown mode": (good(mode="exact"), ValueError, ("'exact'", "'fast', 'calibrated'")),
    "fast calibration": (
        good(mode="fast", calibration=vp.Calibration.ideal(2)),
        ValueError,
        ("'fast'", "leave out"),
    ),
    "calibration of another layout": (
        good(calibration=OTHER_LAYOUT),
        ValueError,
        ("2", "(135, 0, 90, 45)", "leave the layout out"),
    ),
    "a path as calibration": (good(calibration="x.json"), TypeError, ("str", "Calibration.load")),
    "full scale 0": (good(full_scale=0), ValueError, ("0", "1 to 65535")),
    "full scale 65536": (good(full_scale=65536), ValueError, ("65536", "1 to 65535")),
    "no threads": (good(threads=0), ValueError, ("0", "1 to 1024")),
    "an array as out": (good(out=np.zeros((4, 20))), TypeError, ("ndarray", "mapping")),
    "out without a plane": (good(out={}), ValueError, ("nothing", "'s0'")),
    "out with a plane too many": (
        good(out={"s0": FRAME.copy(), "s1": FRAME.copy()}),
        ValueError,
        ("'s1'", "'s0'"),
    ),
    "out of another dtype": (
        good(out={"s0": np.zeros((4, 20), np.uint8)}),
        TypeError,
        ("uint8", "uint16"),
    ),
    "out of another shape": (
        good(out={"s0": np.zeros((20, 4), np.uint16)}),
        ValueError,
        ("(20, 4)", "(4, 20)"),
    ),
    "out for signed planes": (
        good(planes="s1", signed=True, out={"s1": np.zeros((4, 20), np.uint16)}),
        TypeError,
        ("uint16", "int32"),
    ),
    "out is read-only": (good(out={"s0": READ_ONLY}), ValueError, ("read-only", "written")),
    "out is not dense": (
        good(out={"s0": np.zeros((4, 40), np.uint16)[:, ::2]}),
        ValueError,
        ("dense", "C-contiguous"),
    ),
    "out is a list": (good(out={"s0": [1]}), TypeError, ("list", "uint16")),
}


@pytest.mark.parametrize("case", CASES)
def test_is_refused(case):
    arguments, error, words = CASES[case]
    raw = arguments.pop("raw")
    before = raw.copy() if isinstance(raw, np.ndarray) else raw
    vp.process(FRAME, layout=2, bit_depth=1, planes=("s0",))  # remembered; equal to what True asks
    with pytest.raises(error) as caught:
        vp.process(raw, **arguments)
    assert type(caught.value) is error
    for word in words:
        assert word in str(caught.value), str(caught.value)
    assert np.array_equal(raw, before)


def test_overlapping_arrays_are_refused_and_untouched():
    memory = np.arange(600, dtype=np.uint16)

    def part(start):
        return memory[start : start + 80].reshape(4, 20)

    for raw_at, s0_at, dolp_at, named in (
        (0, 0, 200, "raw"),
        (0, 79, 200, "raw"),
        (200, 279, 0, "raw"),
        (300, 0, 79, "out['s0']"),
    ):
        before = memory.copy()
        with pytest.raises(ValueError, match="same memory") as caught:
            vp.process(
                part(raw_at),
                layout=0,
                bit_depth=12,
                planes=("s0", "dolp"),
                out={"s0": part(s0_at), "dolp": part(dolp_at)},
            )
        assert named in str(caught.value)
        assert np.array_equal(memory, before)
    adjoining = {"s0": part(80), "dolp": part(160)}
    vp.process(part(0), layout=0, bit_depth=12, planes=("s0", "dolp"), out=adjoining)


def test_arrays_that_interleave_without_meeting_are_accepted():
    memory = np.random.default_rng(5).integers(0, 4096, (8, 4, 20), np.uint16)
    before = memory.copy()
    frames_0_and_4, frames_1_and_2 = memory[::4], memory[1:3]
    vp.process(frames_0_and_4, layout=0, bit_depth=12, planes="s0", out={"s0": frames_1_and_2})
    expected = vp.process(before[::4].copy(), layout=0, bit_depth=12, planes="s0").s0
    assert np.array_equal(frames_1_and_2, expected) and not np.array_equal(expected, before[1:3])
    assert np.array_equal(memory[[0, 3, 4, 5, 6, 7]], before[[0, 3, 4, 5, 6, 7]])


def test_subclasses_and_mappings_of_any_kind_are_checked_alike():
    from types import MappingProxyType

    out = {"s0": np.zeros((4, 20), np.uint16)}
    vp.process(FRAME, layout=2, bit_depth=12, planes="s0", out=MappingProxyType(out))
    expected = vp.process(FRAME, layout=2, bit_depth=12, planes="s0").s0
    assert np.array_equal(out["s0"], expected)
    with pytest.raises(ValueError, match="read-only"):
        vp.process(
            FRAME, layout=2, bit_depth=12, planes="s0", out=MappingProxyType({"s0": READ_ONLY})
        )


def test_signed_planes_need_rounding_to_nearest_and_nothing_is_written():
    mathematics = ctypes.CDLL("libm.so.6")
    out = {
        "s1": np.full((4, 20), 7, np.int32),
        "normalized_stokes": np.full((4, 20, 2), 7, np.float32),
    }
    upward = 0x800
    assert mathematics.fesetround(upward) == 0
    try:
        with pytest.raises(ValueError, match="rounding to nearest"):
            vp.process(FRAME, layout=2, bit_depth=12, planes=tuple(out), signed=True, out=out)
    finally:
        mathematics.fesetround(0)
    assert (out["s1"] == 7).all() and (out["normalized_stokes"] == 7).all()


def test_what_is_no_calibration_or_scale_is_unequal_to_one():
    assert vp.Calibration.ideal(2) != None and vp.Scale(12) != 5  # noqa: E711
    assert None not in [vp.Calibration.ideal(2)]
    assert {vp.Scale(12): 1}[vp.Scale(12, 65535)] == 1


def test_a_plane_that_was_not_asked_for_is_named():
    result = vp.process(FRAME, layout=0, bit_depth=12, planes=("s0",))
    for name in ("s1", "s2", "azimuth", "dolp", "normalized_stokes"):
        with pytest.raises(AttributeError, match=f"{name} was not asked for"):
            getattr(result, name)
    with pytest.raises(KeyError, match="not among the planes"):
        result["dolp"]
    with pytest.raises(AttributeError, match="azimuth"):
        result.angle()
    with pytest.raises(ValueError, match="'gradians'"):
        result.angle("gradians")


@pytest.mark.parametrize(
    "call, error, words",
    [
        (lambda: vp.simulate(1, 64, layout=0), ValueError, "height is 1"),
        (lambda: vp.simulate(64, 64, layout=0, bit_depth=7), ValueError, "bit_depth is 7"),
        (
            lambda: vp.simulate(64, 64, layout=0, sensor=OTHER_LAYOUT),
            ValueError,
            "the sensor is for",
        ),
        (lambda: vp.simulate(64, 64, layout=0, sensor=5), TypeError, "sensor is a int"),
        (
            lambda: vp.simulate(64, 64, layout=0, sensor=vp.imperfect_pixels(64, 62, layout=0)),
            ValueError,
            "size is 62 x 64; give maps of 64 x 64",
        ),
        (
            lambda: vp.simulate(
                64, 64, layout=0, bit_depth=8, sensor=vp.imperfect_pixels(64, 64, layout=0)
            ),
            ValueError,
            "bit depth is 12; give maps of 8 bits",
        ),
        (
            lambda: vp.simulate(64, 64, layout=0, polariser_angle=1, flat_level=1),
            ValueError,
            "flat_level is 1; leave it out",
        ),
        (
            lambda: vp.imperfect_pixels(64, 64, layout=0, dark_level=1024),
            ValueError,
            "dark_level is 1024; give 0 to 1023.75",
        ),
        (lambda: vp.simulate(64, 64, layout=0, noise=1), TypeError, "noise is 1"),
        (lambda: vp.simulate(64, 64, layout=0, polariser_angle=np.nan), ValueError, "angle is nan"),
        (lambda: vp.simulate(64, 64, layout=0, polariser_angle="x"), TypeError, "angle is 'x'"),
        (lambda: vp.inspect(FRAME, polariser_angle=np.inf), ValueError, "angle is inf"),
        (lambda: vp.inspect(FRAME.astype(np.uint8), bit_depth="x"), TypeError, "bit_depth is 'x'"),
        (lambda: vp.inspect(SERIES), ValueError, "one frame"),
        (lambda: vp.unpack(b"123", "Mono12", 2, 2), ValueError, "3 bytes"),
        (lambda: vp.unpack("text", "Mono12", 2, 2), TypeError, "str"),
        (lambda: vp.unpack(array.array("H", [1]), "Mono12", 1, 1), TypeError, "2 bytes an item"),
        (
            lambda: vp.unpack(np.zeros(9, np.uint8)[::2], "Mono8", 1, 1),
            ValueError,
            "ascontiguousarray",
        ),
        (lambda: vp.unpack(FRAME, "Mono8", 1, 1), TypeError, "dtype uint16"),
        (lambda: vp.pack([[1]], "Mono12"), TypeError, "samples is a list"),
        (lambda: vp.unpack(b"123", "BayerRG8", 2, 2), ValueError, "Mono12Packed"),
        (lambda: vp.pack(FRAME.astype(np.int32), "Mono12"), TypeError, "dtype int32; give uint16"),
        (lambda: vp.pack(FRAME + np.uint16(4096), "Mono12p"), ValueError, "at most 4095"),
        (
            lambda: vp.calibrate(SERIES, [0], layout=0, bit_depth=12),
            ValueError,
            "1 numbers; give 2",
        ),
        (
            lambda: vp.calibrate(iter(SERIES), [0, "x"], layout=0, bit_depth=12),
            TypeError,
            "s\\[1\\] is 'x'",
        ),
        (lambda: vp.calibrate(SERIES, 5, layout=0, bit_depth=12), TypeError, "angles is 5; give 2"),
        (lambda: vp.calibrate(7, [5], layout=0, bit_depth=12), TypeError, "frames is a int"),
        (
            lambda: vp.calibrate(SERIES, [0, 1], layout=0, bit_depth=12, sensor=5),
            TypeError,
            "sensor is 5",
        ),
        (lambda: vp.Calibration.ideal(0).of_region(-1, 0), ValueError, "row_offset is -1"),
        (lambda: vp.Scale("a"), TypeError, "bit_depth is 'a'"),
        (lambda: vp.Scale(True), TypeError, "bit_depth is True"),
        (lambda: vp.Scale(12, -1), ValueError, "full_scale is -1"),
        (lambda: vp.Scale(10**30), ValueError, "bit_depth is 1000"),
        (lambda: vp.calibrate([SERIES], [0], layout=0, bit_depth=12), ValueError, "frames\\[0\\]"),
        (lambda: vp.Calibration.load("/nowhere/c.json"), FileNotFoundError, "nowhere"),
        (lambda: vp.Calibration.ideal((1, 2, 3, 4)), ValueError, "phase 0"),
        (lambda: vp.Calibration.from_json("{}"), ValueError, "schema"),
        (
            lambda: vp.Calibration.from_json("\ud800"),
            ValueError,
            "text has a character at 0 that UTF-8",
        ),
        (lambda: vp.Calibration.from_json(b"{}"), TypeError, "text is a bytes; give what to_json"),
        (lambda: vp.Calibration.load(""), ValueError, "path is empty; give the name of a file"),
        (lambda: vp.Calibration.load(5), TypeError, "path is 5; give the name of a file"),
        (lambda: vp.Calibration.load("\ud800"), ValueError, "characters that files can have"),
        (lambda: vp.Calibration.load("a\0b"), ValueError, "without a character of code 0"),
        (
            lambda: vp.Calibration.ideal(2).save(""),
            ValueError,
            "path is empty; give the name of a file",
        ),
        (
            lambda: vp.Calibration.ideal(2).save(None),
            TypeError,
            "path is None; give the name of a file",
        ),
    ],
)
def test_other_functions_refuse(call, error, words):
    with pytest.raises(error, match=words):
        call()


# Of the classes that are made in C++: their metaclass is pybind11's.
BOUND = {
    name: value
    for name, value in vars(_native).items()
    if isinstance(value, type) and type(value) is not type
}


def without_init(bound):
    """An object of a class, and one of a class derived from it, that nobody initialised."""

    class Derived(bound):
        def __init__(self):
            pass

    return bound.__new__(bound), Derived.__new__(Derived)


@pytest.mark.parametrize("name", BOUND)
def test_an_object_that_was_not_initialised_is_refused_wherever_it_is_used(name):
    # Used by the package alone, through methods.
    inner = {"Dark_frame_average", "Photon_transfer_point", "Pixel_calibration", "Plan"}
    outer = {"Analyser", "Calibration", "Frame_file", "Model_quality", "Scale", "Series_point"}
    assert set(BOUND) == inner | outer
    uses = 0
    for value in without_init(BOUND[name]):
        for attribute in vars(BOUND[name]):
            if isinstance(getattr(BOUND[name], attribute), property):
                with pytest.raises(
                    TypeError, match=f"the {name} was never initialised; make it as help"
                ):
                    getattr(value, attribute)
                uses += 1
        calls = [copy.copy, copy.deepcopy, pickle.dumps]
        calls += [repr] if name not in inner | {"Frame_file", "Series_point"} else []
        calls += [hash] if name == "Scale" else []
        for call in calls:
            with pytest.raises((TypeError, AttributeError, pickle.PicklingError)):
                call(value)
        del value
    least = dict.fromkeys(inner, 0) | {"Frame_file": 1, "Series_point": 2, "Model_quality": 8}
    assert uses >= least.get(name, 10)


def test_an_object_that_was_not_initialised_is_refused_as_an_argument():
    words, nothing = "never initialised", {}
    for scale in without_init(vp.Scale):
        with pytest.raises(TypeError, match=words):
            _native.stokes_in_samples(FRAME, scale)
        with pytest.raises(TypeError, match=words):
            _native.Plan(("s0",), 2, scale, None, False, False)
        with pytest.raises(TypeError, match=words):
            vp.Scale(12) == scale
    for calibration in without_init(vp.Calibration):
        with pytest.raises(TypeError, match=words):
            vp.process(**good(layout=None, calibration=calibration))
        with pytest.raises(TypeError, match=words):
            vp.process(**good(calibration=calibration))
        with pytest.raises(TypeError, match=words):
            vp.simulate(16, 32, layout=2, sensor=calibration)
        for method in (vp.Calibration.to_json, vp.Calibration.__repr__):
            with pytest.raises(TypeError, match=words):
                method(calibration)
        with pytest.raises(TypeError, match=words):
            calibration.of_region(0, 0)
    for plan in without_init(_native.Plan):
        with pytest.raises(TypeError, match=words):
            plan.process_if_plain(FRAME, nothing, 1)
    for series in without_init(_native.Pixel_calibration):
        with pytest.raises(TypeError, match=words):
            series.finish("gain")
    for average in without_init(_native.Dark_frame_average):
        with pytest.raises(TypeError, match=words):
            average.add(FRAME)
    for point in without_init(_native.Photon_transfer_point):
        with pytest.raises(TypeError, match=words):
            _native.fit_photon_transfer([point])
    for point in without_init(_native.Series_point):
        with pytest.raises(TypeError, match=words):
            _native.estimate([point], 2, 12, None, 1.0, "")


def test_a_class_of_ones_own_that_leaves_out_init_is_refused_and_one_that_calls_it_is_not():
    class Forgetful(vp.Scale):
        def __init__(self):
            pass

    class Careful(vp.Scale):
        def __init__(self):
            super().__init__(10)

    with pytest.raises(TypeError, match="__init__"):
        Forgetful()
    assert Careful().bit_depth == 10 and Careful() == vp.Scale(10)
