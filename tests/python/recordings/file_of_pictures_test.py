"""A TIFF file of many pictures: what holds its frames together, and how it is opened."""

from __future__ import annotations

import errno
import os
import sys
import threading
import time

import numpy as np
import pytest
import tifffile
from batch_support import frames_of

from veldrane_polarization import _native, _recordings
from veldrane_polarization._recordings import opening

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


def test_a_damaged_file_is_not_told_to_be_a_single_picture(tmp_path):
    (tmp_path / "run.tif").write_bytes(b"II*\0abcdef")
    with pytest.raises(_recordings.Recording_error, match="run.tif: damaged or cut short"):
        _recordings.open_recording(tmp_path / "run.tif")


def test_a_file_that_is_damaged_behind_its_first_picture_is_told(tmp_path):
    file, frames = tmp_path / "run.tif", frames_of(2)
    written(file, frames)
    with tifffile.TiffFile(file) as tiff:
        second = tiff.pages[1].offset
    file.write_bytes(file.read_bytes()[: second + 3])
    recording = _recordings.open_recording(file)
    assert np.array_equal(recording.read(0, 1), frames[:1])
    assert len(recording.failures) == 1 and "damaged or cut short" in recording.failures[0]


def test_what_is_too_large_is_one_line(tmp_path, monkeypatch):
    def without_memory(file):
        raise MemoryError

    written(tmp_path / "run.tif", frames_of(COUNT))
    for module, name in ((opening, "count_in"), (_native, "find_pictures")):
        with monkeypatch.context() as little:
            little.setattr(module, name, without_memory)
            with pytest.raises(_recordings.Recording_error, match="run.tif is too large for the"):
                _recordings.open_recording(tmp_path / "run.tif")


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


def test_an_error_of_its_disk_is_told_as_one(tmp_path):
    """What cannot be read at 0 is this process's memory: an input/output error."""
    file = tmp_path / "run.tif"
    written(file, frames_of(COUNT))
    recording = _recordings.open_recording(file)
    recording.read(0, 1)
    folder = "/proc/self/fd"
    names = [name for name in os.listdir(folder) if os.path.exists(f"{folder}/{name}")]
    (opened,) = (int(name) for name in names if os.readlink(f"{folder}/{name}") == str(file))
    with open("/proc/self/mem", "rb", buffering=0) as failing:
        os.dup2(failing.fileno(), opened)
    with pytest.raises(OSError, match="Input/output error") as failure:
        recording.read(3, 4)
    assert failure.value.errno == errno.EIO
    # It is opened anew.
    assert np.array_equal(recording.read(3, 4), frames_of(COUNT)[3:4])
