"""Too few threads or too little memory: fewer threads do the work, and want of memory has a line."""

import os
import subprocess
import sys

import pytest

# Frames that have to be gathered, each into memory of its thread. `out` is there already.
CALL = """
import os, resource, sys
import numpy as np
import veldrane_polarization as vp
frames, height, width, room = map(int, sys.argv[1:])
raw = np.arange(width, dtype=np.uint8) + np.zeros((frames, height, 1), np.uint8)
out = {"dolp": np.zeros(raw.shape, np.uint16)}
vp.process(raw[:2, :16], layout=0, bit_depth=8, planes="dolp", threads=1)
if room:
    pages = int(open("/proc/self/statm").read().split()[0])
    limit = pages * os.sysconf("SC_PAGE_SIZE") + room
    resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
try:
    vp.process(raw, layout=0, bit_depth=8, planes="dolp", out=out, threads=32)
    expected = vp.process(raw, layout=0, bit_depth=8, planes="dolp", threads=1)
    print(np.array_equal(out["dolp"], expected["dolp"]))
except MemoryError as error:
    print(error)
"""


def call(frames, height, width, room=0, **environment):
    done = subprocess.run(
        [sys.executable, "-B", "-c", CALL, *map(str, (frames, height, width, room))],
        env=os.environ | environment,
        capture_output=True,
        text=True,
    )
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout.strip()


@pytest.mark.parametrize("left", ["0", "1", "5"])
def test_without_further_threads_those_there_are_do_the_work(left):
    stub = os.environ.get("FEW_THREADS")
    if stub is None:
        pytest.skip("FEW_THREADS does not name the library that refuses threads")
    assert call(40, 32, 64, LD_PRELOAD=stub, THREADS_LEFT=left, OPENBLAS_NUM_THREADS="1") == "True"


def test_too_little_memory_is_a_line_with_the_remedy():
    said = call(2, 3000, 4000, room=4 << 20)
    assert said.startswith("the memory that is left is too little"), said
    assert "fewer threads" in said and "bad_alloc" not in said


def test_without_a_frame_no_thread_is_started():
    code = (
        "import numpy as np, veldrane_polarization as vp\n"
        "def peak():\n"
        "    lines = open('/proc/self/status').read().splitlines()\n"
        "    return next(int(line.split()[1]) for line in lines if line.startswith('VmPeak:'))\n"
        "before = peak()\n"
        "raw = np.zeros((0, 32, 64), np.uint8)\n"
        "vp.process(raw, layout=0, bit_depth=8, planes='dolp', threads=32)\n"
        "print(peak() - before)\n"
    )
    done = subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")
    stack_kilobytes = 8192
    assert int(done.stdout) < stack_kilobytes
