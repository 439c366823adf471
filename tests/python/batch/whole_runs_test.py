"""The command for recordings: each kind of input, failures, what is read and written in which order."""

from __future__ import annotations

import contextlib
import os
import signal
import socket
import sys
import uuid
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import tifffile
import zarr
from batch_support import assert_equal, completed, frames_of, options, output, run, settings, store
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization.batch import interruption, output_group, running, work


def test_a_recording_in_each_kind_of_input_gives_the_same(tmp_path):
    frames = frames_of(5)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(2, 30, 50))
    for kind in ("tif", "png"):
        (tmp_path / kind).mkdir()
        for number, frame in enumerate(frames):
            if kind == "tif":
                tifffile.imwrite(tmp_path / kind / f"f{number}.tif", frame)
            else:
                Image.fromarray(frame).save(tmp_path / kind / f"f{number}.png")
    (tmp_path / "in.raw").write_bytes(
        b"header" + b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames)
    )
    raw = ("--pixel-format", "Mono12p", "--height", 64, "--width", 96, "--header-bytes", 6)
    for name, more in (("in.zarr", ()), ("tif", ()), ("png", ()), ("in.raw", raw)):
        recording = _recordings.open_recording(
            tmp_path / name, *(("Mono12p", 64, 96, 6) if more else ())
        )
        assert recording.count == 5 and recording.shape == (64, 96)
        assert np.array_equal(recording.read(1, 4), frames[1:4]), name
    with socket.socket() as of_another_run:
        with contextlib.suppress(OSError):  # there is another one
            of_another_run.bind(("", 8787))
            of_another_run.listen()
        code, printed, errors = run(
            tmp_path / "in.raw",
            tmp_path / "out.zarr",
            "--layout",
            "2",
            *raw,
            "--planes",
            "all",
            "--signed",
            "--compression",
            "none",
            "--workers",
            1,
        )
    assert code == 0 and "5 frames done" in printed and not errors, errors
    assert assert_equal(tmp_path / "out.zarr", frames, signed=True) == 5


def told_of_finalisers(monkeypatch):
    """What Python tells of exceptions in them; to be asked for in a test, behind pytest's own hook."""
    told = []
    monkeypatch.setattr(sys, "unraisablehook", lambda lost: told.append(str(lost)))
    return told


def test_a_signal_that_falls_into_a_finaliser_is_not_lost(monkeypatch):
    told = told_of_finalisers(monkeypatch)

    class Ending:
        def __del__(self):
            os.kill(os.getpid(), signal.SIGTERM)

    with interruption.interruptible():
        interruption.raise_if_interrupted()
        ending = Ending()
        del ending
        with pytest.raises(interruption.Interruption):
            interruption.raise_if_interrupted()
    assert not told
    with interruption.interruptible():
        interruption.raise_if_interrupted()


def test_what_a_signal_leaves_half_made_ends_without_a_word(monkeypatch):
    told = told_of_finalisers(monkeypatch)

    class Half_made:
        def __init__(self):
            os.kill(os.getpid(), signal.SIGTERM)
            self.made = True

        def __del__(self):
            assert self.made

    with interruption.interruptible():
        with contextlib.suppress(interruption.Interruption):
            Half_made()
    assert not told


def test_failures_are_listed_by_frame_and_the_rest_is_done(tmp_path):
    frames = frames_of(12)
    folder = tmp_path / "in"
    folder.mkdir()
    for number, frame in enumerate(frames):
        tifffile.imwrite(folder / f"f{number}.tif", frame)
    (folder / "f1.tif").write_bytes((folder / "f1.tif").read_bytes()[:300])
    tifffile.imwrite(folder / "f4.tif", frames[4][:32])
    tifffile.imwrite(folder / "f10.tif", (frames[10] >> 4).astype(np.uint8))
    out = tmp_path / "out.zarr"
    line = (folder, out, *options("--workers", 1))
    code, printed, errors = run(*line)
    assert code == 1 and "9 frames done, 0 skipped, 3 failed" in printed
    listed = errors.splitlines()
    assert len(listed) == 3 and "f1.tif" in listed[0] and "(32, 96)" in listed[1], errors
    assert "f10.tif" in listed[2] and "uint8" in listed[2]
    assert_equal(out, frames, [0, 2, 3, 5, 6, 7, 8, 9, 11])
    for number in (1, 4, 10):
        tifffile.imwrite(folder / f"f{number}.tif", frames[number])
    code, printed, errors = run(*line)
    assert code == 0 and "3 frames done, 9 skipped, 0 failed" in printed
    assert_equal(out, frames)


def test_the_mark_is_written_after_every_plane(tmp_path, monkeypatch):
    order = []
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(1), chunks=(1, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)
    usual = os.replace

    def replace(one, other):
        usual(one, other)
        order.append((os.path.basename(os.path.dirname(other)), completed(tmp_path / "out.zarr")))

    monkeypatch.setattr(os, "replace", replace)
    work.process_frames(recording, out, settings(), [0], vp.__version__)
    assert order == [("s0", 0), ("dolp", 0)] and completed(tmp_path / "out.zarr") == 1


def test_a_chunk_that_cannot_be_written_whole_leaves_nothing(tmp_path, monkeypatch):
    (tmp_path / "s0").mkdir()
    (tmp_path / "complete").mkdir()
    (tmp_path / "complete" / "0").write_bytes(bytes(1000))
    out = output(tmp_path, "none")
    frame = frames_of(1)[0]
    store(out, 0, s0=frame)
    before = (tmp_path / "s0" / "0.0.0").read_bytes()
    assert before == frame.tobytes()

    def full(*names):
        raise OSError(28, "No space left on device")

    monkeypatch.setattr("os.replace", full)
    with pytest.raises(OSError, match="No space"):
        store(out, 0, s0=frame + 1)
    assert [file.name for file in (tmp_path / "s0").iterdir()] == ["0.0.0"]
    assert (tmp_path / "s0" / "0.0.0").read_bytes() == before


def test_a_chunk_is_not_written_through_what_somebody_has_put_there(tmp_path, monkeypatch):
    (tmp_path / "s0").mkdir()
    known = uuid.uuid4()
    monkeypatch.setattr(uuid, "uuid4", lambda: known)
    planted = tmp_path / "s0" / f"0.0.0.0123abcd.{known.hex}.partial"
    (tmp_path / "precious").write_text("as it was")
    planted.symlink_to(tmp_path / "precious")
    with pytest.raises(FileExistsError):
        store(output(tmp_path, "none"), 0, s0=frames_of(1)[0])
    assert (tmp_path / "precious").read_text() == "as it was" and planted.is_symlink()


def test_frames_of_one_chunk_make_one_task():
    assert list(running.tasks_of([0, 1, 2, 5, 6, 7, 8], 4)) == [[0, 1, 2], [5, 6, 7], [8]]
    assert list(running.tasks_of([], 4)) == []


def test_a_long_chunk_is_read_in_parts(tmp_path, monkeypatch):
    frames = frames_of(11)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(11, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    assert recording.frames_per_task == 11
    assert work._MOST_BYTES_AT_ONCE == 256 << 20
    monkeypatch.setattr(work, "_MOST_BYTES_AT_ONCE", 4 * frames[0].nbytes + 1)
    reads = []
    read = _recordings.Zarr_recording.read

    def counted(self, first, stop):
        reads.append((first, stop))
        return read(self, first, stop)

    monkeypatch.setattr(_recordings.Zarr_recording, "read", counted)
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)
    wanted = [0, 1, 2, 3, 4, 8, 9, 10]
    outcome = work.process_frames(recording, out, settings(), wanted, vp.__version__)
    assert outcome == [(index, None) for index in wanted]
    assert reads == [(0, 4), (4, 5), (8, 11)]
    assert_equal(tmp_path / "out.zarr", frames, wanted)
    assert output_group.incomplete_frames(out, settings(), recording).tolist() == [5, 6, 7]


def test_workers_store_without_threads_of_their_own(tmp_path, monkeypatch):
    from numcodecs import Blosc, blosc

    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(1), chunks=(1, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)
    of_stores = []
    encode = Blosc.encode

    class Watched(Blosc):
        def encode(self, values):
            of_stores.append(blosc._get_use_threads())
            return encode(self, values)

    monkeypatch.setattr("numcodecs.Blosc", Watched)
    # As workers do, in another thread than Python's first.
    with ThreadPoolExecutor(1) as executor:
        executor.submit(
            work.process_frames, recording, out, settings(), [0], vp.__version__
        ).result()
    assert of_stores == [False] * 2
    # Of a cluster that others use too.
    assert blosc.use_threads is None


def test_a_worker_that_came_later_with_another_version_does_nothing(tmp_path):
    recording = _recordings.Raw_recording("x", "Mono12", 1, (64, 96), 0, 0)
    with pytest.raises(RuntimeError, match=f"version {vp.__version__}, not 0.0"):
        work.process_frames(recording, output(tmp_path), settings(), [0], "0.0")
