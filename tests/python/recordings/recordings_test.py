"""Recordings: damaged chunks, pictures that are no frames, the order of files."""

from __future__ import annotations

import ctypes
import itertools
import os
import pickle
import random
import struct
import zlib

import numcodecs
import numpy as np
import pytest
import tifffile
import zarr
from batch_support import assert_equal, frames_of, options, output, run, settings
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _native, _recordings
from veldrane_polarization._recordings.frame_files import read_frame
from veldrane_polarization.batch import output_group, work

CODECS = {
    "none": None,
    "blosc": zarr.Blosc("lz4"),
    "zstd": numcodecs.Zstd(),
    "zlib": numcodecs.Zlib(),
    "lz4": numcodecs.LZ4(),
}


@pytest.mark.parametrize(
    "damage, codec",
    [
        # Bytes behind the end change nothing for the other codecs.
        *itertools.product(("missing", "empty", "cut"), CODECS),
        ("longer", "none"),
        ("longer", "blosc"),
    ],
)
def test_a_damaged_chunk_fails_its_frames_and_no_others(tmp_path, damage, codec):
    frames = frames_of(6)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(2, 40, 50), compressor=CODECS[codec])
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    chunk = tmp_path / "in.zarr" / "1.1.0"
    data = chunk.read_bytes()
    chunk.unlink()
    if damage != "missing":
        chunk.write_bytes({"empty": b"", "cut": data[:-7], "longer": data + bytes(7)}[damage])
    out = output(tmp_path / "out.zarr")
    output_group.prepare(out, settings(), recording)
    outcome = dict(work.process_frames(recording, out, settings(), range(6), vp.__version__))
    assert [index for index, problem in outcome.items() if problem] == [2, 3]
    if damage == "missing" or codec in ("none", "blosc"):
        assert "1.1.0" in outcome[2]
    assert output_group.incomplete_frames(out, settings(), recording).tolist() == [2, 3]


def test_a_header_of_another_size_is_damage(tmp_path):
    frames = frames_of(1)
    zarr.save_array(str(tmp_path / "in.zarr"), frames, chunks=(1, 64, 96))
    recording = _recordings.open_recording(tmp_path / "in.zarr")
    chunk = tmp_path / "in.zarr" / "0.0.0"
    chunk.write_bytes(zarr.Blosc("lz4").encode(frames[0, :32]))
    with pytest.raises(ValueError, match="0.0.0 is damaged"):
        recording.read(0, 1)


def test_chunks_in_folders_and_with_filters_are_read(tmp_path):
    frames = frames_of(3)
    store = zarr.NestedDirectoryStore(str(tmp_path / "nested.zarr"))
    array = zarr.open_array(
        store,
        mode="w",
        shape=frames.shape,
        chunks=(1, 40, 96),
        dtype="u2",
        filters=[numcodecs.Delta(dtype="u2")],
        compressor=zarr.Blosc("lz4"),
    )
    array[:] = frames
    recording = _recordings.open_recording(tmp_path / "nested.zarr")
    assert np.array_equal(recording.read(0, 3), frames)
    (tmp_path / "nested.zarr" / "2" / "1" / "0").unlink()
    with pytest.raises(ValueError, match="missing"):
        recording.read(2, 3)


def test_files_come_in_the_order_of_their_numbers(tmp_path):
    wanted = ["f000-", "f00-", "f01-", "f010-", "f09-", "f0-", "f1", "f2", "f10", "f10a", "f100"]
    frames = frames_of(len(wanted))
    numbered = list(zip(wanted, frames))
    random.Random(1).shuffle(numbered)
    for name, frame in numbered:
        tifffile.imwrite(tmp_path / f"{name}.tif", frame)
    (tmp_path / "g.tif").mkdir()
    (tmp_path / ".hidden.png").write_bytes(b"")
    recording = _recordings.open_recording(tmp_path)
    assert [recording.name(index) for index in range(recording.count)] == [
        str(tmp_path / f"{name}.tif") for name in wanted
    ]
    assert np.array_equal(recording.read(0, recording.count), frames)


def test_frames_of_two_types_are_not_mixed(tmp_path):
    tifffile.imwrite(tmp_path / "f0.tif", frames_of(1)[0])
    Image.fromarray(np.full((64, 96), 200, np.uint8)).save(tmp_path / "f1.png")
    recording = _recordings.open_recording(tmp_path)
    with pytest.raises(ValueError, match=r"holds uint8 .* the recording has uint16"):
        recording.read(0, 2)


def png(depth, colour, rows, palette=b""):
    def part(kind, data):
        return (
            struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
        )

    header = struct.pack(">IIBBBBB", 32, 4, depth, colour, 0, 0, 0)
    lines = zlib.compress(b"".join(b"\0" + row for row in rows))
    return (
        b"\x89PNG\r\n\x1a\n"
        + part(b"IHDR", header)
        + (part(b"PLTE", palette) if palette else b"")
        + part(b"IDAT", lines)
        + part(b"IEND", b"")
    )


def large_png(side):
    """As its header says."""
    data = png(8, 0, [bytes(32)] * 4)
    header = b"IHDR" + struct.pack(">II", side, side) + data[24:29]
    return data[:12] + header + struct.pack(">I", zlib.crc32(header)) + data[33:]


KIND, COLOUR = "samples are not unsigned numbers of 8 or 16 bits", "a colour image"


@pytest.mark.parametrize(
    "depth, colour, words",
    [
        (1, 0, KIND),
        (2, 0, KIND),
        (4, 0, KIND),
        (8, 3, COLOUR),
        (8, 2, COLOUR),
        (16, 2, COLOUR),
        (8, 4, COLOUR),
        (16, 4, COLOUR),
        (8, 6, COLOUR),
    ],
)
def test_a_png_of_another_kind_than_grey_of_8_or_16_bits_is_refused(tmp_path, depth, colour, words):
    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[colour]
    rows = [bytes(32 * channels * depth // 8)] * 4
    data = png(depth, colour, rows, bytes(768) if colour == 3 else b"")
    file = tmp_path / "f.png"
    file.write_bytes(data)
    with Image.open(file) as image:  # it is a PNG file
        image.load()
    with pytest.raises(ValueError, match=f"^{words}"):
        read_frame(str(file))


@pytest.mark.parametrize("dtype", (np.uint8, np.uint16))
def test_grey_pictures_come_with_every_bit(tmp_path, dtype):
    top = np.iinfo(dtype).max
    frame = np.linspace(0, top, 4 * 32).round().astype(dtype).reshape(4, 32)
    rows = [row.astype(row.dtype.newbyteorder(">")).tobytes() for row in frame]
    (tmp_path / "f.png").write_bytes(png(8 * frame.itemsize, 0, rows))
    for order in "<>":
        tifffile.imwrite(tmp_path / f"{order}.TIFF", frame, byteorder=order)
    tifffile.imwrite(
        tmp_path / "tiled.tif", np.tile(frame, (16, 8)), tile=(16, 16), compression="zlib"
    )
    for name in ("f.png", "<.TIFF", ">.TIFF"):
        picture = read_frame(str(tmp_path / name))
        assert picture.dtype == dtype and picture.dtype.isnative and np.array_equal(picture, frame)
    assert np.array_equal(read_frame(str(tmp_path / "tiled.tif")), np.tile(frame, (16, 8)))


@pytest.mark.parametrize(
    "shape, dtype, changes, words",
    [
        ((32, 48), "u2", {"photometric": "miniswhite"}, "its samples are inverted"),
        ((32, 48), "u1", {"photometric": "palette", "colormap": np.zeros((3, 256), "u2")}, COLOUR),
        ((32, 48, 3), "u1", {"photometric": "rgb"}, COLOUR),
        ((3, 32, 48), "u1", {"photometric": "rgb", "planarconfig": "separate"}, COLOUR),
        ((32, 48), "i2", {"photometric": "minisblack"}, KIND),
        ((32, 48), "f4", {"photometric": "minisblack"}, KIND),
        ((32, 48), "u4", {"photometric": "minisblack"}, KIND),
        ((32, 48), "?", {"photometric": "minisblack"}, KIND),
        (
            (32, 48),
            "u2",
            {"photometric": "minisblack", "extratags": [(274, 3, 1, 3, True)]},
            "it is turned or mirrored",
        ),
    ],
)
def test_a_tiff_that_is_no_frame_is_refused(tmp_path, shape, dtype, changes, words):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, np.zeros(shape, dtype), **changes)
    with pytest.raises(ValueError, match=f"^{words}.*; "):
        read_frame(str(file))


@pytest.mark.parametrize("tag, value", [("StripByteCounts", 0), ("StripOffsets", 1 << 20)])
def test_a_tiff_with_a_strip_that_is_nowhere_is_refused(tmp_path, tag, value):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, frames_of(1)[0], compression="zlib", rowsperstrip=8)
    assert read_frame(str(file)).any()
    with tifffile.TiffFile(file, mode="r+b") as tiff:
        numbers = list(tiff.pages[0].tags[tag].value)
        numbers[3] = value
        tiff.pages[0].tags[tag].overwrite(numbers)
    with pytest.raises(ValueError, match="^damaged or cut short"):
        read_frame(str(file))


def test_pictures_that_are_cut_off_are_refused(tmp_path):
    frame = frames_of(1)[0]
    tifffile.imwrite(tmp_path / "f.tif", frame, rowsperstrip=8)
    tifffile.imwrite(tmp_path / "z.tif", frame, compression="zlib", rowsperstrip=8)
    Image.fromarray(frame).save(tmp_path / "f.png")
    refused = 0
    for name in ("f.tif", "z.tif", "f.png"):
        data = (tmp_path / name).read_bytes()
        # Behind the end of a PNG's samples only the mark of its end is left.
        for length in (0, 10, 30, len(data) // 2, len(data) - 40):
            (tmp_path / name).write_bytes(data[:length])
            with pytest.raises(Exception):
                read_frame(str(tmp_path / name))
            refused += 1
    assert refused == 15


@pytest.mark.parametrize(
    "number, words",
    [
        (6, "its samples are compressed as JPEG"),
        (7, "its samples are compressed as JPEG"),
        (50001, "its compression, number 50001 in TIFF, is not read"),
        (50002, "its compression, number 50002 in TIFF, is not read"),
    ],
)
def test_a_tiff_of_a_codec_with_loss_or_a_plugin_is_refused(tmp_path, number, words):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, frames_of(1)[0], compression="zlib")
    with tifffile.TiffFile(file, mode="r+b") as tiff:
        tiff.pages[0].tags["Compression"].overwrite(number)
    with pytest.raises(ValueError, match=f"^{words}"):
        read_frame(str(file))


@pytest.mark.parametrize(
    "data, words",
    [
        (b"no picture at all", "not a PNG, TIFF, binary PGM or npy file"),
        (png(16, 0, [bytes(64)] * 4).replace(b"IDAT", b"IDAx"), "damaged or cut short"),
        (large_png(20000), "damaged or cut short"),
    ],
)
def test_what_no_decoder_understands_is_told_in_our_words(tmp_path, data, words):
    file = tmp_path / "f.png"
    file.write_bytes(data)
    with pytest.raises(ValueError, match=f"^{words}"):
        read_frame(str(file))
    with pytest.raises(FileNotFoundError):
        read_frame(str(tmp_path / "g.png"))


def test_a_large_picture_without_its_samples_is_one_line(tmp_path):
    (tmp_path / "in").mkdir()
    (tmp_path / "in" / "f.png").write_bytes(large_png(10000))
    code, printed, errors = run(tmp_path / "in", tmp_path / "out", *options())
    assert code == 2 and "damaged or cut short" in errors and errors.count("\n") == 1, errors


def test_a_folder_of_nothing_but_a_calibration_is_told_so(tmp_path):
    vp.Calibration.ideal((90, 45, 135, 0)).save(tmp_path / "c.json")
    (tmp_path / "c.json").rename(tmp_path / "c.png")
    with pytest.raises(_recordings.Recording_error) as refusal:
        _recordings.open_recording(tmp_path)
    assert str(refusal.value) == (
        f"{tmp_path}: holds no frame, only what `calibrate` made; name the frames"
    )


def test_a_file_of_many_pictures_is_a_recording(tmp_path):
    frames = frames_of(5)
    tifffile.imwrite(tmp_path / "run.tif", frames, photometric="minisblack", compression="zlib")
    recording = pickle.loads(pickle.dumps(_recordings.open_recording(tmp_path / "run.tif")))
    assert recording.count == 5 and recording.name(3) == f"{tmp_path}/run.tif, frame 3"
    # Whatever the order, and in tasks that know their own frames alone.
    for index in (3, 0, 4, 1, 2):
        assert np.array_equal(
            recording.part(index, index + 1).read(index, index + 1)[0], frames[index]
        )
    code, _, errors = run(tmp_path / "run.tif", tmp_path / "out.zarr", *options())
    assert code == 0 and not errors
    assert assert_equal(tmp_path / "out.zarr", frames) == 5


def test_a_folder_may_hold_pictures_of_all_kinds(tmp_path):
    frames = frames_of(5, 64, 96)
    tifffile.imwrite(tmp_path / "f0.tif", frames[:2], photometric="minisblack")
    Image.fromarray(frames[2]).save(tmp_path / "f1.png")
    header = b"P5\n# a comment\n96 64\n65535\n"
    (tmp_path / "f2.pgm").write_bytes(header + frames[3].astype(">u2").tobytes())
    tifffile.imwrite(tmp_path / "f3.tif", frames[4], tile=(32, 32))
    assert np.array_equal(_recordings.open_recording(tmp_path).read(0, 5), frames)


def test_a_damaged_file_counts_so_that_numbers_stay_when_it_is_mended(tmp_path):
    frames = frames_of(3)
    for number, frame in enumerate(frames):
        tifffile.imwrite(tmp_path / f"f{number}.tif", frame)
    whole = (tmp_path / "f1.tif").read_bytes()
    (tmp_path / "f1.tif").write_bytes(whole[:10])
    recording = _recordings.open_recording(tmp_path)
    before = recording.description()
    assert recording.count == 3 and np.array_equal(recording.read(2, 3)[0], frames[2])
    with pytest.raises(ValueError, match="^damaged or cut short"):
        recording.read(1, 2)
    (tmp_path / "f1.tif").write_bytes(whole)
    assert _recordings.open_recording(tmp_path).description() == before
    assert np.array_equal(recording.read(1, 2)[0], frames[1])


def test_pictures_behind_which_a_file_is_damaged_are_done_and_the_rest_is_told(tmp_path):
    frames = frames_of(3)
    file = tmp_path / "run.tif"
    tifffile.imwrite(file, frames, photometric="minisblack")
    with tifffile.TiffFile(file) as tiff:
        last = tiff.pages[2].offset
    file.write_bytes(file.read_bytes()[: last + 3])
    code, printed, errors = run(file, tmp_path / "out.zarr", *options())
    assert code == 1 and "2 frames done, 0 skipped, 0 failed" in printed
    assert errors.startswith(f"error: {file}: damaged or cut short behind picture 2; ")
    assert errors.count("\n") == 1


@pytest.mark.parametrize("padding", (0, 48))
def test_the_padding_of_the_last_row_may_be_missing(tmp_path, padding):
    frames = frames_of(3)
    rows = np.zeros((3, 64, 240), np.uint8)
    rows[:, :, :192] = frames.view(np.uint8)
    (tmp_path / "in.raw").write_bytes(b"head" + rows.tobytes()[: rows.size - padding])
    recording = _recordings.open_recording(tmp_path / "in.raw", "Mono12", 64, 96, 4, 240)
    assert recording.count == 3 and np.array_equal(recording.read(0, 3), frames)


@pytest.mark.parametrize("dtype", ["u1", "<u2", ">u2"])
def test_an_npy_file_is_a_recording(tmp_path, dtype):
    frames = frames_of(3).astype(dtype)
    np.save(tmp_path / "run.npy", frames)
    recording = pickle.loads(pickle.dumps(_recordings.open_recording(tmp_path / "run.npy")))
    assert (recording.count, recording.dtype) == (3, f"uint{8 * frames.itemsize}")
    assert np.array_equal(recording.read(0, 3), frames)
    assert _recordings.open_recording(tmp_path).count == 3


@pytest.mark.parametrize(
    "array, words",
    [
        (np.zeros((2, 20, 48), np.float32), "numbers of type '<f4'; save it as uint8 or uint16"),
        (np.zeros((4, 20, 48), np.uint16, order="F"), "lies column by column"),
        (np.zeros((2, 2, 20, 48), np.uint16), "has the shape (2, 2, 20, 48)"),
        (np.zeros((20, 48), np.uint16), "is a single picture; give the folder"),
    ],
)
def test_an_array_that_is_no_recording_is_told_so(tmp_path, array, words):
    np.save(tmp_path / "run.npy", array)
    with pytest.raises(_recordings.Recording_error) as refusal:
        _recordings.open_recording(tmp_path / "run.npy")
    assert words in str(refusal.value)


def test_frames_that_are_kept_stay_as_they_were_read(tmp_path):
    """Memory of frames that nobody looks at any more is used again, and no other."""
    frames = frames_of(12)
    file = tmp_path / "in.raw"
    file.write_bytes(b"".join(vp.pack(frame, "Mono12p").tobytes() for frame in frames))
    recording = _recordings.open_recording(file, "Mono12p", 64, 96)
    kept = {}
    for index in random.Random(1).choices(range(12), k=60):
        kept[index] = recording.read(index, index + 1)[0]
        kept.pop((index + 5) % 12, None)
        assert all(np.array_equal(kept[each], frames[each]) for each in kept)
    places = {recording.read(0, 1)[0].ctypes.data for _ in range(5)}
    assert len(places) == 1
    del recording
    assert all(np.array_equal(kept[each], frames[each]) for each in kept)


def memory_in_use():
    ctypes.CDLL(None).malloc_trim(0)
    with open("/proc/self/statm", encoding="ascii") as pages:
        return int(pages.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def test_arrays_hold_their_samples_and_little_is_kept_behind_them(tmp_path):
    size = 2 << 20
    (tmp_path / "in.raw").write_bytes(b"\1" * (8 * size))
    file = _native.Frame_file(str(tmp_path / "in.raw"), "Mono16", 1024, 1024, 0, 0)
    before = memory_in_use()
    kept = [file.read(number) for number in range(8)]
    assert memory_in_use() - before < 11 * size
    kept.clear()
    assert memory_in_use() - before < 5 * size


def test_nothing_is_kept_of_a_file_of_one_frame(tmp_path):
    (tmp_path / "in.pgm").write_bytes(b"P5 1024 1024 65535 " + b"\1" * (2 << 20))
    before = memory_in_use()
    opened = [_native.Frame_file(str(tmp_path / "in.pgm")) for _ in range(4)]
    for file in opened:
        file.read(0)
    assert memory_in_use() - before < 1 << 20
