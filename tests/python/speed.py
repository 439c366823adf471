"""What the package costs over the processor's own call, and what a second thread brings.

usage: speed.py [--quick]     --quick runs everything once, as a test that it still runs
"""

from __future__ import annotations

import ctypes
import random
import statistics
import sys
import time
from pathlib import Path

import numpy as np

import veldrane_polarization as vp

HEIGHT, WIDTH, PHASE, BIT_DEPTH = 2048, 2448, 2, 12
POINTERS = ("normalized_stokes", "s0", "s1", "s2", "azimuth", "dolp")


class Arguments(ctypes.Structure):
    _fields_ = [
        ("height", ctypes.c_size_t),
        ("width", ctypes.c_size_t),
        ("phase", ctypes.c_int32),
        ("raw", ctypes.c_void_p),
        ("bit_depth", ctypes.c_int32),
        ("maximum_input", ctypes.c_float),
        ("maximum_output", ctypes.c_float),
        ("maximum_output_integer", ctypes.c_int32),
        *((name, ctypes.c_void_p) for name in POINTERS),
    ]


def direct_call(raw, out):
    """The processor's exported function on the same memory, with everything prepared."""
    name = "libveldrane_mrv_polarization_processor_vector_avx2.so"
    library = ctypes.CDLL(str(Path(vp.__file__).parent / name))
    function = library.qn_polarization_processor_transform_vector_avx2
    weights = vp.Calibration.ideal(PHASE).matrices
    matrices = (ctypes.c_void_p * 4)(*(weights[k].ctypes.data for k in range(4)))
    arguments = Arguments(
        HEIGHT,
        WIDTH,
        PHASE,
        raw.ctypes.data,
        BIT_DEPTH,
        2 * (2**BIT_DEPTH - 1),
        65535,
        0,
        *(out[name].ctypes.data if name in out else None for name in POINTERS),
    )
    both = ctypes.byref(arguments), matrices

    def call():
        function(*both)

    call.keep = weights, arguments, matrices
    return call


def seconds_of(calls, rounds, clock=time.perf_counter):
    """Median and least seconds of each call; they take turns at random, so that a busy machine slows
    all alike."""
    times = [[] for _ in calls]
    turns = list(zip(calls, times))
    for _ in range(rounds):
        random.shuffle(turns)
        for call, series in turns:
            begin = clock()
            call()
            series.append(clock() - begin)
    return [statistics.median(series) for series in times], [min(series) for series in times]


def overhead(planes, rounds):
    raw = vp.simulate(HEIGHT, WIDTH, layout=PHASE, noise=False).frames[0]
    options = dict(layout=PHASE, bit_depth=BIT_DEPTH, planes=planes)
    out = {
        name: array.copy()
        for name, array in zip(planes, map(vp.process(raw, **options).__getitem__, planes))
    }
    same = {name: np.empty_like(array) for name, array in out.items()}
    direct = direct_call(raw, out)
    direct()
    calls = [
        direct,
        lambda: vp.process(raw, **options, out=out),
        lambda: vp.process(raw, **options),
    ]
    calls[1]()
    # Seconds of this thread: other programs' turns do not count.
    medians, least = seconds_of(calls, rounds, time.thread_time)
    # The package's own share does not depend on the frame: what a tiny frame takes.
    tiny, places = raw[:2, :16].copy(), {
        name: array[:2, :16].copy() for name, array in same.items()
    }
    begin = time.perf_counter()
    for _ in range(rounds * 10):
        vp.process(tiny, **options, out=places)
    own = (time.perf_counter() - begin) / (rounds * 10)
    print(
        f"{'+'.join(planes):24} direct {1e3 * medians[0]:6.3f} ms, process(out=) "
        f"{1e3 * medians[1]:6.3f} ms ({100 * (medians[1] / medians[0] - 1):+.1f} %; least "
        f"{100 * (least[1] / least[0] - 1):+.1f} %), new arrays {1e3 * medians[2]:6.3f} ms; "
        f"fixed cost {1e6 * own:.1f} us, {100 * own / least[0]:.2f} %"
    )


def scaling(mode, rounds, frames):
    raw = np.repeat(vp.simulate(HEIGHT, WIDTH, layout=PHASE, noise=False).frames, frames, axis=0)
    options = dict(layout=PHASE, bit_depth=BIT_DEPTH, mode=mode)
    result = vp.process(raw, **options)
    out = {name: result[name] for name in result}
    calls = [lambda n=n: vp.process(raw, **options, out=out, threads=n) for n in (1, 2)]
    fresh = [lambda n=n: vp.process(raw, **options, threads=n) for n in (1, 2)]
    for kind, chosen in (("out=", calls), ("new arrays", fresh)):
        (one, two), _ = seconds_of(chosen, rounds)
        print(
            f"{mode:10} {kind:10} {frames} frames: 1 thread {frames / one:6.1f} frames/s, 2 threads "
            f"{frames / two:6.1f} frames/s, {one / two:.2f} x"
        )


def main() -> None:
    quick = sys.argv[1:] == ["--quick"]
    for planes in (("s0",), ("dolp",), ("s0", "azimuth", "dolp")):
        overhead(planes, 1 if quick else 301)
    for mode in ("fast", "calibrated"):
        scaling(mode, 1 if quick else 9, 2 if quick else 16)


if __name__ == "__main__":
    main()
