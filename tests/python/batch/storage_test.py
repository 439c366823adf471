"""Storage that gives up or changes while a run is at work: what ends the run, what one frame only."""

from __future__ import annotations

import errno
import os

import pytest
import tifffile
from batch_support import Made_up_client, assert_equal, completed, frames_of, options
from made_up_run import FRAMES, a_run, clock, command_on, recording

import veldrane_polarization as vp
from veldrane_polarization._recordings import pictures
from veldrane_polarization.batch import output_group, retrying, running, storing

# Fixtures.
__all__ = ["a_run", "clock", "recording"]


@pytest.mark.parametrize(
    "number, words",
    [
        (errno.ENOSPC, "No space left on device); make room there, and"),
        (errno.EDQUOT, "Disk quota exceeded); make room there, and"),
        (errno.EROFS, "Read-only file system); make it writable, and"),
    ],
)
def test_storage_that_takes_no_frame_ends_the_run(
    tmp_path, recording, clock, monkeypatch, capsys, number, words
):
    usual, refused = os.replace, []

    def replace(one, other):
        if refused or str(other).endswith("dolp/2.0.0"):
            refused.append(other)
            raise OSError(number, os.strerror(number), one)
        usual(one, other)

    with monkeypatch.context() as full:
        full.setattr(os, "replace", replace)
        assert command_on(Made_up_client(clock), tmp_path, full) == 1
    out = tmp_path / "out.zarr"
    printed, errors = capsys.readouterr()
    assert "2 frames done, 0 skipped, 0 failed, 3 not finished" in printed and len(refused) == 1
    assert errors == (
        f"error: {out} cannot be written any more ({words} the same command goes on " "from here\n"
    )
    assert not list(out.glob("**/*.partial"))
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 0
    assert "3 frames done, 2 skipped, 0 failed" in capsys.readouterr().out
    assert assert_equal(out, frames_of(FRAMES)) == FRAMES


@pytest.mark.parametrize("number", (errno.EIO, errno.ENOENT))
def test_one_frame_that_cannot_be_stored_ends_no_run(
    tmp_path, recording, clock, monkeypatch, capsys, number
):
    usual = os.replace

    def replace(one, other):
        if str(other).endswith("dolp/2.0.0"):
            raise OSError(number, os.strerror(number), one)
        usual(one, other)

    monkeypatch.setattr(os, "replace", replace)
    monkeypatch.setattr(retrying, "_SECONDS", 0)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
    printed, errors = capsys.readouterr()
    assert f"{FRAMES - 1} frames done, 0 skipped, 1 failed, " in printed
    assert errors == (
        f"error: {tmp_path}/in.zarr frame 2: cannot be stored ({os.strerror(number)}); "
        "see to its file, and the same command goes on from here\n"
    )


def test_an_out_that_is_taken_away_ends_the_run(tmp_path, recording, clock, monkeypatch, capsys):
    out, store = tmp_path / "out.zarr", storing.Chunk.store

    def taking(self, done):
        store(self, done)
        if self.number == 1:
            out.rename(tmp_path / "taken")

    with monkeypatch.context() as taken:
        taken.setattr(storing.Chunk, "store", taking)
        assert command_on(Made_up_client(clock), tmp_path, taken) == 1
    printed, errors = capsys.readouterr()
    assert "2 frames done, 0 skipped, 0 failed, 3 not finished" in printed
    assert errors == (
        f"error: {out} cannot be written any more (No such file or directory); put it where every "
        "worker sees it, and the same command goes on from here\n"
    )
    (tmp_path / "taken").rename(out)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 0
    assert assert_equal(out, frames_of(FRAMES)) == FRAMES


def test_an_out_that_is_taken_away_while_nothing_is_done_ends_the_run(clock, a_run, tmp_path):
    run, report = a_run(Made_up_client(clock, held=(0,)))
    (tmp_path / "out.zarr" / "complete").rename(tmp_path / "taken")
    words = "out.zarr cannot be read any more .No such file or directory.; put it back, and"
    with pytest.raises(running.Unfinished, match=words):
        run.process([FRAMES - 1], 1)
    assert report.handled == 0


def written_to(file):
    with open(file, "ab") as stream:
        stream.write(b"x")


def touched(file):
    """Within the same second."""
    status = os.stat(file)
    os.utime(file, ns=(status.st_atime_ns, status.st_mtime_ns ^ 4096))


@pytest.mark.parametrize(
    "change, words",
    [(written_to, "was changed from 46080 to 46081 bytes"), (touched, "was written to")],
)
def test_bare_samples_that_are_written_to_end_the_run(
    tmp_path, clock, monkeypatch, capsys, change, words
):
    source, out = tmp_path / "in.raw", tmp_path / "out.zarr"
    source.write_bytes(b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames_of(FRAMES)))
    store = storing.Chunk.store

    def changing(self, done):
        store(self, done)
        if self.number == 1:
            change(source)

    monkeypatch.setattr(storing.Chunk, "store", changing)
    line = ("--pixel-format", "Mono12p", "--height", 64, "--width", 96, "--layout", 2)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in.raw", *line) == 1
    printed, errors = capsys.readouterr()
    assert "2 frames done, 0 skipped, 0 failed, 3 not finished" in printed
    assert errors == (
        f"error: {source} {words} while the run read it; give another OUT, once nothing "
        "writes to it any more\n"
    )
    assert completed(out) == 2
    # What was not read of the recording as it was is not added later.
    if change is written_to:
        source.write_bytes(source.read_bytes()[:-1])
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in.raw", *line) == 2
    assert "was made with source.modified" in capsys.readouterr().err


def test_a_file_of_pictures_that_is_written_again_ends_the_run(
    tmp_path, clock, monkeypatch, capsys
):
    file, out = tmp_path / "run.tif", tmp_path / "out.zarr"
    tifffile.imwrite(file, frames_of(FRAMES), photometric="minisblack")
    before = os.stat(file)
    store = storing.Chunk.store

    def changing(self, done):
        store(self, done)
        if self.number == 1:
            tifffile.imwrite(file, frames_of(FRAMES)[::-1], photometric="minisblack")
            os.utime(file, ns=(before.st_atime_ns, before.st_mtime_ns + 4000))

    with monkeypatch.context() as changed:
        changed.setattr(storing.Chunk, "store", changing)
        assert command_on(Made_up_client(clock), tmp_path, changed, "run.tif", *options()) == 1
    printed, errors = capsys.readouterr()
    assert "2 frames done, 0 skipped, 0 failed, 3 not finished" in printed and completed(out) == 2
    assert errors == (
        f"error: {file} was written to while the run read it; give another OUT, once nothing "
        "writes to it any more\n"
    )
    # Its other frames do not go with those.
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "run.tif", *options()) == 2
    assert "was made with source.modified" in capsys.readouterr().err and completed(out) == 2


def test_a_picture_that_is_written_to_while_it_is_read_ends_the_run(
    tmp_path, clock, monkeypatch, capsys
):
    folder, out, frames = tmp_path / "in", tmp_path / "out.zarr", frames_of(FRAMES)
    folder.mkdir()
    for number, frame in enumerate(frames):
        tifffile.imwrite(folder / f"f{number}.tif", frame)
    usual = pictures.read_frame

    def reading(file, number):
        picture = usual(file, number)
        if file.endswith("f2.tif"):
            touched(file)
        return picture

    with monkeypatch.context() as written:
        written.setattr(pictures, "read_frame", reading)
        assert command_on(Made_up_client(clock), tmp_path, written, "in", *options()) == 1
    printed, errors = capsys.readouterr()
    assert "2 frames done, 0 skipped, 0 failed, 3 not finished" in printed and completed(out) == 2
    assert errors == (
        f"error: {folder}/f2.tif was written to while the run read it; the same command "
        "goes on once nothing writes to it any more\n"
    )
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *options()) == 0
    assert assert_equal(out, frames) == FRAMES


def test_a_picture_that_has_gone_fails_in_our_words(tmp_path, clock, monkeypatch, capsys):
    folder = tmp_path / "in"
    folder.mkdir()
    for number, frame in enumerate(frames_of(FRAMES)):
        tifffile.imwrite(folder / f"f{number}.tif", frame)
    check = output_group.check
    monkeypatch.setattr(
        output_group, "check", lambda *arguments: (check(*arguments), (folder / "f2.tif").unlink())
    )
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch, "in", *options()) == 1
    printed, errors = capsys.readouterr()
    assert f"{FRAMES - 1} frames done, 0 skipped, 1 failed" in printed
    assert errors == (
        f"error: {folder}/f2.tif: cannot be read (No such file or directory); see to its "
        "file, and the same command goes on from here\n"
    )
