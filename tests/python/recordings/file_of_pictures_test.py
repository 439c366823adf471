"""A TIFF file of many pictures: what holds its frames together, and how it is opened."""

from __future__ import annotations

import sys
import threading
import time

import numpy as np
import pytest
import tifffile
from batch_support import frames_of

from veldrane_polarization import _native, _recordings

COUNT = 5


def written(file, frames):
    tifffile.imwrite(file, frames, photometric="minisblack")


def test_a_file_that_is_shorter_is_told_by_its_size(tmp_path):
    file = tmp_path / "run.tif"
    written(file, frames_of(COUNT))
    recording, size = _recordings.open_recording(file), file.stat().st_size
    written(file, frames_of(2))
    words = f"changed from {size} to {file.stat().st_size} bytes"
    with pytest.raises(_recordings.Recording_changed, match=words):
        recording.part(4, 5).read(4, 5)


def test_it_is_described_by_its_size_and_time(tmp_path):
    file = tmp_path / "run.tif"
    written(file, frames_of(COUNT))
    described = _recordings.open_recording(file).description()
    status = file.stat()
    assert described["kind"] == "file of pictures" and described["frames"] == COUNT
    assert described["bytes"] == status.st_size
    assert described["modified"] == status.st_mtime_ns // 1000
    assert _recordings.open_recording(tmp_path).description()["kind"] == "folder"


def test_other_threads_go_on_while_it_is_opened(tmp_path):
    file = tmp_path / "run.tif"
    written(file, np.zeros((2000, 2, 16), np.uint8))
    steps, counts = 0, []

    def opening():
        for _ in range(100):
            before = steps
            counts.append(_native.Frame_file(str(file)).count)
            if steps > before:
                return
        counts.append("nothing else was done")

    thread, interval = threading.Thread(target=opening), sys.getswitchinterval()
    sys.setswitchinterval(1000)  # only who gives the lock away lets another thread go on
    try:
        thread.start()
        while thread.is_alive():
            steps += 1
            time.sleep(0)
    finally:
        sys.setswitchinterval(interval)
    assert set(counts) == {2000}


def test_arguments_have_names(tmp_path):
    (tmp_path / "in.raw").write_bytes(bytes(2 * 2 * 16))
    opened = _native.Frame_file(
        file=str(tmp_path / "in.raw"),
        pixel_format="Mono12",
        height=2,
        width=16,
        header_bytes=0,
        stride=0,
    )
    assert opened.count == 1
