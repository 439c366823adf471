"""Recordings: damaged chunks, pictures that are no frames, the order of files."""

from __future__ import annotations

import itertools
import random
import re
import struct
import zlib

import numcodecs
import numpy as np
import pytest
import tifffile
import zarr
from batch_support import frames_of, options, output, run, settings
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _recordings
from veldrane_polarization._recordings.folders import in_order
from veldrane_polarization._recordings.pictures import read_picture
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
    assert output_group.incomplete_frames(out, settings(), recording) == [2, 3]


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
    wanted = [
        "f000",
        "f00",
        "f01",
        "f010",
        "f09",
        "f0",
        "f1.tif",
        "f2.tif",
        "f10.tif",
        "f10a",
        "f100",
    ]
    shuffled = wanted.copy()
    random.Random(1).shuffle(shuffled)
    assert in_order(shuffled) == wanted
    frames = frames_of(12)
    for number, frame in enumerate(frames):
        tifffile.imwrite(tmp_path / f"f{number}.tif", frame)
    (tmp_path / "g.tif").mkdir()
    (tmp_path / ".hidden.png").write_bytes(b"")
    recording = _recordings.open_recording(tmp_path)
    assert recording.count == 12 and np.array_equal(recording.read(0, 12), frames)


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


@pytest.mark.parametrize(
    "depth, colour, words",
    [
        (1, 0, "grey of 1 bits"),
        (2, 0, "grey of 2 bits"),
        (4, 0, "grey of 4 bits"),
        (8, 3, "a palette of 8 bits"),
        (8, 2, "colour of 8 bits"),
        (16, 2, "colour of 16 bits"),
        (8, 4, "grey and alpha"),
        (16, 4, "grey and alpha"),
        (8, 6, "colour and alpha"),
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
    with pytest.raises(ValueError, match=f"holds {words}.*give one grey picture of 8 or 16"):
        read_picture(str(file))


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
        picture = read_picture(str(tmp_path / name))
        assert picture.dtype == dtype and picture.dtype.isnative and np.array_equal(picture, frame)
    assert np.array_equal(read_picture(str(tmp_path / "tiled.tif")), np.tile(frame, (16, 8)))


@pytest.mark.parametrize(
    "shape, dtype, changes, words",
    [
        ((32, 48), "u2", {"photometric": "miniswhite"}, "as MINISWHITE"),
        (
            (32, 48),
            "u1",
            {"photometric": "palette", "colormap": np.zeros((3, 256), "u2")},
            "as PALETTE",
        ),
        ((32, 48, 3), "u1", {"photometric": "rgb"}, "3 samples a pixel as RGB"),
        ((32, 48), "i2", {"photometric": "minisblack"}, "16 bits as INT"),
        ((32, 48), "f4", {"photometric": "minisblack"}, "32 bits as IEEEFP"),
        ((32, 48), "u4", {"photometric": "minisblack"}, "32 bits as"),
        ((2, 32, 48), "u2", {"photometric": "minisblack"}, "2 pictures"),
    ],
)
def test_a_tiff_that_is_no_frame_is_refused(tmp_path, shape, dtype, changes, words):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, np.zeros(shape, dtype), **changes)
    with pytest.raises(
        ValueError, match=f"holds .*{re.escape(words)}.*grey picture of 8 or 16 bits"
    ):
        read_picture(str(file))


@pytest.mark.parametrize("tag, value", [("StripByteCounts", 0), ("StripOffsets", 1 << 20)])
def test_a_tiff_with_a_strip_that_is_nowhere_is_refused(tmp_path, tag, value):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, frames_of(1)[0], compression="zlib", rowsperstrip=8)
    assert read_picture(str(file)).any()
    with tifffile.TiffFile(file, mode="r+b") as tiff:
        numbers = list(tiff.pages[0].tags[tag].value)
        numbers[3] = value
        tiff.pages[0].tags[tag].overwrite(numbers)
    with pytest.raises(ValueError, match="is cut off"):
        read_picture(str(file))


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
                read_picture(str(tmp_path / name))
            refused += 1
    assert refused == 15


@pytest.mark.parametrize(
    "number, name", [(6, "OJPEG"), (7, "JPEG"), (50001, "WEBP"), (50002, "JPEGXL")]
)
def test_a_tiff_of_a_codec_with_loss_or_a_plugin_is_refused(tmp_path, number, name):
    file = tmp_path / "f.tif"
    tifffile.imwrite(file, frames_of(1)[0], compression="zlib")
    with tifffile.TiffFile(file, mode="r+b") as tiff:
        tiff.pages[0].tags["Compression"].overwrite(number)
    with pytest.raises(ValueError, match=f"is compressed by {name}; compress it by deflate or not"):
        read_picture(str(file))


@pytest.mark.parametrize("suffix", ("tif", "png"))
def test_what_no_decoder_understands_is_told_in_our_words(tmp_path, suffix):
    file = tmp_path / f"f.{suffix}"
    file.write_bytes(
        b"no picture at all"
        if suffix == "tif"
        else png(16, 0, [bytes(64)] * 4).replace(b"IDAT", b"IDAx")
    )
    with pytest.raises(ValueError, match="^cannot be decoded; copy or record"):
        read_picture(str(file))
    with pytest.raises(FileNotFoundError):
        read_picture(str(tmp_path / f"g.{suffix}"))


def test_a_picture_that_is_vast_is_told_so(tmp_path):
    file = tmp_path / "f.png"
    file.write_bytes(large_png(20000))
    with pytest.raises(
        ValueError, match="^holds 20000 x 20000 pixels, more than are read of a PNG"
    ):
        read_picture(str(file))


def test_decoders_do_not_warn_of_large_pictures(tmp_path):
    (tmp_path / "in").mkdir()
    (tmp_path / "in" / "f.png").write_bytes(large_png(10000))
    code, printed, errors = run(tmp_path / "in", tmp_path / "out", *options())
    assert code == 2 and "cannot be decoded" in errors and errors.count("\n") == 1, errors


def test_no_other_decoder_sees_what_passes_for_a_png(tmp_path, monkeypatch):
    seen = []
    monkeypatch.setattr(Image, "ID", ["SPY", *Image.ID])
    monkeypatch.setitem(Image.OPEN, "SPY", (None, lambda start: seen.append(start) or False))
    Image.fromarray(frames_of(1)[0]).save(tmp_path / "f.png")
    read_picture(str(tmp_path / "f.png"))
    assert seen == []
