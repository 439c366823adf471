"""The files that the corpus names: good ones as the program makes them, and damaged or lying ones."""

from __future__ import annotations

import json
import os
import struct
import subprocess
import zlib
from collections.abc import Callable, Mapping
from pathlib import Path
from typing import Any

WIDTH, HEIGHT = 48, 20


def make(folder: Path, program: str) -> int:
    """Returns how many files there are."""
    folder.mkdir()
    _good_files(folder, program)
    for make_some in (_pictures, _recordings, _calibrations, _tables, _places, _zarr_arrays):
        make_some(folder)
    return sum(1 for _ in folder.rglob("*"))


def _good_files(folder: Path, program: str) -> None:
    def run(*words: str) -> None:
        subprocess.run([program, *words, "--quiet"], cwd=folder, check=True, capture_output=True)

    size = ("--width", str(WIDTH), "--height", str(HEIGHT))
    (folder / "series").mkdir()
    run("simulate", "-o", "frame.png", *size, "--phase", "2", "--bit-depth", "12")
    run(
        "simulate",
        "-o",
        "run.raw",
        *size,
        "--phase",
        "2",
        "--pixel-format",
        "Mono12p",
        "--frames",
        "3",
    )
    run(
        "simulate",
        "-o",
        "series/cal.png",
        *size,
        "--phase",
        "2",
        "--polarizer-series",
        "0:165:15",
        "--imperfect",
    )
    run("calibrate", "series", "-o", "sensor.json", "--phase", "2", "--bit-depth", "12")


# ---- pictures


def _png(
    width: int,
    height: int,
    depth: int = 16,
    colour: int = 0,
    data: bytes | None = None,
    head: bytes | None = None,
    more: bytes = b"",
    damage: bytes = b"",
) -> bytes:
    def chunk(kind: bytes, body: bytes, sum_of: bytes = b"") -> bytes:
        checksum = struct.pack(">I", zlib.crc32(kind + body + sum_of))
        return struct.pack(">I", len(body)) + kind + body + checksum

    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}.get(colour, 1)
    if data is None:
        row = b"\0" + bytes((width * channels * depth + 7) // 8)
        data = zlib.compress(row * height)
    header = struct.pack(">IIBBBBB", width, height, depth, colour, 0, 0, 0)
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", head or header, damage)
        + more
        + chunk(b"IDAT", data)
        + chunk(b"IEND", b"")
    )


_PALETTE = (
    struct.pack(">I", 6) + b"PLTE" + bytes(6) + struct.pack(">I", zlib.crc32(b"PLTE" + bytes(6)))
)
_KINDS = {"short": ("H", 3), "long": ("I", 4)}


def _tiff(
    changed: Mapping[int, int | tuple[str, int]] | None = None,
    data: bytes | None = None,
    without: tuple[int, ...] = (),
) -> bytes:
    """A grey picture of 16 bits in one strip; `changed` are tags by their numbers."""
    if data is None:
        data = bytes(2 * WIDTH * HEIGHT)
    tags: dict[int, int | tuple[str, int]] = {
        256: WIDTH,
        257: HEIGHT,
        258: 16,
        259: 1,
        262: 1,
        273: ("long", 8),
        277: 1,
        278: HEIGHT,
        279: ("long", len(data)),
        **(changed or {}),
    }
    directory = 8 + len(data)
    rows = b""
    for tag, value in sorted(tags.items()):
        if tag in without:
            continue
        kind, number = value if isinstance(value, tuple) else ("short", value)
        letter, code = _KINDS[kind]
        rows += struct.pack("<HHI", tag, code, 1) + struct.pack("<" + letter, number).ljust(
            4, b"\0"
        )
    count = struct.pack("<H", len(rows) // 12)
    return b"II*\0" + struct.pack("<I", directory) + data + count + rows + bytes(4)


def _pictures(folder: Path) -> None:
    good = (folder / "frame.png").read_bytes()
    grey = bytes(WIDTH * HEIGHT)
    files: dict[str, bytes] = {
        "empty.png": b"",
        "byte.png": b"\x89",
        "text.png": b"no picture at all\n",
        "signature.png": good[:8],
        "header.png": good[:33],
        "half.png": good[: len(good) // 2],
        "colour.png": _png(WIDTH, HEIGHT, 8, 2),
        "deep_colour.png": _png(WIDTH, HEIGHT, 16, 2),
        "palette.png": _png(WIDTH, HEIGHT, 8, 3, more=_PALETTE),
        "alpha.png": _png(WIDTH, HEIGHT, 8, 4),
        "colour_alpha.png": _png(WIDTH, HEIGHT, 16, 6),
        "bits1.png": _png(WIDTH, HEIGHT, 1),
        "bits4.png": _png(WIDTH, HEIGHT, 4),
        "bits3.png": _png(WIDTH, HEIGHT, 3),
        "colour7.png": _png(WIDTH, HEIGHT, 8, 7),
        "no_width.png": _png(0, HEIGHT, data=b""),
        "no_height.png": _png(WIDTH, 0, data=b""),
        "huge.png": _png(2**31 - 1, 2**31 - 1, data=zlib.compress(b"")),
        "wide.png": _png(10**6, 10**6, data=zlib.compress(b"")),
        "narrow.png": _png(8, HEIGHT),
        "row.png": _png(WIDTH, 1),
        "short_rows.png": _png(WIDTH, HEIGHT, data=zlib.compress(bytes(50))),
        "garbage.png": _png(WIDTH, HEIGHT, data=b"\xff" * 200),
        "checksum.png": _png(WIDTH, HEIGHT, damage=b"x"),
        "jpeg.png": b"\xff\xd8\xff\xe0\0\x10JFIF" + bytes(100),
        "gif.png": b"GIF89a" + bytes(100),
        "empty.pgm": b"",
        "plain.pgm": b"P2 2 2 255 1 2 3 4\n",
        "colour.pgm": b"P6 16 2 255\n" + bytes(96),
        "bitmap.pgm": b"P4 16 2\n" + bytes(4),
        "no_size.pgm": b"P5\n",
        "no_maximum.pgm": b"P5 48 20\n",
        "zero_maximum.pgm": b"P5 48 20 0\n" + grey,
        "high_maximum.pgm": b"P5 48 20 65536\n" + 2 * grey,
        "negative.pgm": b"P5 -48 20 255\n" + grey,
        "short.pgm": b"P5 48 20 255\n" + grey[:100],
        "vast.pgm": b"P5 99999999 99999999 255\n" + grey,
        "letters.pgm": b"P5 a b 255\n" + grey,
        "two.pgm": 2 * (b"P5 48 20 255\n" + grey),
        "empty.tif": b"",
        "start.tif": b"II*\0",
        "nowhere.tif": b"II*\0\xff\xff\xff\x7f",
        "no_directory.tif": b"II*\0\x08\0\0\0\0\0\0\0\0\0",
        "big_start.tif": b"II+\0\x08\0\0\0",
        "colour.tif": _tiff({262: 2, 277: 3}),
        "inverted.tif": _tiff({262: 0}),
        "bits1.tif": _tiff({258: 1}),
        "bits12.tif": _tiff({258: 12}),
        "bits32.tif": _tiff({258: 32}),
        "float.tif": _tiff({258: 32, 339: 3}),
        "signed.tif": _tiff({339: 2}),
        "no_width.tif": _tiff({256: 0}),
        "no_height.tif": _tiff({257: 0}),
        "vast.tif": _tiff({256: ("long", 2**31), 257: ("long", 2**31)}),
        "turned.tif": _tiff({274: 3}),
        "jpeg.tif": _tiff({259: 7}),
        "old_jpeg.tif": _tiff({259: 6}),
        "fax.tif": _tiff({258: 1, 259: 4}),
        "webp.tif": _tiff({259: 50001}),
        "unknown.tif": _tiff({259: 65000}),
        "lzw.tif": _tiff({259: 5}, data=b"\xff" * 400),
        "deflate.tif": _tiff({259: 8}, data=b"\xff" * 400),
        "short.tif": _tiff(data=bytes(100)),
        "no_strips.tif": _tiff(without=(273, 279)),
        "no_size.tif": _tiff(without=(256, 257)),
        "far_strip.tif": _tiff({273: ("long", 2**31)}),
        "narrow.tif": _tiff({256: 8}, data=bytes(2 * 8 * HEIGHT)),
    }
    for name, content in files.items():
        (folder / name).write_bytes(content)


def _recordings(folder: Path) -> None:
    good = (folder / "run.raw").read_bytes()
    for name, content in {
        "empty.raw": b"",
        "byte.raw": b"x",
        "cut.raw": good[:-7],
        "long.raw": good + b"x",
    }.items():
        (folder / name).write_bytes(content)


# ---- what is read beside frames


def _calibrations(folder: Path) -> None:
    text = (folder / "sensor.json").read_text()
    good = json.loads(text)

    def changed(change: Callable[[Any], Any]) -> str:
        copy = json.loads(text)
        change(copy)
        return json.dumps(copy)

    def weight(value: object) -> Callable[[Any], Any]:
        return lambda all: all["matrices"][0][1].__setitem__(2, value)

    def analyser(key: str, value: object) -> Callable[[Any], Any]:
        return lambda all: all["analysers"][1].__setitem__(key, value)

    files: dict[str, str | bytes] = {
        "empty.json": "",
        "brace.json": "{",
        "object.json": "{}",
        "list.json": "[]",
        "nothing.json": "null",
        "number.json": "5",
        "text.json": "no JSON",
        "binary.json": bytes(range(256)),
        "utf16.json": text.encode("utf-16"),
        "mark.json": "\ufeff",
        "cut.json": text[: len(text) // 2],
        "deep.json": "[" * 5000,
        "keys.json": json.dumps({f"key{n}": n for n in range(20000)}),
        "foreign.json": '{"schema": {"name": "other", "version": 1}}',
        "newer.json": changed(lambda all: all["schema"].__setitem__("version", 99)),
        "version0.json": changed(lambda all: all["schema"].__setitem__("version", 0)),
        "version_text.json": changed(lambda all: all["schema"].__setitem__("version", "1")),
        "one_weight.json": changed(weight(good["matrices"][0][1][2] + 1)),
        "small_change.json": changed(weight(good["matrices"][0][1][2] + 1e-3)),
        "weight_text.json": changed(weight("1")),
        "weight_null.json": changed(weight(None)),
        "weight_huge.json": changed(weight(1e300)),
        "weight_endless.json": changed(weight(1)).replace("[[[", "[[[1e999, ", 1),
        "no_weights.json": changed(
            lambda all: all.__setitem__(
                "matrices", [[[0.0] * 4 for _ in range(4)] for _ in range(4)]
            )
        ),
        "nan.json": changed(weight(float("nan"))),
        "three_matrices.json": changed(lambda all: all["matrices"].pop()),
        "no_matrices.json": changed(lambda all: all.pop("matrices")),
        "no_analysers.json": changed(lambda all: all.pop("analysers")),
        "five_analysers.json": changed(lambda all: all["analysers"].append(good["analysers"][0])),
        "other_mosaic.json": changed(lambda all: all.__setitem__("mosaic", "0,135,45,90")),
        "no_mosaic.json": changed(lambda all: all.__setitem__("mosaic", "1,2,3,4")),
        "mosaic_number.json": changed(lambda all: all.__setitem__("mosaic", 2)),
        "throughput0.json": changed(analyser("throughput", 0)),
        "throughput_absurd.json": changed(analyser("throughput", 1e30)),
        "throughput_negative.json": changed(analyser("throughput", -1)),
        "diattenuation.json": changed(analyser("diattenuation", 50)),
        "orientation.json": changed(analyser("orientation_degrees", 77)),
        "more_keys.json": changed(lambda all: all.__setitem__("extra", 1)),
        "flag.json": changed(lambda all: all["quality"]["flags"].append("nonsense")),
        "count.json": changed(lambda all: all["quality"].__setitem__("frame_count", -1)),
        "twice.json": text.replace('"mosaic"', '"mosaic": "90,45,135,0", "mosaic"', 1),
        "comma.json": text.replace("]", ",]", 1),
        "trailing.json": text + "x",
    }
    for name, content in files.items():
        data = content if isinstance(content, bytes) else content.encode()
        (folder / name).write_bytes(data)


def _tables(folder: Path) -> None:
    names = sorted(path.name for path in (folder / "series").glob("*.png"))

    def rows(angle: Callable[[int], str], head: str = "file,angle") -> str:
        return head + "\n" + "".join(f"{name},{angle(n)}\n" for n, name in enumerate(names))

    def degrees(number: int) -> str:
        return str(15 * number)

    good = rows(degrees)
    for name, content in {
        "empty.csv": b"",
        "head.csv": b"file,angle\n",
        "no_head.csv": good.split("\n", 1)[1].encode(),
        "words.csv": rows(lambda n: "north").encode(),
        "nan.csv": rows(lambda n: "nan").encode(),
        "infinite.csv": rows(lambda n: "1e999").encode(),
        "hex.csv": rows(lambda n: "0x10").encode(),
        "no_angle.csv": rows(lambda n: "").encode(),
        "one_column.csv": b"file\n" + names[0].encode(),
        "other_head.csv": rows(degrees, "name,degrees").encode(),
        "missing.csv": "\n".join(good.splitlines()[:-2]).encode(),
        "twice.csv": (good + good.splitlines()[1] + "\n").encode(),
        "utf16.csv": good.encode("utf-16"),
        "binary.csv": bytes(range(256)),
        "dark.csv": rows(degrees, "file,angle,intensity").encode(),
        "negative.csv": (
            "file,angle,intensity\n"
            + "".join(f"{name},{15 * n},-1\n" for n, name in enumerate(names))
        ).encode(),
        "control.csv": rows(lambda n: "\x1b[31m").encode(),
    }.items():
        (folder / name).write_bytes(content)


def _places(folder: Path) -> None:
    os.mkfifo(folder / "pipe")
    os.mkfifo(folder / "pipe.png")
    os.mkfifo(folder / "pipe.json")
    os.mkfifo(folder / "pipe.csv")
    (folder / "dangling.png").symlink_to("vanished.png")
    (folder / "circle.png").symlink_to("circle.png")
    (folder / "dangling.json").symlink_to("vanished.json")
    # Results go to links alone: a program that replaces what it finds must not harm the machine.
    (folder / "null.png").symlink_to("/dev/null")
    (folder / "device.json").symlink_to("/dev/null")
    (folder / "full").symlink_to("/dev/full")
    (folder / "folder").mkdir()
    (folder / "folder.png").mkdir()
    (folder / "folder.json").mkdir()
    (folder / "taken").write_text("a file where a folder is meant\n")
    (folder / "escape\x1b[31m.png").write_bytes(b"x")
    (folder / "line\nfeed.png").write_bytes(b"x")
    (folder / "\udcff\udcfe.png").write_bytes(b"x")


def _zarr_arrays(folder: Path) -> None:
    good: dict[str, Any] = {
        "zarr_format": 2,
        "shape": [3, HEIGHT, WIDTH],
        "chunks": [1, HEIGHT, WIDTH],
        "dtype": "<u2",
        "compressor": None,
        "fill_value": 0,
        "order": "C",
        "filters": None,
    }
    pickle = {"id": "pickle", "protocol": 4}
    for name, change in {
        "good": {},
        "pickle": {"compressor": pickle},
        "pickle_filter": {"filters": [pickle]},
        "unknown_codec": {"compressor": {"id": "nonsense"}},
        "no_codec": {"compressor": {}},
        "objects": {"dtype": "|O", "filters": [pickle]},
        "floats": {"dtype": "<f4"},
        "flat": {"shape": [3, HEIGHT], "chunks": [1, HEIGHT]},
        "no_chunk": {"chunks": [0, HEIGHT, WIDTH]},
        "negative": {"shape": [-2, HEIGHT, WIDTH]},
        "vast": {"shape": [10**12, HEIGHT, WIDTH]},
        "negative_chunk": {"chunks": [-1, HEIGHT, WIDTH]},
        "no_frames": {"shape": [0, HEIGHT, WIDTH]},
        "text_shape": {"shape": "big"},
        "format3": {"zarr_format": 3},
        "format_text": {"zarr_format": "x"},
        "wide_frame": {"shape": [1, 2**40, 2**40], "chunks": [1, 2**40, 2**40]},
        "no_dtype": {"dtype": "nonsense"},
        "order": {"order": "Z"},
    }.items():
        array = folder / f"{name}.zarr"
        array.mkdir()
        (array / ".zarray").write_text(json.dumps({**good, **change}))
        for number in range(3):
            (array / f"{number}.0.0").write_bytes(bytes(2 * WIDTH * HEIGHT))
    for name, text in {"no_json": "{", "list": "[]", "empty": ""}.items():
        (folder / f"{name}.zarr").mkdir()
        (folder / f"{name}.zarr" / ".zarray").write_text(text)
