#!/usr/bin/env python3
"""The planes by NumPy's slices; prints the milliseconds of processor time of each frame.

    numpy_slices.py --raw FILE --height H --width W --phase P --limit M --planes s0,dolp
                    [--frames N] [--out FILE]

Raw samples are 16 bits, the planes of --out stand one after another in the order of --planes.
"""

import argparse
import sys
import time

try:
    import numpy
except ImportError:
    sys.exit("numpy_slices.py: no NumPy here; install python3-numpy")

ANGLES = {0: (0, 135, 45, 90), 1: (45, 90, 0, 135), 2: (90, 45, 135, 0), 3: (135, 0, 90, 45)}


def pattern_of(phase, shape, positive):
    """+1 at one angle and -1 at the one across it: every 2x2 neighbourhood holds each once."""
    pattern = numpy.zeros(shape, numpy.float32)
    for position, angle in enumerate(ANGLES[phase]):
        if angle % 90 == positive % 90:
            pattern[position // 2 :: 2, position % 2 :: 2] = 1 if angle == positive else -1
    return pattern


def sums(samples):
    columns = samples[:, :-1] + samples[:, 1:]
    return columns[:-1] + columns[1:]


def to_plane(values, limit):
    numpy.rint(values, out=values)
    numpy.clip(values, 0, limit, out=values)
    return values.astype(numpy.uint16)


def planes_of(raw, patterns, limit, wanted):
    # Behind the frame's end the neighbour on the other side, of the same angle, is repeated.
    samples = numpy.pad(raw.astype(numpy.float32), ((0, 1), (0, 1)), mode="reflect")
    s0 = sums(samples) * numpy.float32(0.5)
    s1 = sums(samples * patterns[0])
    s2 = sums(samples * patterns[1])
    planes = {}
    if "azimuth" in wanted:
        angle = numpy.arctan2(s2, s1)
        planes["azimuth"] = to_plane(
            angle * numpy.float32(limit / (2 * numpy.pi)) + numpy.float32(limit / 2), limit
        )
    if "dolp" in wanted:
        degree = numpy.sqrt(s1 * s1 + s2 * s2) / numpy.maximum(s0, numpy.float32(1e-20))
        planes["dolp"] = to_plane(degree * numpy.float32(limit), limit)
    if "normalized_stokes" in wanted:
        with numpy.errstate(divide="ignore", invalid="ignore"):
            planes["normalized_stokes"] = numpy.stack((s1 / s0, s2 / s0), axis=-1)
    for name, values in (("s0", s0), ("s1", s1), ("s2", s2)):
        if name in wanted:
            planes[name] = to_plane(values, limit)
    return planes


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--raw", required=True)
    parser.add_argument("--height", type=int, required=True)
    parser.add_argument("--width", type=int, required=True)
    parser.add_argument("--phase", type=int, choices=ANGLES, required=True)
    parser.add_argument("--limit", type=float, required=True)
    parser.add_argument("--planes", required=True)
    parser.add_argument("--frames", type=int, default=1)
    parser.add_argument("--out")
    options = parser.parse_args()
    wanted = options.planes.split(",")
    raw = numpy.fromfile(options.raw, numpy.uint16).reshape(options.height, options.width)
    shape = (options.height + 1, options.width + 1)
    patterns = [pattern_of(options.phase, shape, positive) for positive in (0, 45)]
    for _ in range(options.frames):
        start = time.process_time()
        planes = planes_of(raw, patterns, options.limit, wanted)
        print((time.process_time() - start) * 1e3)
    if options.out:
        with open(options.out, "wb") as file:
            for name in wanted:
                planes[name].tofile(file)


if __name__ == "__main__":
    main()
