"""process() against a NumPy model of the formulas, in every memory order, type and number of threads."""

from __future__ import annotations

import os
import subprocess
import sys
import threading
import time

import numpy as np
from hypothesis import given, strategies as st

import numpy_model as model
import veldrane_polarization as vp

# Vector blocks rescale by an approximate reciprocal of at most 1.5 / 4096.
RECIPROCAL_TOLERANCE = 1.5 / 4096
# What an approximate reciprocal and square root leave of a degree, and a polynomial of an angle.
DEGREE_TOLERANCE = 1 / 1024
ANGLE_TOLERANCE = 0.16


@st.composite
def recordings(draw, most_frames=3):
    """Frames, bit depth, phase."""
    bit_depth = draw(st.integers(1, 16))
    dtype = np.uint8 if bit_depth <= 8 and draw(st.booleans()) else np.uint16
    shape = (draw(st.integers(2, 9)), draw(st.integers(16, 70)))
    if draw(st.booleans()):
        shape = (draw(st.integers(1, most_frames)), *shape)
    random = np.random.default_rng(draw(st.integers(0, 2**32)))
    top = 2**bit_depth
    if draw(st.booleans()):
        raw = random.integers(0, top, shape)
    else:
        raw = random.choice(np.array([0, top // 2, top - 1]), shape)
    return raw.astype(dtype), bit_depth, draw(st.integers(0, 3))


MEMORY_ORDERS = {
    "dense": lambda raw: raw,
    "fortran": np.asfortranarray,
    "every second frame": lambda raw: np.repeat(raw, 2, axis=0)[::2] if raw.ndim == 3 else raw,
    "rows backwards": lambda raw: np.ascontiguousarray(raw[..., ::-1, :])[..., ::-1, :],
    "columns apart": lambda raw: np.repeat(raw, 3, axis=-1)[..., ::3],
    "part of a wider frame": lambda raw: np.pad(raw, [(0, 0)] * (raw.ndim - 1) + [(5, 9)])[
        ..., 5:-9
    ],
    "odd address": lambda raw: _at_odd_address(raw),
}


def _at_odd_address(raw):
    memory = np.empty(raw.nbytes + 1, np.uint8)
    array = np.frombuffer(memory.data, raw.dtype, raw.size, 1).reshape(raw.shape)
    array[...] = raw
    return array


def equal(one, other):
    return all(np.array_equal(one[name].view(np.uint8), other[name].view(np.uint8)) for name in one)


def comparable(shape, phase, mode):
    """Where fast mode follows the formulas: S0 and the rest."""
    mask = np.ones(shape, bool)
    if mode == "fast" and (shape[-2] - shape[-1]) % 2:
        mask[..., -1, -1] = False
    of_s0 = mask.copy()
    if mode == "fast" and phase == 0:
        of_s0[..., 1::2, :] = False
    return of_s0, mask


@given(recordings(), st.sampled_from(("fast", "calibrated")))
def test_stokes_planes_in_sample_units_are_the_formulas(recording, mode):
    raw, bit_depth, phase = recording
    result = vp.process(
        raw,
        layout=phase,
        bit_depth=bit_depth,
        planes=("s0", "s1", "s2"),
        mode=mode,
        full_scale=2**bit_depth - 1,
        signed=True,
    )
    s0, s1, s2 = model.stokes(raw, model.LAYOUTS[phase])
    of_s0, mask = comparable(raw.shape, phase, mode)
    np.testing.assert_array_equal(
        result.s0[of_s0], np.minimum(np.rint(s0), 2**bit_depth - 1)[of_s0]
    )
    np.testing.assert_array_equal(result.s1[mask], s1[mask])
    np.testing.assert_array_equal(result.s2[mask], s2[mask])
    unsigned = vp.process(
        raw,
        layout=phase,
        bit_depth=bit_depth,
        planes=("s1", "s2"),
        mode=mode,
        full_scale=2**bit_depth - 1,
    )
    np.testing.assert_array_equal(unsigned.s1[mask], np.maximum(s1, 0)[mask])
    np.testing.assert_array_equal(unsigned.s2[mask], np.maximum(s2, 0)[mask])


@given(recordings(), st.sampled_from(("fast", "calibrated")), st.integers(256, 65535))
def test_physical_units_are_the_formulas(recording, mode, full_scale):
    raw, bit_depth, phase = recording
    result = vp.process(
        raw,
        layout=phase,
        bit_depth=bit_depth,
        planes="all",
        mode=mode,
        full_scale=full_scale,
        signed=True,
    )
    s0, s1, s2 = model.stokes(raw, model.LAYOUTS[phase])
    of_s0, mask = comparable(raw.shape, phase, mode)
    step = result.scale.sample_units_per_step
    for name, expected, where in (("s0", s0, of_s0), ("s1", s1, mask), ("s2", s2, mask)):
        limit = full_scale * step
        error = np.abs(result.stokes(name) - np.clip(expected, -limit, limit))
        assert error[where].max(initial=0) <= 0.5001 * step + RECIPROCAL_TOLERANCE * limit, name
    degree, angle = result.degree(), result.angle("degrees")
    assert degree.dtype == angle.dtype == np.float32
    lit = of_s0 & (result.s0 > 0)
    error = np.abs(degree - model.degree(s0, s1, s2))[lit]
    assert error.max(initial=0) <= DEGREE_TOLERANCE + 0.6 / full_scale
    assert np.isnan(degree[result.s0 == 0]).all() and not np.isnan(degree[result.s0 > 0]).any()
    assert np.isnan(angle[result.dolp == 0]).all()
    defined = mask & (result.dolp > 0)
    error = model.distance_of_angles(angle, model.angle_in_degrees(s1, s2))[defined]
    assert error.max(initial=0) <= ANGLE_TOLERANCE + 91 / full_scale
    radians = result.angle()
    some = radians[~np.isnan(radians)]
    assert ((some >= 0) & (some < np.pi)).all()


@given(
    recordings(),
    st.sampled_from(sorted(MEMORY_ORDERS)),
    st.integers(1, 5),
    st.booleans(),
    st.sampled_from(("fast", "calibrated")),
)
def test_memory_order_type_and_threads_change_no_bit(recording, order, threads, signed, mode):
    raw, bit_depth, phase = recording
    options = dict(layout=phase, bit_depth=bit_depth, planes="all", signed=signed, mode=mode)
    expected = vp.process(raw.astype(np.uint16), **options, threads=1)
    arranged = MEMORY_ORDERS[order](raw)
    np.testing.assert_array_equal(arranged, raw)
    copy = raw.copy()
    assert equal(expected, vp.process(arranged, **options, threads=threads))
    np.testing.assert_array_equal(arranged, copy)
    if raw.ndim == 3:
        for number, frame in enumerate(raw):
            alone = vp.process(frame, **options)
            assert all(
                np.array_equal(alone[name], expected[name][number], equal_nan=name[0] == "n")
                for name in alone
            )


@given(recordings(), st.sets(st.sampled_from(vp.PLANES), min_size=1), st.booleans())
def test_out_gets_the_same_bits_and_is_what_is_returned(recording, planes, signed):
    raw, bit_depth, phase = recording
    options = dict(layout=phase, bit_depth=bit_depth, planes=sorted(planes), signed=signed)
    expected = vp.process(raw, **options)
    out = {name: np.full_like(expected[name], 77) for name in planes}
    result = vp.process(raw, **options, out=out)
    assert result.planes == tuple(sorted(planes)) == tuple(expected)
    assert equal(expected, out)
    assert all(result[name] is out[name] for name in planes)


def test_calibrated_mode_undoes_the_faults_of_analysers():
    for phase in range(4):
        sensor = vp.imperfect_sensor(phase, seed=phase)
        made = vp.simulate(
            120, 160, layout=phase, noise=False, bit_depth=16, sensor=sensor, polariser_angle=30
        )
        options = dict(bit_depth=16, planes=("s0", "azimuth", "dolp"))
        plain = vp.process(made.frames[0], layout=phase, **options)
        mended = vp.process(made.frames[0], calibration=sensor, **options)
        assert mended.mode == "calibrated" and plain.mode == "fast"
        assert np.abs(mended.degree() - 1).max() < 0.002 < np.abs(plain.degree() - 1).max()
        assert model.distance_of_angles(mended.angle("degrees"), 30).max() < 0.2
        assert mended.layout == model.LAYOUTS[phase]


def test_the_scene_comes_back():
    made = vp.simulate(200, 300, layout=2, noise=False, bit_depth=12)
    result = vp.process(made.frames[0], layout="90,45,135,0", bit_depth=12)
    assert np.nanmedian(np.abs(result.degree() - made.degree)) < 0.01
    strong = made.degree > 0.2
    assert np.nanmedian(model.distance_of_angles(result.angle("degrees"), made.angle)[strong]) < 0.5


def test_layouts_in_all_spellings_are_one():
    raw = np.random.default_rng(3).integers(0, 4096, (20, 40), np.uint16)
    for phase, layout in enumerate(model.LAYOUTS):
        results = [
            vp.process(raw, layout=spelling, bit_depth=12, planes="all")
            for spelling in (
                phase,
                layout,
                list(layout),
                np.array(layout),
                np.int64(phase),
                " , ".join(map(str, layout)),
            )
        ]
        assert all(equal(results[0], other) and other.phase == phase for other in results)


def test_no_frames_give_empty_planes():
    result = vp.process(np.empty((0, 4, 16), np.uint16), layout=0, bit_depth=12, planes="all")
    assert result.s0.shape == (0, 4, 16) and result.normalized_stokes.shape == (0, 4, 16, 2)


def test_the_interpreter_runs_on_while_frames_are_processed(capsys):
    # One frame: between two, the lock might be lent.
    raw = np.zeros((4096, 4096), np.uint16)
    out = {"dolp": np.empty_like(raw)}
    ticks, done = [], threading.Event()

    def tick():
        while not done.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0)

    def eighths_of_the_middle(begin, end):
        """In how many of eight parts of a call's middle half the other thread got on."""
        parts = {int(16 * (moment - begin) / (end - begin)) for moment in ticks.copy()}
        return len(parts & set(range(4, 12)))

    other = threading.Thread(target=tick, daemon=True)
    other.start()
    most = calls = 0
    while most < 8 and calls < 200:  # a busy machine may leave it no part of some
        ticks.clear()
        begin = time.perf_counter()
        vp.process(
            raw, layout=0, bit_depth=12, planes="dolp", mode="calibrated", out=out, threads=1
        )
        most = max(most, eighths_of_the_middle(begin, time.perf_counter()))
        calls += 1
    done.set()
    other.join()
    with capsys.disabled():
        print(f"\n  the other thread got on in {most} of 8 parts of call {calls}")
    assert most == 8


def test_fewer_frames_than_threads_share_them_and_change_no_bit():
    raw = np.random.default_rng(3).integers(0, 4096, (2, 803, 331), dtype=np.uint16)
    for mode in ("fast", "calibrated"):
        options = dict(layout=1, bit_depth=12, planes="all", signed=True, mode=mode)
        for frames in (raw, raw[:1], raw[0]):
            alone = vp.process(frames, **options, threads=1)
            assert equal(alone, vp.process(frames, **options, threads=5))


# Prints the most threads at once that processing adds to a fresh process, where there are `enough`
# of them; a busy machine may take many calls to have all at work.
COUNT_THREADS = """
import numpy as np, os, sys, threading
threads, enough = eval(sys.argv[1])
import veldrane_polarization as vp
raw = np.zeros((12, 512, 1024), np.uint16)
out = {"dolp": np.empty_like(raw)}
done, most = threading.Event(), 0
def look():
    global most
    before.add(str(threading.get_native_id()))
    while not done.is_set():
        most = max(most, len(set(os.listdir("/proc/self/task")) - before))
other = threading.Thread(target=look)
before = set(os.listdir("/proc/self/task"))
other.start()
for call in range(2000):
    vp.process(raw, layout=0, bit_depth=12, planes="dolp", mode="calibrated", out=out,
               threads=threads)
    if call >= 40 and most >= enough:
        break
done.set()
other.join()
print(most)
"""


def added_threads(threads, enough, *before):
    done = subprocess.run(
        [*before, sys.executable, "-B", "-c", COUNT_THREADS, repr((threads, enough))],
        capture_output=True,
        text=True,
    )
    assert not done.stderr
    return int(done.stdout)


def test_as_many_threads_work_as_are_asked_for():
    assert added_threads(1, 0) == 0
    for wanted in (2, 4):
        assert added_threads(wanted, wanted - 1) >= wanted - 1


def test_without_a_number_one_thread_a_usable_processor_works():
    usable = sorted(os.sched_getaffinity(0))
    assert added_threads(None, 0, "taskset", "--cpu-list", str(usable[0])) == 0
    added = min(len(usable), 12) - 1
    assert added_threads(None, added) >= added


def test_an_interrupt_ends_a_long_call_between_frames():
    program = """
import numpy as np, os, signal, sys, threading, time
import veldrane_polarization as vp
raw = np.zeros((400, 512, 1024), np.uint16)
out = {"dolp": np.empty_like(raw)}
for _ in range(20):
    # Sometimes it comes just before a call's end, which it then does not cut short.
    try:
        threading.Timer(0.3, os.kill, (os.getpid(), signal.SIGINT)).start()
        while True:
            out["dolp"][[0, -1]] = 7
            vp.process(raw, layout=0, bit_depth=12, planes="dolp", mode="calibrated", out=out,
                       threads=2)
    except KeyboardInterrupt:
        if (out["dolp"][0] != 7).all() and (out["dolp"][-1] == 7).all():
            sys.exit("cut short")
"""
    done = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True)
    assert done.stderr == "cut short\n"


def test_an_interrupt_ends_a_long_simulation_within_a_frame():
    program = """
import os, signal, threading, time
import veldrane_polarization as vp
begin = time.monotonic()
threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()
try:
    vp.simulate(12000, 12000, layout=0)
    print("simulated to its end")
except KeyboardInterrupt:
    print("soon" if time.monotonic() - begin < 10 else "late")
"""
    done = subprocess.run([sys.executable, "-B", "-c", program], capture_output=True, text=True)
    assert (done.stdout, done.stderr) == ("soon\n", "")


def test_results_travel_to_other_processes():
    import pickle

    result = vp.process(np.ones((4, 20), np.uint16), layout=1, bit_depth=10, full_scale=1000)
    copy = pickle.loads(pickle.dumps(result))
    assert equal(result, copy) and copy.scale == result.scale and copy.planes == result.planes
