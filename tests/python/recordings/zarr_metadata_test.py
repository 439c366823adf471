"""Metadata of arrays that lie or name codecs that run code: refused before zarr makes anything of them."""

from __future__ import annotations

import base64
import json
import os
import pickle

import numcodecs
import numpy as np
import pytest
import zarr
from batch_support import frames_of, output, settings
from numcodecs import registry

import veldrane_polarization as vp
from veldrane_polarization import _recordings, batch
from veldrane_polarization.batch import output_group, work


class Trap:
    """Makes a folder wherever it is unpickled."""

    def __reduce__(self):
        return eval, ("__import__('os').mkdir(__import__('os').environ['TRAP'])",)


@pytest.fixture
def place(tmp_path, monkeypatch):
    """A folder with an array that is fine; no codec but the usual ones may be made in it."""
    monkeypatch.setenv("TRAP", str(tmp_path / "trap"))
    monkeypatch.chdir(tmp_path)
    zarr.save_array("in.zarr", frames_of(3), chunks=(1, 64, 96))
    made = []
    original = registry.get_codec

    def watched(config):
        made.append(config["id"])
        return original(config)

    for module in (numcodecs, registry, zarr.core, zarr.meta.numcodecs):
        monkeypatch.setattr(module, "get_codec", watched, raising=False)
    yield tmp_path
    assert not (tmp_path / "trap").exists() and set(made) <= {"blosc", "delta", "shuffle"}, made


def change(folder, **fields):
    file = folder / ".zarray"
    file.write_text(json.dumps(json.loads(file.read_text()) | fields))


def refused(capsys, words, out="out"):
    line = ["in.zarr", out, "--layout", "2", "--bit-depth", "12", "--quiet"]
    assert batch.main(line) == 2
    printed, errors = capsys.readouterr()
    assert errors.startswith("error: ") and errors.count("\n") == 1 and not printed, errors
    assert words in errors and len(errors) < 500, errors
    return errors


PICKLE = {"id": "pickle", "protocol": 4}
BOMB = base64.b64encode(pickle.dumps(Trap())).decode()
CODE = {
    "a compressor": ({"compressor": PICKLE}, "the compressor is 'pickle'"),
    "a filter": ({"filters": [PICKLE]}, "the filter is 'pickle'"),
    "a later filter": ({"filters": [{"id": "shuffle"}, PICKLE]}, "the filter is 'pickle'"),
    "nested in a filter": (
        {"filters": [{"id": "delta", "dtype": "<u2", "astype": PICKLE}]},
        "astype of delta is {",
    ),
    "a compressor as a filter": (
        {"filters": [{"id": "blosc", "cname": "lz4"}]},
        "the filter is 'blosc'",
    ),
    "an object codec": ({"dtype": "|O", "filters": [PICKLE], "fill_value": BOMB}, "dtype is '|O'"),
    "fields of objects": (
        {"dtype": [["a", "|O"]], "filters": [PICKLE], "fill_value": BOMB},
        "dtype is [[",
    ),
    "json": ({"compressor": {"id": "json2"}}, "the compressor is 'json2'"),
    "a codec of nobody": ({"compressor": {"id": "nonsense"}}, "the compressor is 'nonsense'"),
    "without a name": ({"compressor": {}}, "the compressor is {}"),
    "a list as a name": ({"compressor": {"id": ["pickle"]}}, "the compressor is ['pickle']"),
}


@pytest.mark.parametrize("case", CODE)
def test_codecs_that_may_run_code_are_refused_before_they_are_made(place, capsys, case):
    fields, words = CODE[case]
    recording = _recordings.open_recording(place / "in.zarr")
    for number in range(3):
        (place / "in.zarr" / f"{number}.0.0").write_bytes(pickle.dumps(Trap()))
    change(place / "in.zarr", **fields)
    errors = refused(capsys, words)
    assert "in.zarr/.zarray cannot be read (" in errors and not (place / "out").exists()
    # A worker, where they came after the run began.
    out = output(place / "out.zarr")
    outcome = work.process_frames(recording, out, settings(), range(3), vp.__version__)
    assert [words in problem for _, problem in outcome] == [True] * 3, outcome


@pytest.mark.parametrize("case", CODE)
def test_the_same_in_an_array_of_out(place, capsys, case):
    fields, words = CODE[case]
    recording, out = _recordings.open_recording(place / "in.zarr"), output(place / "out")
    chosen = settings(planes=("s0", "azimuth", "dolp"))
    output_group.prepare(out, chosen, recording)
    change(place / "out" / "azimuth", **fields)
    refused(capsys, "out/azimuth/.zarray is damaged (" + words)


LIES = {
    "no size of chunks": (
        {"chunks": [0, 64, 96]},
        "chunks is [0, 64, 96], not whole numbers from 1 on",
    ),
    "negative chunks": ({"chunks": [-1, 64, 96]}, "chunks is [-1, 64, 96]"),
    "chunks of two": ({"chunks": [1, 64]}, "chunks is [1, 64], but shape [3, 64, 96]"),
    "vast chunks": ({"chunks": [10**12, 64, 96]}, "chunks is [1000000000000, 64, 96], more than"),
    "chunks that are none": ({"chunks": None}, "chunks is None"),
    "negative frames": ({"shape": [-2, 64, 96]}, "shape is [-2, 64, 96]"),
    "vast": ({"shape": [10**12, 64, 96]}, "shape is (1000000000000, 64, 96), more than"),
    "wide": ({"shape": [1, 2**40, 2**40], "chunks": [1, 1, 1]}, "more than"),
    "beyond 64 bits": ({"shape": [10**30, 64, 96]}, "shape is [1000000000000000"),
    "no rows": ({"shape": [3, 0, 96]}, "shape is (3, 0, 96), frames of nothing"),
    "a truth": ({"shape": [True, 64, 96]}, "shape is [True, 64, 96]"),
    "a fraction": ({"shape": [3.0, 64, 96]}, "shape is [3.0, 64, 96]"),
    "a text": ({"shape": "big"}, "shape is 'big'"),
    "many dimensions": (
        {"shape": [2] * 1000, "chunks": [2] * 1000},
        "shape is [2, 2, 2, 2, 2, 2, ...]",
    ),
    "two dimensions": (
        {"shape": [3, 64], "chunks": [1, 64]},
        "it holds uint16 in the shape (3, 64)",
    ),
    "floats": ({"dtype": "<f4"}, "it holds <f4 in the shape (3, 64, 96), not uint8 or uint16"),
    "other order": ({"dtype": ">u2"}, "it holds >u2"),
    "no type": ({"dtype": "nonsense"}, "dtype is 'nonsense'"),
    "an order": ({"order": "Z"}, "order is 'Z', not 'C' or 'F'"),
    "an order of a kind": ({"order": []}, "order is []"),
    "a separator": ({"dimension_separator": "/../"}, "dimension_separator is '/../'"),
    "a version": ({"zarr_format": 3}, "zarr_format is 3, not 2"),
    "a version that is a truth": ({"zarr_format": True}, "zarr_format is True"),
    "a fill value": ({"fill_value": "AAAA"}, "fill_value is 'AAAA'"),
    "a fill value of a kind": ({"fill_value": {}}, "fill_value is {}"),
    "filters of a kind": ({"filters": "delta"}, "filters is 'delta'"),
    "many filters": ({"filters": [{"id": "shuffle"}] * 5}, "filters is [{"),
    "elements of nothing": ({"filters": [{"id": "shuffle", "elementsize": 0}]}, "elementsize is 0"),
    "differences of objects": (
        {"filters": [{"id": "delta", "dtype": "O"}]},
        "dtype of delta is 'O'",
    ),
    "a compressor of a kind": ({"compressor": "blosc"}, "the compressor is 'blosc'"),
}


@pytest.mark.parametrize("case", LIES)
def test_metadata_that_lie_are_refused_at_once(place, capsys, case):
    fields, words = LIES[case]
    change(place / "in.zarr", **fields)
    errors = refused(capsys, words)
    assert "write the array again" in errors and not (place / "out").exists()


GOOD = (
    '{"zarr_format": 2, "shape": [3, 64, 96], "chunks": [1, 64, 96], "dtype": "<u2", "compressor": '
    '{"id": "blosc"}, "fill_value": 0, "order": "C", "filters": null}'
)
TEXTS = {
    "nothing": ("", "it is no JSON"),
    "half": (GOOD[:40], "it is no JSON"),
    "a list": ("[]", "it is no JSON object"),
    "deep": ("[" * 100_000, "it is no JSON"),
    "no UTF-8": ("\xff{}", "it is no JSON"),
    "long": (GOOD + " " * (1 << 20), "it has more than 1048576 bytes"),
    "a key twice": (
        GOOD.replace('"order"', '"shape": [9, 64, 96], "order"'),
        "'shape' stands there twice",
    ),
    "a codec twice": (
        GOOD.replace('"id": "blosc"', '"id": "blosc", "id": "pickle"'),
        "'id' stands there",
    ),
    "no number": (GOOD.replace('"fill_value": 0', '"fill_value": NaN'), "NaN is no number of JSON"),
    "endless": (GOOD.replace("[3, 64", "[1e999, 64"), "shape is [inf, 64, 96]"),
    "thousands of digits": (GOOD.replace("[3, 64", f"[{'9' * 9000}, 64"), "it is no JSON"),
    **{
        f"without {key}": (
            json.dumps({k: v for k, v in json.loads(GOOD).items() if k != key}),
            words,
        )
        for key, words in (
            (key, f"{key} is missing" if key != "zarr_format" else "zarr_format is None")
            for key in json.loads(GOOD)
        )
    },
}


@pytest.mark.parametrize("case", TEXTS)
def test_texts_that_are_no_metadata_are_refused(place, capsys, case):
    text, words = TEXTS[case]
    (place / "in.zarr" / ".zarray").write_text(text, encoding="latin-1")
    refused(capsys, words)
    (place / "in.zarr" / ".zarray").write_text(GOOD)
    assert _recordings.open_recording(place / "in.zarr").count == 3


def test_metadata_that_are_no_file_or_of_another_format_are_refused(place, capsys):
    file = place / "in.zarr" / ".zarray"
    file.unlink()
    os.mkfifo(file)
    refused(capsys, "it is no regular file")
    file.unlink()
    file.mkdir()
    refused(capsys, "it is no regular file")
    file.rmdir()
    (place / "in.zarr" / "zarr.json").write_text('{"zarr_format": 3}')
    refused(capsys, "is of zarr's format 3; write it again in format 2")
    (place / "in.zarr" / "zarr.json").unlink()
    refused(capsys, "holds no PNG, TIFF, PGM or npy files")


@pytest.mark.parametrize("codec", ("zstd", "lz4", "zlib", "gzip", "bz2", "lzma", "blosc", None))
@pytest.mark.parametrize("order", "CF")
def test_the_usual_arrays_are_read(place, monkeypatch, codec, order):
    monkeypatch.undo()
    frames = frames_of(3)
    compressor = numcodecs.get_codec({"id": codec}) if codec else None
    for number, filters in enumerate(([], [numcodecs.Delta("u2")], [numcodecs.Shuffle(2)])):
        folder = place / f"{number}.zarr"
        array = zarr.open_array(
            str(folder),
            mode="w",
            shape=frames.shape,
            chunks=(2, 40, 96),
            dtype="u2",
            filters=filters,
            compressor=compressor,
            order=order,
        )
        array[:] = frames
        recording = _recordings.open_recording(folder)
        assert np.array_equal(recording.read(0, 3), frames)
        assert np.array_equal(recording.read(1, 2), frames[1:2])


def test_an_array_whose_name_ends_like_an_archive_is_read(place):
    os.rename(place / "in.zarr", place / "in.zip")
    recording = _recordings.open_recording(place / "in.zip")
    assert np.array_equal(recording.read(0, 3), frames_of(3))


@pytest.mark.parametrize("filters", ([], [numcodecs.Delta("u2")]))
@pytest.mark.parametrize(
    "damage, words",
    [("cut", "is damaged"), ("pipe", "is no regular file"), ("noise", "cannot be decoded")],
)
def test_damaged_chunks_fail_in_our_words(place, monkeypatch, filters, damage, words):
    monkeypatch.undo()
    array = zarr.open_array(
        str(place / "in.zarr"),
        mode="w",
        shape=(1, 64, 96),
        chunks=(1, 64, 96),
        dtype="u2",
        filters=filters,
        compressor=(numcodecs.Zlib() if damage == "noise" else numcodecs.Blosc("lz4")),
    )
    array[:] = frames_of(1)
    recording = _recordings.open_recording(place / "in.zarr")
    chunk = place / "in.zarr" / "0.0.0"
    data = chunk.read_bytes()
    chunk.unlink()
    if damage == "pipe":
        os.mkfifo(chunk)
    else:
        chunk.write_bytes(data[:-9] if damage == "cut" else b"\xff" * 100)
    with pytest.raises(ValueError, match=words):
        recording.read(0, 1)


@pytest.mark.parametrize("codec", ("bz2", "gzip", "lz4", "lzma", "zlib", "zstd"))
def test_what_no_codec_understands_is_told_in_our_words(place, monkeypatch, codec):
    monkeypatch.undo()
    zarr.save_array(
        str(place / "in.zarr"),
        frames_of(1),
        chunks=(1, 64, 96),
        compressor=numcodecs.get_codec({"id": codec}),
    )
    recording = _recordings.open_recording(place / "in.zarr")
    (place / "in.zarr" / "0.0.0").write_bytes(b"\xff" * 100)
    with pytest.raises(ValueError, match="^a chunk cannot be decoded; write the array again$"):
        recording.read(0, 1)


def test_an_array_that_was_exchanged_under_way_fails_its_frames(place, monkeypatch):
    monkeypatch.undo()
    recording = _recordings.open_recording(place / "in.zarr")
    zarr.save_array(str(place / "in.zarr"), frames_of(4), chunks=(1, 64, 96))
    with pytest.raises(ValueError, match="is another array than at the start"):
        recording.read(0, 1)


def test_more_bare_frames_than_any_disk_holds_are_refused(tmp_path):
    with open(tmp_path / "in.raw", "wb") as file:
        file.truncate(8 << 30)  # without a block on the disk
    with pytest.raises(ValueError, match="holds 2147483648 frames of 2 x 2; give at most 16777216"):
        _recordings.open_recording(tmp_path / "in.raw", "Mono8", 2, 2)
