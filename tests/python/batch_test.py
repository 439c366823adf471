"""The command for recordings: inputs, resuming, failures, a killed worker, a killed client."""

from __future__ import annotations

import contextlib
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest
import tifffile
import zarr
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _batch_work, _recordings, batch

LAYOUT, BIT_DEPTH = "90,45,135,0", 12
HERE = Path(__file__).parent


def command(*arguments):
    return [sys.executable, "-B", "-m", "veldrane_polarization.batch", *map(str, arguments)]


def run(*arguments):
    done = subprocess.run(command(*arguments), capture_output=True, text=True, timeout=300)
    return done.returncode, done.stdout, done.stderr


def options(*more):
    return ("--layout", LAYOUT, "--bit-depth", BIT_DEPTH, *more)


def frames_of(count, height=64, width=96):
    one = vp.simulate(height, width, layout=2, frames=min(count, 8)).frames
    numbers = np.arange(count, dtype=np.uint16)[:, None, None]
    return np.minimum(np.resize(one, (count, height, width)) + numbers, 4095).astype(np.uint16)


def assert_equal(out, frames, indices=None, **changes):
    """Bit for bit what one process gives."""
    group = zarr.open_group(str(out), mode="r")
    chosen = range(len(frames)) if indices is None else indices
    names = group.attrs["planes"]
    assert names
    for index in chosen:
        expected = vp.process(frames[index], layout=2, bit_depth=BIT_DEPTH, planes=names, **changes)
        for name in names:
            stored = group[name][index]
            assert stored.dtype == expected[name].dtype
            assert stored.tobytes() == expected[name].tobytes(), (index, name)
        assert group["complete"][index] == 1
    return len(chosen)


@pytest.fixture
def cluster(tmp_path):
    """A scheduler and two worker processes on loopback; nothing restarts them."""
    environment = os.environ | {"DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES": "10"}
    file = tmp_path / "scheduler.json"
    started = [subprocess.Popen(
        [sys.executable, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port", "0",
         "--no-dashboard", "--scheduler-file", file], env=environment, stderr=subprocess.DEVNULL)]
    wait_until(file.exists)
    for number in range(2):
        started.append(subprocess.Popen(
            [sys.executable, "-m", "distributed.cli.dask_worker", "--scheduler-file", file,
             "--no-nanny", "--nthreads", "1", "--no-dashboard", "--name", f"worker-{number}",
             "--local-directory", tmp_path / f"worker-{number}"],
            env=environment, stderr=subprocess.DEVNULL))
    import json

    wait_until(lambda: file.read_text().endswith("}"))
    address = json.loads(file.read_text())["address"]
    from distributed import Client

    with Client(address, timeout=60) as client:
        client.wait_for_workers(2, timeout=60)
    yield address, started[1:]
    for process in reversed(started):
        with contextlib.suppress(ProcessLookupError):
            process.kill()
        process.wait()


def wait_until(condition, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.005)


def completed(out):
    folder = out / "complete"
    return sum(name.isdigit() for name in os.listdir(folder)) if folder.exists() else 0


def test_a_worker_killed_in_the_middle_costs_no_frame(tmp_path, cluster, capsys):
    address, workers = cluster
    frames = frames_of(240, 400, 600)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(1, 400, 600))
    out = tmp_path / "out.zarr"
    client = subprocess.Popen(
        command(tmp_path / "in.zarr", out, *options("--scheduler", address, "--planes", "all")),
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    wait_until(lambda: completed(out) >= 60)
    workers[0].send_signal(signal.SIGKILL)
    at_kill = completed(out)
    printed, errors = client.communicate(timeout=240)
    assert workers[0].wait() == -signal.SIGKILL and workers[1].poll() is None
    assert client.returncode == 0, errors
    assert at_kill < 240, "the run was over before the kill"
    assert "240 frames done, 0 skipped, 0 failed" in printed
    compared = assert_equal(out, frames)
    assert not list(out.glob("*/*.partial"))
    with capsys.disabled():
        print(f"\n  worker killed with {at_kill} of 240 frames stored; {compared} frames equal; "
              f"{printed.strip()}")


def test_a_killed_client_goes_on_where_it_ended(tmp_path, cluster, capsys):
    address, _ = cluster
    frames = frames_of(220, 400, 600)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(1, 400, 600))
    out = tmp_path / "out.zarr"
    line = command(tmp_path / "in.zarr", out, *options("--scheduler", address))
    client = subprocess.Popen(line, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: completed(out) >= 50)
    client.kill()
    client.wait()
    # Tasks that had begun may still end.
    before = -1
    while before != completed(out):
        before = completed(out)
        time.sleep(1)
    assert 50 <= before < 220
    # A frame that was half written: one plane of three, cut off, and no mark.
    half = next(index for index in range(220) if not (out / "complete" / str(index)).exists())
    (out / "s0" / f"{half}.0.0").write_bytes(b"half a chunk")
    times = {index: (out / "dolp" / f"{index}.0.0").stat().st_mtime_ns for index in range(220)
             if (out / "complete" / str(index)).exists()}
    code, printed, errors = run(*line[4:])
    assert code == 0, errors
    assert f"{220 - before} frames done, {before} skipped, 0 failed" in printed
    assert all((out / "dolp" / f"{index}.0.0").stat().st_mtime_ns == then
               for index, then in times.items())
    compared = assert_equal(out, frames)
    code, printed_again, _ = run(*line[4:])
    assert code == 0 and "0 frames done, 220 skipped" in printed_again
    with capsys.disabled():
        print(f"\n  client killed with {before} of 220 frames stored; {compared} frames equal; "
              f"{printed.strip()}")


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
        b"header" + b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames))
    raw = ("--pixel-format", "Mono12p", "--height", 64, "--width", 96, "--header-bytes", 6)
    for name, more in (("in.zarr", ()), ("tif", ()), ("png", ()), ("in.raw", raw)):
        recording = _recordings.open_recording(
            tmp_path / name, *(("Mono12p", 64, 96, 6) if more else ()))
        assert recording.count == 5 and recording.shape == (64, 96)
        assert np.array_equal(recording.read(1, 4), frames[1:4]), name
    code, printed, errors = run(tmp_path / "in.raw", tmp_path / "out.zarr", "--layout", "2", *raw,
                                "--planes", "all", "--signed", "--compression", "none",
                                "--workers", 1)
    assert code == 0 and "5 frames done" in printed, errors
    assert assert_equal(tmp_path / "out.zarr", frames, signed=True) == 5
    import xarray

    data = xarray.open_zarr(tmp_path / "out.zarr", consolidated=False)
    assert dict(data.sizes) == {"time": 5, "y": 64, "x": 96, "component": 2}
    assert data.attrs["layout"] == [90, 45, 135, 0] and data.dolp.attrs["units"] == "1"
    expected = vp.process(frames, layout=2, bit_depth=12)
    np.testing.assert_allclose(data.dolp, expected.dolp / 65535, rtol=1e-6)


def test_failures_are_listed_by_frame_and_the_rest_is_done(tmp_path):
    frames = frames_of(6)
    folder = tmp_path / "in"
    folder.mkdir()
    for number, frame in enumerate(frames):
        tifffile.imwrite(folder / f"f{number}.tif", frame)
    (folder / "f1.tif").write_bytes((folder / "f1.tif").read_bytes()[:300])
    tifffile.imwrite(folder / "f4.tif", frames[4][:32])
    out = tmp_path / "out.zarr"
    line = (folder, out, *options("--workers", 1))
    code, printed, errors = run(*line)
    assert code == 1 and "4 frames done, 0 skipped, 2 failed" in printed
    listed = [text for text in errors.splitlines() if text.startswith("error: ")]
    assert len(listed) == 2 and "f1.tif" in listed[0] and "(32, 96)" in listed[1]
    assert_equal(out, frames, [0, 2, 3, 5])
    tifffile.imwrite(folder / "f1.tif", frames[1])
    tifffile.imwrite(folder / "f4.tif", frames[4])
    code, printed, errors = run(*line)
    assert code == 0 and "2 frames done, 4 skipped, 0 failed" in printed
    assert_equal(out, frames)


def settings(**changes):
    values = dict(phase=2, bit_depth=12, planes=("s0", "dolp"), mode="fast", calibration=None,
                  full_scale=65535, signed=False)
    return _batch_work.Settings(**(values | changes))


@pytest.mark.parametrize("lost", ("complete/3", "s0/3.0.0", "dolp/3.0.0"))
def test_a_frame_without_any_of_its_parts_is_not_complete(tmp_path, lost):
    frames = frames_of(6)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(4, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    out = str(tmp_path / "out.zarr")
    _batch_work.create(out, settings(), recording, None)
    assert _batch_work.incomplete_frames(out, settings(), 6) == list(range(6))
    outcome = _batch_work.process_frames(recording, out, settings(), range(6))
    assert outcome == [(index, None) for index in range(6)]
    assert _batch_work.incomplete_frames(out, settings(), 6) == []
    (tmp_path / "out.zarr" / lost).unlink()
    assert _batch_work.incomplete_frames(out, settings(), 6) == [3]


def test_the_mark_is_written_after_every_plane(tmp_path):
    order = []

    class Array(dict):
        def __init__(self, name):
            self.name = name

        def __setitem__(self, index, value):
            order.append(self.name)

    recording = _recordings.Raw_recording("x", "Mono12", 1, (64, 96), 0, 0)
    arrays = {name: Array(name) for name in ("s0", "dolp", "complete")}
    _batch_work._store(frames_of(1)[0], 0, recording, settings(), arrays)
    assert order == ["s0", "dolp", "complete"]


def test_frames_of_one_chunk_make_one_task():
    assert list(batch._tasks([0, 1, 2, 5, 6, 7, 8], 4)) == [[0, 1, 2], [5, 6, 7], [8]]
    assert list(batch._tasks([], 4)) == []


@pytest.mark.parametrize("arguments, words", [
    (("nowhere", "out", *options()), "nowhere does not exist"),
    (("in.raw", "out", *options()), "--pixel-format"),
    (("in.raw", "out", "--layout", "2", "--pixel-format", "Mono12p"), "--height and --width"),
    (("in.raw", "out", "--layout", "2", "--pixel-format", "Mono12p", "--height", "2", "--width", "16"),
     "not a multiple"),
    (("in.zarr", "out", "--layout", "2"), "--bit-depth is missing"),
    (("in.zarr", "out", "--bit-depth", "12"), "layout is missing"),
    (("in.zarr", "out", *options("--planes", "aolp")), "'aolp'"),
    (("in.zarr", "out", *options("--mode", "fast", "--calibration", "c.json")), "leave out mode"),
    (("in.zarr", "in.zarr", *options()), "no zarr group"),
    (("empty", "out", *options()), "no TIFF or PNG"),
    (("in.zarr", "out", *options("--workers", "2", "--scheduler", "tcp://127.0.0.1:9")), "exclude"),
    (("in.zarr", "out", *options("--workers", "0")), "1 to 1024"),
    (("in.zarr", "other", *options("--full-scale", "4095")), "was made with"),
    (("in.zarr", "out", *options("--scheduler", "tcp://127.0.0.1:9")), "does not answer"),
])
def test_wrong_usage_is_one_line_and_code_2(tmp_path, monkeypatch, capsys, arguments, words):
    monkeypatch.chdir(tmp_path)
    zarr.save_array("in.zarr", frames_of(2), chunks=(1, 64, 96))
    Path("in.raw").write_bytes(bytes(1000))
    Path("empty").mkdir()
    vp.Calibration.ideal(2).save("c.json")
    recording = _recordings.open_recording(Path("in.zarr").resolve())
    _batch_work.create("other", settings(planes=("s0", "azimuth", "dolp")), recording, None)
    monkeypatch.setattr("distributed.Client.__init__", _refuse, raising=True)
    assert batch.main(list(map(str, arguments))) == 2
    errors = capsys.readouterr().err
    assert errors.startswith("error: ") and errors.count("\n") == 1 and words in errors, errors


def _refuse(self, *arguments, **options):
    raise OSError("timed out")
