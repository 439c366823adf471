"""Errors of storage that pass, and those that stay."""

from __future__ import annotations

import errno
import os

import pytest
import zarr
from batch_support import Made_up_client, assert_equal, frames_of, output, settings
from made_up_run import FRAMES, clock, command_on, recording

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization._recordings import frame_files
from veldrane_polarization.batch import retrying
from veldrane_polarization.batch.output_group import prepare
from veldrane_polarization.batch.work import process_frames

# Fixtures.
__all__ = ["clock", "recording"]


@pytest.fixture
def pauses(monkeypatch):
    pauses = []
    monkeypatch.setattr(retrying.time, "sleep", pauses.append)
    return pauses


def failing(usual, error, times, is_meant):
    """Calls that are meant fail so many times. Which do is in the list."""
    failed = []

    def fail(*arguments):
        if len(failed) < times and is_meant(*arguments):
            failed.append(arguments)
            raise error
        return usual(*arguments)

    return fail, failed


PASSING = [
    OSError(number, os.strerror(number))
    for number in (errno.EIO, errno.ESTALE, errno.ETIMEDOUT, errno.EAGAIN, errno.ENETUNREACH)
] + [ConnectionResetError(errno.ECONNRESET, "Connection reset by peer"), ConnectionError("lost")]


@pytest.mark.parametrize("error", PASSING, ids=repr)
@pytest.mark.parametrize("times", (1, 2))
def test_a_chunk_is_stored_again(
    tmp_path, recording, clock, monkeypatch, capsys, pauses, error, times
):
    replace, failed = failing(
        os.replace, error, times, lambda _, place: str(place).endswith("dolp/2.0.0")
    )
    monkeypatch.setattr(os, "replace", replace)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 0
    printed, errors = capsys.readouterr()
    assert f"{FRAMES} frames done, 0 skipped, 0 failed, {times} retries, " in printed and not errors
    assert len(failed) == times == len(pauses)
    for pause, usual in zip(pauses, (0.5, 1)):
        assert usual / 2 <= pause <= usual * 3 / 2
    assert assert_equal(tmp_path / "out.zarr", frames_of(FRAMES)) == FRAMES
    assert not list(tmp_path.glob("**/*.partial"))


def test_a_frame_is_read_again(tmp_path, recording, clock, monkeypatch, capsys, pauses):
    error = OSError(errno.ESTALE, os.strerror(errno.ESTALE))
    read, failed = failing(
        _recordings.Zarr_recording.read, error, 2, lambda _, first, stop: first == 3
    )
    monkeypatch.setattr(_recordings.Zarr_recording, "read", read)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 0
    assert "0 failed, 2 retries, " in capsys.readouterr().out and len(failed) == 2
    assert assert_equal(tmp_path / "out.zarr", frames_of(FRAMES)) == FRAMES


def test_a_file_of_frames_is_opened_and_read_again(tmp_path, pauses, monkeypatch):
    """Its readers tell the system's error in words; what was open when it came stays lost."""
    file = tmp_path / "in.raw"
    file.write_bytes(bytes(64 * 144 * 2))
    recording = _recordings.open_recording(file, "Mono12p", 64, 96)
    opened = []

    class Lost:
        def __init__(self, file, *layout):
            opened.append(file)

        def read(self, number):
            raise ValueError(f"{file}: cannot be read: Stale file handle")

    frame_files._kept_open.cache_clear()
    monkeypatch.setattr(frame_files._native, "Frame_file", Lost)
    with pytest.raises(OSError, match="Stale file handle"):
        retrying.Retries()(lambda: recording.read(1, 2))
    assert len(opened) == 3 and len(pauses) == 2


def test_after_three_tries_it_is_told(tmp_path, recording, clock, monkeypatch, capsys, pauses):
    error = OSError(errno.ETIMEDOUT, os.strerror(errno.ETIMEDOUT))
    replace, failed = failing(
        os.replace, error, FRAMES * 3, lambda _, place: str(place).endswith("dolp/2.0.0")
    )
    monkeypatch.setattr(os, "replace", replace)
    assert command_on(Made_up_client(clock), tmp_path, monkeypatch) == 1
    printed, errors = capsys.readouterr()
    assert f"{FRAMES - 1} frames done, 0 skipped, 1 failed, 2 retries, " in printed
    assert "frame 2: cannot be stored (Connection timed out); see to its file" in errors
    assert len(failed) == 3


@pytest.mark.parametrize("number", (errno.ENOSPC, errno.ENOENT, errno.EACCES))
def test_what_stays_is_tried_once(number, pauses):
    act, failed = failing(lambda: None, OSError(number, os.strerror(number)), 1, lambda: True)
    retries = retrying.Retries()
    with pytest.raises(OSError):
        retries(act)
    assert len(failed) == 1 and retries.count == 0 and not pauses


def test_frames_of_a_chunk_that_had_its_tries_have_one_each(tmp_path, pauses, monkeypatch):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(4), chunks=(4, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    error = OSError(errno.EIO, os.strerror(errno.EIO))
    read, failed = failing(_recordings.Zarr_recording.read, error, 100, lambda *_: True)
    monkeypatch.setattr(_recordings.Zarr_recording, "read", read)
    out = output(tmp_path / "out.zarr", frames_per_chunk=4)
    prepare(out, settings(), recording)
    outcome = process_frames(recording, out, settings(), range(4), vp.__version__)
    assert [problem[:36] for _, problem in outcome] == ["cannot be read (Input/output error);"] * 4
    assert len(failed) == 3 + 4 and outcome.retries == 2
