"""Chunks of several frames, and marks that many frames share in a file."""

from __future__ import annotations

import fcntl
import os
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import tifffile
import zarr
from batch_support import (
    Made_up_client,
    assert_equal,
    frames_of,
    mark,
    marked,
    options,
    output,
    settings,
    store_all,
)
from made_up_run import clock, command_on

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization.batch import storing
from veldrane_polarization.batch.output_group import Output_error, incomplete_frames, prepare
from veldrane_polarization.batch.work import process_frames

# A fixture.
__all__ = ["clock"]

FRAMES, PER_CHUNK = 11, 4


@pytest.fixture(params=storing.COMPRESSIONS)
def out(tmp_path, request):
    return output(tmp_path / "out.zarr", request.param, frames_per_chunk=PER_CHUNK)


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "in").mkdir()
    for number, frame in enumerate(frames_of(FRAMES)):
        tifffile.imwrite(tmp_path / "in" / f"f{number:02}.tif", frame)
    return tmp_path / "in"


def spoiled(file):
    """What puts it back."""
    whole = file.read_bytes()
    file.write_bytes(whole[:300])
    return lambda: file.write_bytes(whole)


def process(folder, out, indices):
    recording = _recordings.open_recording(folder)
    prepare(out, settings(), recording)
    outcome = process_frames(recording, out, settings(), indices, vp.__version__)
    return [index for index, problem in outcome if problem is not None]


@pytest.mark.parametrize("frames_at_once", (1, 3, 8))
def test_frames_share_chunks_whatever_chunks_the_recording_has(tmp_path, out, frames_at_once):
    frames = frames_of(FRAMES)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(frames_at_once, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    store_all(recording, out)
    assert assert_equal(out.path, frames) == FRAMES
    group = zarr.open_group(out.path, mode="r")
    assert group["s0"].chunks == (PER_CHUNK, 64, 96) and group["complete"].chunks == (1000,)
    for name in ("s0", "dolp"):
        chunks = [file for file in os.listdir(tmp_path / "out.zarr" / name) if file[0] != "."]
        assert sorted(chunks) == ["0.0.0", "1.0.0", "2.0.0"]
    assert incomplete_frames(out, settings(), recording).size == 0


def test_a_frame_that_fails_leaves_the_others_of_its_chunk(folder, out):
    put_back = spoiled(folder / "f05.tif")
    assert process(folder, out, range(FRAMES)) == [5]
    assert_equal(out.path, frames_of(FRAMES), [*range(5), *range(6, FRAMES)])
    recording = _recordings.open_recording(folder)
    assert incomplete_frames(out, settings(), recording).tolist() == [5]
    # Its raw frame is there later, and those of its neighbours are not any more.
    put_back()
    for number in (4, 6, 7):
        spoiled(folder / f"f{number:02}.tif")
    assert process(folder, out, [5]) == []
    assert assert_equal(out.path, frames_of(FRAMES)) == FRAMES


def test_a_worker_that_wakes_up_takes_nothing_from_the_one_after_it(folder, out, monkeypatch):
    """It comes to frames that it cannot read any more, and which another has done since."""
    store = storing.Chunk.store

    def waking(chunk, done):
        assert list(done) == [0]
        monkeypatch.setattr(storing.Chunk, "store", store)
        for put_back in mending:
            put_back()
        assert process(folder, out, range(4)) == []
        store(chunk, done)

    mending = [spoiled(folder / f"f{number:02}.tif") for number in (1, 2, 3)]
    monkeypatch.setattr(storing.Chunk, "store", waking)
    assert process(folder, out, range(4)) == [1, 2, 3]
    assert assert_equal(out.path, frames_of(FRAMES), range(4)) == 4


def test_a_damaged_chunk_has_all_its_frames_done_again(folder, out):
    assert process(folder, out, range(FRAMES)) == []
    file = out.file_of("dolp", 1, 3)
    with open(file, "r+b") as stream:
        stream.truncate(os.path.getsize(file) - 1)
    recording = _recordings.open_recording(folder)
    assert incomplete_frames(out, settings(), recording).tolist() == [4, 5, 6, 7]
    # While a run is at it, nothing is taken over from such a chunk.
    assert process(folder, out, [5]) == [5]
    assert process(folder, out, [4, 5, 6, 7]) == []
    assert assert_equal(out.path, frames_of(FRAMES)) == FRAMES


def test_the_command_makes_chunks_and_goes_on_with_the_same(
    folder, tmp_path, clock, monkeypatch, capsys
):
    line = (*options("--compression", "zstd"), "--frames-per-chunk")
    put_back = spoiled(folder / "f10.tif")
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *line, PER_CHUNK) == 1
    assert "10 frames done, 0 skipped, 1 failed" in capsys.readouterr().out
    put_back()
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *line, 5) == 2
    assert "was made with frames_per_chunk 4, not 5; give another" in capsys.readouterr().err
    client = Made_up_client(clock)
    assert command_on(client, tmp_path, monkeypatch, "in", *line, PER_CHUNK) == 0
    assert "1 frames done, 10 skipped, 0 failed" in capsys.readouterr().out
    assert len(client.futures) == 1
    assert assert_equal(tmp_path / "out.zarr", frames_of(FRAMES)) == FRAMES


def test_a_chunk_beyond_what_a_codec_takes_is_refused(folder, tmp_path, monkeypatch, clock, capsys):
    # (2 GiB - 64 KiB) / (64 x 96 x 2 bytes)
    most = 174757
    for number, code in ((most + 1, 2), (most, 0)):
        line = options("--frames-per-chunk", number)
        assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *line) == code
    assert (
        f"--frames-per-chunk is {most + 1}, and a chunk has room for 2 GB of a plane; give at "
        in (capsys.readouterr().err)
    )
    # No more room than for the frames that there are.
    assert zarr.open_group(str(tmp_path / "out.zarr"))["s0"].chunks == (FRAMES, 64, 96)


def test_an_out_of_one_mark_a_file_is_refused(folder, out, tmp_path):
    process(folder, out, [0])
    attributes = tmp_path / "out.zarr" / ".zattrs"
    attributes.write_text(attributes.read_text().replace("batch 2", "batch 1"))
    with pytest.raises(Output_error, match="this version of it, did not make; give another OUT"):
        process(folder, out, [0])


def test_marks_of_many_at_once_are_all_there(folder, tmp_path):
    out = output(tmp_path / "out.zarr")
    recording = _recordings.Raw_recording("x", "Mono8", 3000, (2, 16), 0, 0)
    prepare(out, settings(), recording)
    (tmp_path / "out.zarr" / "complete" / "1").write_bytes(bytes(1000))
    frame = np.zeros((2, 16), np.uint16)
    wanted = [index for index in range(900, 2100, 3)]

    def store_each(first):
        for index in wanted[first::8]:
            with storing.Chunk(out, index) as chunk:
                chunk.put(0, {"s0": frame})
                chunk.store([0])

    with ThreadPoolExecutor(8) as executor:
        list(executor.map(store_each, range(8)))
    assert marked(tmp_path / "out.zarr") == wanted


@pytest.mark.parametrize("refused", (False, True))
def test_marks_do_without_a_lock_that_nobody_gives(tmp_path, folder, monkeypatch, refused):
    out = output(tmp_path / "out.zarr", frames_per_chunk=PER_CHUNK)
    process(folder, out, [])
    monkeypatch.setattr(storing, "_SECONDS_FOR_A_LOCK", 0.02)

    def no_locks(*arguments):
        raise OSError(38, "Function not implemented")

    with open(out.mark_file(0), "rb") as of_a_stopped_worker:
        fcntl.flock(of_a_stopped_worker, fcntl.LOCK_EX)
        if refused:
            monkeypatch.setattr(fcntl, "flock", no_locks)
        assert process(folder, out, range(6)) == []
    assert marked(tmp_path / "out.zarr") == list(range(6))


def test_a_million_frames_are_some_thousand_files(tmp_path, monkeypatch):
    """Frames of 2 x 16, whose chunks hold nothing; the disk gives files without data no room."""
    count, per_chunk = 1_000_000, 1000
    recording = _recordings.Raw_recording("x", "Mono8", count, (2, 16), 0, 0)
    out = output(tmp_path / "out.zarr", "none", frames_per_chunk=per_chunk)
    prepare(out, settings(), recording)
    assert incomplete_frames(out, settings(), recording).size == count
    for number in range(count // per_chunk):
        for name in ("s0", "dolp"):
            with open(out.file_of(name, number, 3), "wb") as stream:
                stream.truncate(per_chunk * 64)
        with open(out.mark_file(number), "wb") as stream:
            stream.write(b"\1" * per_chunk)
    for index in (0, 123_456, count - 1):
        mark(out, index, 0)
    os.unlink(out.file_of("dolp", 7, 3))
    missing = incomplete_frames(out, settings(), recording)
    assert missing.tolist() == [0, *range(7000, 8000), 123_456, count - 1]
    assert sum(len(files) for _, _, files in os.walk(out.path)) < 3100


def test_a_writer_without_the_lock_marks_what_its_chunk_has(folder, out, tmp_path, monkeypatch):
    """It stops behind its look at the marks; another goes on without the lock and does all."""
    put_back = spoiled(folder / "f02.tif")
    finish = storing.Chunk._finish_files

    def stopping(chunk):
        monkeypatch.setattr(storing.Chunk, "_finish_files", finish)
        monkeypatch.setattr(storing, "_SECONDS_FOR_A_LOCK", 0.02)
        put_back()
        assert process(folder, out, range(4)) == []
        finish(chunk)

    monkeypatch.setattr(storing.Chunk, "_finish_files", stopping)
    assert process(folder, out, range(4)) == [2]
    assert_equal(out.path, frames_of(FRAMES), [0, 1, 3])
    assert marked(tmp_path / "out.zarr") == [0, 1, 3]


def test_a_lost_chunk_costs_only_the_frames_that_cannot_be_read(
    folder, tmp_path, clock, monkeypatch, capsys
):
    line = options("--frames-per-chunk", PER_CHUNK)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *line) == 0
    os.unlink(tmp_path / "out.zarr" / "dolp" / "1.0.0")
    spoiled(folder / "f05.tif")
    capsys.readouterr()
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *line) == 1
    assert "3 frames done, 7 skipped, 1 failed" in capsys.readouterr().out
    wanted = [*range(5), *range(6, FRAMES)]
    assert_equal(tmp_path / "out.zarr", frames_of(FRAMES), wanted)
    assert marked(tmp_path / "out.zarr") == wanted


def problems(folder, out, indices):
    recording = _recordings.open_recording(folder)
    outcome = process_frames(recording, out, settings(), indices, vp.__version__)
    return [problem for _, problem in outcome]


def test_a_chunk_that_cannot_be_unpacked_is_told_with_its_file(folder, tmp_path):
    out = output(tmp_path / "out.zarr", "lz4", frames_per_chunk=PER_CHUNK)
    assert process(folder, out, [0, 1]) == []
    file = out.file_of("s0", 0, 3)
    size = os.path.getsize(file)
    with open(file, "r+b") as stream:
        stream.seek(16)
        stream.write(b"\xff" * (size - 16))
    line = f"{file} is damaged; remove it, and the same command goes on from here"
    assert problems(folder, out, [2]) == [line]


def test_a_chunk_beyond_memory_is_told_with_its_remedy(folder, out, monkeypatch):
    process(folder, out, [])

    def no_memory(*arguments):
        raise MemoryError("Unable to allocate 9 GiB")

    monkeypatch.setattr(storing.Chunk, "_put", no_memory)
    (problem,) = problems(folder, out, [2])
    assert problem.startswith("its chunk does not fit into memory; give more of it to the worker")
    assert "--frames-per-chunk" in problem


def test_a_chunk_is_gone_on_with_a_frame_at_a_time(folder, tmp_path, monkeypatch):
    out = output(tmp_path / "out.zarr", "none", frames_per_chunk=PER_CHUNK)
    assert process(folder, out, [0, 1, 3]) == []
    sizes = []
    from_buffer = np.frombuffer

    def watched(data, *more):
        sizes.append(len(data))
        return from_buffer(data, *more)

    monkeypatch.setattr(storing.np, "frombuffer", watched)
    assert process(folder, out, [2]) == []
    assert max(sizes) == 64 * 96 * 2
    assert assert_equal(out.path, frames_of(FRAMES), range(4)) == 4


def test_frames_of_a_chunk_show_that_the_run_goes_on(folder, out, monkeypatch):
    process(folder, out, [])
    os.utime(out.mark_file(0), (1, 1))
    seen = []
    put = storing.Chunk.put

    def putting(chunk, position, planes):
        seen.append(out.last_mark(0, 3) > 10**9)
        put(chunk, position, planes)

    monkeypatch.setattr(storing.Chunk, "put", putting)
    assert process(folder, out, range(3)) == []
    assert seen == [False, True, True]
