"""Going on with a run: what counts as complete, which OUT is gone on with, which is refused."""

from __future__ import annotations

import json
import os
import shutil
import threading
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import tifffile
import zarr
from batch_support import assert_equal, frames_of, mark, output, settings, store_all

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization.batch import output_group
from veldrane_polarization.batch.output_group import Output_error, incomplete_frames, prepare


@pytest.fixture
def recording(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(6), chunks=(4, 64, 96))
    return _recordings.open_recording(tmp_path / "in.zarr")


def raw_recording(folder, **changes):
    values = dict(pixel_format="Mono12p", height=64, width=96, header=8, stride=None) | changes
    file = folder / "in.raw"
    if not file.exists():
        file.write_bytes(bytes(8) + bytes(64 * 144 * 4))
    return _recordings.open_recording(file, *values.values())


@pytest.mark.parametrize("compression", ("lz4", "none"))
def test_a_frame_without_any_of_its_parts_is_not_complete(tmp_path, recording, compression):
    out = output(tmp_path / "out.zarr", compression)
    prepare(out, settings(), recording)
    assert incomplete_frames(out, settings(), recording).tolist() == list(range(6))
    store_all(recording, out)
    assert incomplete_frames(out, settings(), recording).tolist() == []
    damages = 0
    mark(out, 3, 0)
    assert incomplete_frames(out, settings(), recording).tolist() == [3]
    mark(out, 3, 255)  # as no worker marks
    assert incomplete_frames(out, settings(), recording).tolist() == [3]
    mark(out, 3)
    for part in ("complete/0", "s0/3.0.0", "dolp/3.0.0"):
        file = tmp_path / "out.zarr" / part
        whole = file.read_bytes()
        for damaged in (None, b"", whole[:-1], whole + b"\0", b"\0" * len(whole)):
            if part != "complete/0" and damaged == b"\0" * len(whole) and compression == "none":
                continue  # samples like others
            file.unlink(missing_ok=True)
            if damaged is not None:
                file.write_bytes(damaged)
            missing = list(range(6)) if part == "complete/0" else [3]
            assert incomplete_frames(out, settings(), recording).tolist() == missing, (
                part,
                damaged,
            )
            damages += 1
        file.write_bytes(whole)
        assert incomplete_frames(out, settings(), recording).tolist() == []
    assert damages >= 13


def test_a_mark_that_was_taken_back_has_its_frame_done_again(tmp_path, recording):
    out = output(tmp_path / "out.zarr")
    store_all(recording, out)
    group = zarr.open_group(out.path)
    group["complete"][2] = 0
    assert incomplete_frames(out, settings(), recording).tolist() == [2]


def test_a_missing_mark_is_read_as_not_complete(tmp_path, recording):
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(), recording)
    np.full(1000, 1, np.uint8)  # memory that comes again
    assert not zarr.open_group(out.path, mode="r")["complete"][:].any()
    (tmp_path / "out.zarr" / "complete" / "0").unlink()
    assert not zarr.open_group(out.path, mode="r")["complete"][:].any()


def test_an_out_of_other_options_is_refused(tmp_path, recording):
    calibration = vp.imperfect_sensor(2, seed=3)
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(), recording)
    prepare(out, settings(), recording)
    others = dict(
        phase=1, bit_depth=11, planes=("s0",), mode="calibrated", full_scale=4095, signed=True
    )
    words = dict(phase="layout", full_scale="full_scale 65535, not 4095")
    for name, value in others.items():
        with pytest.raises(Output_error, match=f"was made with {words.get(name, name)}"):
            prepare(out, settings(**{name: value}), recording)
    with pytest.raises(Output_error, match="compression 'lz4', not 'none'"):
        prepare(output(out.path, "none"), settings(), recording)
    with pytest.raises(Output_error, match="was made with mode"):
        prepare(out, settings(mode="calibrated", calibration=calibration), recording)
    assert incomplete_frames(out, settings(), recording).tolist() == list(range(6))


def test_another_calibration_is_refused_and_the_same_elsewhere_is_not(tmp_path, recording):
    one, other = (vp.imperfect_sensor(2, seed=seed) for seed in (3, 4))
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(mode="calibrated", calibration=one, calibration_file="/a"), recording)
    prepare(out, settings(mode="calibrated", calibration=one, calibration_file="/b"), recording)
    for calibration in (other, None):
        with pytest.raises(Output_error, match="was made with another calibration"):
            prepare(out, settings(mode="calibrated", calibration=calibration), recording)


def test_an_out_of_another_recording_is_refused(tmp_path, recording):
    out, chosen = output(tmp_path / "zarr.zarr"), settings(bit_depth=8)
    prepare(out, chosen, recording)
    # The same shape, number and name of frames; another array at another place.
    shutil.copytree(tmp_path / "in.zarr", tmp_path / "copy.zarr")
    refused = 0
    for other, words in (
        (_recordings.open_recording(tmp_path / "copy.zarr"), r"source.file '.*in.zarr', not"),
        (raw_recording(tmp_path), "source.kind 'zarr array', not 'bare samples'"),
    ):
        with pytest.raises(Output_error, match=words):
            prepare(out, chosen, other)
        refused += 1
    for changes, words in (
        (dict(shape=frames_of(5).shape, chunks=(4, 64, 96)), "source.frames 6, not 5"),
        (dict(shape=(6, 64, 94), chunks=(4, 64, 94)), r"source.frame_shape \[64, 96\]"),
        (dict(shape=(6, 64, 96), chunks=(4, 64, 96), dtype="u1"), "source.dtype 'uint16', not"),
        (dict(shape=(6, 64, 96), chunks=(2, 64, 96)), "source.chunks"),
    ):
        zarr.open_array(recording.path, mode="w", **({"dtype": "u2"} | changes))
        other = _recordings.open_recording(tmp_path / "in.zarr")
        with pytest.raises(Output_error, match=words):
            prepare(out, chosen, other)
        refused += 1
    assert refused == 6


def test_bare_samples_that_changed_are_refused(tmp_path):
    out = output(tmp_path / "raw.zarr")
    prepare(out, settings(), raw_recording(tmp_path))
    prepare(out, settings(), raw_recording(tmp_path))
    for changes, words in (
        (dict(pixel_format="Mono12Packed"), "source.pixel_format 'Mono12p'"),
        (dict(header=8 + 64 * 144), "source.frames 4, not 3"),
        (dict(stride=144), "source.stride 0, not 144"),
        (dict(height=32), "source.frames 4, not 8"),
    ):
        with pytest.raises(Output_error, match=words):
            prepare(out, settings(), raw_recording(tmp_path, **changes))
    file = tmp_path / "in.raw"
    kept = file.stat()
    file.write_bytes(file.read_bytes()[4:])  # as many frames, another header
    os.utime(file, ns=(kept.st_atime_ns, kept.st_mtime_ns))
    with pytest.raises(Output_error, match="source.header_bytes 8, not 4"):
        prepare(out, settings(), raw_recording(tmp_path, header=4))
    file.write_bytes(bytes(4) + file.read_bytes())
    os.utime(file, ns=(kept.st_atime_ns, kept.st_mtime_ns + 5 * 10**9))
    with pytest.raises(Output_error, match="source.modified"):
        prepare(out, settings(), raw_recording(tmp_path))


def test_another_build_of_the_same_version_goes_on(tmp_path, recording, monkeypatch):
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(), recording)
    monkeypatch.setattr(output_group, "processor_identification", lambda: "Version = of yesterday")
    prepare(out, settings(), recording)
    monkeypatch.setattr(output_group, "software_version", lambda: "0.9.0.0")
    with pytest.raises(Output_error, match="software.version"):
        prepare(out, settings(), recording)


def test_a_folder_of_other_names_is_refused_and_mended_files_are_not(tmp_path):
    folder = tmp_path / "in"
    folder.mkdir()
    for number, frame in enumerate(frames_of(3)):
        tifffile.imwrite(folder / f"f{number}.tif", frame)
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(), _recordings.open_recording(folder))
    tifffile.imwrite(folder / "f1.tif", frames_of(1)[0], compression="zlib")
    prepare(out, settings(), _recordings.open_recording(folder))
    (folder / "f1.tif").rename(folder / "f3.tif")
    with pytest.raises(Output_error, match="files of other names"):
        prepare(out, settings(), _recordings.open_recording(folder))


@pytest.mark.parametrize("there", (False, True))
def test_a_crash_while_out_is_made_is_gone_on_from(tmp_path, recording, monkeypatch, there):
    """Stopped before each step that changes the disk, then done again; in a user's folder, too."""
    replace, stops = os.replace, 0
    for allowed in range(100):
        path = tmp_path / f"out{allowed}.zarr"
        out = output(path)
        if there:
            path.mkdir(0o750)
        left = [allowed]

        def replacing(*names):
            left[0] -= 1
            if left[0] < 0:
                raise KeyboardInterrupt
            return replace(*names)

        monkeypatch.setattr(os, "replace", replacing)
        try:
            prepare(out, settings(), recording)
        except KeyboardInterrupt:
            stops += 1
            assert left[0] < 0
        monkeypatch.setattr(os, "replace", replace)
        if left[0] < 0:
            assert there or not path.exists()
            if (path / ".zattrs").exists():
                with pytest.raises(Output_error, match="signed"):
                    prepare(out, settings(signed=True), recording)
        store_all(recording, out)
        assert json.loads((path / ".zattrs").read_text())["state"] == "ready"
        assert_equal(out.path, frames_of(6))
        assert not list(tmp_path.glob("**/*.partial"))
        assert not there or path.stat().st_mode & 0o777 == 0o750
        if left[0] >= 0:
            break
    assert stops >= 8


@pytest.mark.parametrize("there", (False, True))
def test_of_runs_that_begin_at_the_same_moment_one_has_out(tmp_path, recording, monkeypatch, there):
    """Each has seen that nothing is there before any of them goes on; half have the same options."""
    starts, path = 12, tmp_path / "out.zarr"
    if there:
        path.mkdir()
    together = threading.Barrier(starts)
    write, waited = output_group._write_attributes, threading.local()

    def writing(*arguments):
        if not hasattr(waited, "once"):
            waited.once = True
            together.wait(300)
        write(*arguments)

    monkeypatch.setattr(output_group, "_write_attributes", writing)

    def start(number):
        full_scale = 65535 - number // 2
        try:
            prepare(output(path, run=f"{number:08x}"), settings(full_scale=full_scale), recording)
        except Output_error as error:
            assert "was made with full_scale" in str(error), error
            return None
        return full_scale

    with ThreadPoolExecutor(starts) as executor:
        winners = [scale for scale in executor.map(start, range(starts)) if scale]
    assert len(winners) == 2 and winners[0] == winners[1]
    found = {
        json.loads(file.read_text())["full_scale"]
        for file in path.glob("**/.zattrs")
        if file.parent.name != "complete"
    }
    assert found == set(winners)
    assert {file.name for file in tmp_path.iterdir()} == {"in.zarr", "out.zarr"}
    assert {file.name for file in path.iterdir()} == {
        ".zattrs",
        ".zgroup",
        "s0",
        "dolp",
        "complete",
    }
    prepare(output(path), settings(full_scale=winners[0]), recording)


def test_a_run_that_cannot_begin_does_not_bind_out(tmp_path, recording):
    path = tmp_path / "out.zarr"
    output_group.check(output(path), settings(), recording)
    assert not path.exists() and not list(tmp_path.glob("*.partial"))
    prepare(output(path), settings(signed=True), recording)
    with pytest.raises(Output_error, match="signed"):
        output_group.check(output(path), settings(), recording)


@pytest.mark.parametrize(
    "part", ("dolp", "dolp/.zarray", "dolp/.zattrs", ".zgroup", "complete/.zarray")
)
def test_what_was_taken_away_of_an_out_is_made_anew(tmp_path, recording, part):
    out = output(tmp_path / "out.zarr")
    store_all(recording, out)
    taken = tmp_path / "out.zarr" / part
    taken.rename(tmp_path / "taken")
    output_group.check(out, settings(), recording)
    missing = incomplete_frames(out, settings(), recording).tolist()
    assert missing == (list(range(6)) if part == "dolp" else [])
    store_all(recording, out)
    assert_equal(out.path, frames_of(6))


@pytest.mark.parametrize(
    "make, words",
    [
        (lambda path: path.write_text("x"), "is a file"),
        (
            lambda path: zarr.open_group(str(path), mode="w"),
            "is a zarr group that this program did not",
        ),
        (lambda path: zarr.open_group(str(path), mode="w").attrs.update(a=1), "did not make"),
        (
            lambda path: zarr.save_array(str(path), np.zeros(3)),
            "is a folder that this program did not",
        ),
        (lambda path: zarr.save_group(str(path), s0=np.zeros(3)), "did not make"),
        (lambda path: (path.mkdir(), (path / "notes").write_text("x")), "did not make"),
        (lambda path: (path.mkdir(), (path / ".zattrs").write_text("")), ".zattrs is damaged"),
        (lambda path: (path.mkdir(), (path / ".zattrs").write_text("{")), ".zattrs is damaged"),
        (lambda path: (path.mkdir(), (path / ".zattrs").write_text("[]")), ".zattrs is damaged"),
        (
            lambda path: (path.mkdir(), (path / ".zattrs").write_bytes(b"\xff")),
            ".zattrs is damaged",
        ),
    ],
)
def test_what_others_made_is_not_touched(tmp_path, recording, make, words):
    path = tmp_path / "out.zarr"
    make(path)
    before = {file: file.read_bytes() for file in path.rglob("*") if file.is_file()}
    with pytest.raises(Output_error, match=words):
        prepare(output(path), settings(), recording)
    assert before == {file: file.read_bytes() for file in path.rglob("*") if file.is_file()}


@pytest.mark.parametrize(
    "key, value",
    [
        ("shape", [7, 64, 96]),
        ("chunks", [2, 64, 96]),
        ("dtype", "<i2"),
        ("order", "F"),
        ("fill_value", 0),
        ("compressor", None),
        ("filters", [{"id": "delta", "dtype": "<u2"}]),
        (None, None),
    ],
)
def test_an_array_of_another_form_is_refused(tmp_path, recording, key, value):
    out = output(tmp_path / "out.zarr")
    prepare(out, settings(), recording)
    file = tmp_path / "out.zarr" / "dolp" / ".zarray"
    metadata = json.loads(file.read_text())
    file.write_text("{" if key is None else json.dumps(metadata | {key: value}))
    with pytest.raises(
        Output_error, match="dolp.* is damaged" if key is None else "out.zarr/dolp has"
    ):
        prepare(out, settings(), recording)


def test_files_that_killed_writers_left_are_removed_and_no_others(tmp_path, recording):
    out = output(tmp_path / "out.zarr", run="0123abcd")
    store_all(recording, out)
    now = time.time()
    files = {
        "s0/1.0.0.0123abcd.11.partial": (0, False),
        "complete/1.0123abcd.11.partial": (0, False),
        "dolp/1.0.0.89efcdab.11.partial": (0, True),
        ".zattrs.11.partial": (0, True),
        "s0/2.0.0.89efcdab.11.partial": (7200, False),
        ".zattrs.12.partial": (7200, False),
        "s0/notes": (7200, True),
        "../download.partial": (7200, True),
        "../.veldrane.0123abcd.11.partial/.zgroup": (0, False),
        ".veldrane.89efcdab.11.partial/.zgroup": (7200, False),
        "../.veldrane.89efcdab.12.partial/.zgroup": (0, True),
    }
    for name, (age, _) in files.items():
        (tmp_path / "out.zarr" / name).parent.mkdir(exist_ok=True)
        (tmp_path / "out.zarr" / name).write_text("x")
        os.utime(tmp_path / "out.zarr" / name, (now - age, now - age))
        if name.endswith(".zgroup"):
            os.utime((tmp_path / "out.zarr" / name).parent, (now - age, now - age))
    output_group.remove_leftovers(out, settings())
    assert {name: (tmp_path / "out.zarr" / name).exists() for name in files} == {
        name: stays for name, (_, stays) in files.items()
    }
    assert_equal(out.path, frames_of(6))
