"""One frame source: the program and the batch command take the same files, and refuse the others alike."""

from __future__ import annotations

import os
import subprocess

import numpy as np
import pytest
import tifffile
import zarr
from batch_support import LAYOUT, Made_up_client, frames_of
from made_up_run import clock, command_on
from PIL import Image

# Fixtures.
__all__ = ["clock"]

PROGRAM = os.environ.get("VELDRANE_POLARIZE")
if PROGRAM is None:
    pytest.skip("this build has no veldrane-polarize", allow_module_level=True)

FRAME = frames_of(1)[0]
SMALL = (FRAME >> 4).astype(np.uint8)
PGM = b"P5 96 64 65535\n" + FRAME.astype(">u2").tobytes()


def tiff(array, **more):
    return lambda file: tifffile.imwrite(file, array, **{"photometric": "minisblack"} | more)


def png(mode, kind="PNG"):
    return lambda file: Image.fromarray(SMALL).convert(mode).save(file, format=kind)


def data(content):
    return lambda file: file.write_bytes(content)


REFUSED = {
    "turned.tif": tiff(FRAME, extratags=[(274, 3, 1, 3, True)]),
    "inverted.tif": tiff(FRAME, photometric="miniswhite"),
    "palette.tif": tiff(SMALL, photometric="palette", colormap=np.zeros((3, 256), "u2")),
    "colour.tif": tiff(np.dstack([SMALL] * 3), photometric="rgb"),
    "planes.tif": tiff(np.stack([SMALL] * 3), photometric="rgb", planarconfig="separate"),
    "bits.tif": tiff(SMALL > 9),
    "floats.tif": tiff(FRAME.astype("f4")),
    "signed.tif": tiff(FRAME.astype("i2")),
    "cut.tif": data(b"II*\0abcdef"),
    "bits.png": png("1"),
    "palette.png": png("P"),
    "colour.png": png("RGB"),
    "alpha.png": png("LA"),
    "cut.png": data(b"\x89PNG\r\n\x1a\n"),
    "several.pgm": data(2 * PGM),
    "cut.pgm": data(PGM[:-1]),
    "plain.pgm": data(b"P2 2 2 255 1 2 3 4"),
    "colour.pgm": data(b"P6 2 2 255\n" + bytes(12)),
    "jpeg.png": png("L", "JPEG"),
    "empty.png": data(b""),
    "text.png": data(b"no picture"),
    "link.png": lambda file: file.symlink_to("nowhere.png"),
    "circle.png": lambda file: file.symlink_to("circle.png"),
}


def both(folder, clock, monkeypatch, capsys, source, *words):
    """Exit codes and errors of the program and of the batch command."""
    line = [
        PROGRAM,
        "process",
        folder / source,
        "--planes",
        "s0,dolp",
        "--format",
        "npy",
        "--quiet",
    ]
    done = subprocess.run(
        [*line, "--output", folder / "planes", "--layout", LAYOUT, *words],
        capture_output=True,
        text=True,
    )
    words = ("--layout", LAYOUT, "--quiet", *words)
    code = command_on(Made_up_client(clock), folder, monkeypatch, source, *words)
    of_program = done.stderr.replace("veldrane-polarize: ", "error: ")
    return (done.returncode, of_program), (code, capsys.readouterr().err)


@pytest.mark.parametrize("name", REFUSED)
def test_what_is_no_frame_gets_the_same_line(name, tmp_path, clock, monkeypatch, capsys):
    (tmp_path / "in").mkdir()
    tifffile.imwrite(tmp_path / "in" / "a.tif", FRAME)
    REFUSED[name](tmp_path / "in" / name)
    one, other = both(tmp_path, clock, monkeypatch, capsys, "in", "--bit-depth", "12")
    assert one == other and one[0] == 1
    assert one[1].startswith(f"error: {tmp_path}/in/{name}: ") and one[1].count("\n") == 1


ACCEPTED = {
    "many.tif": tiff(frames_of(3), compression="zlib"),
    "tiled.tif": tiff(FRAME, tile=(32, 48)),
    "strips.tif": tiff(FRAME, rowsperstrip=7, byteorder=">"),
    "wide.pgm": data(PGM),
    "narrow.pgm": data(b"P5\n# of 8 bits\n96 64\n255\n" + SMALL.tobytes()),
    "narrow.png": png("L"),
}


def assert_same_planes(folder, count):
    group = zarr.open_group(str(folder / "out.zarr"), mode="r")
    for name in ("s0", "dolp"):
        of_program = [np.load(file) for file in sorted((folder / "planes").glob(f"*_{name}.npy"))]
        assert len(of_program) == count and np.array_equal(group[name], of_program)


@pytest.mark.parametrize("name", ACCEPTED)
def test_what_is_a_frame_gives_the_same_planes(name, tmp_path, clock, monkeypatch, capsys):
    (tmp_path / "in").mkdir()
    ACCEPTED[name](tmp_path / "in" / name)
    depth = "8" if name.startswith("narrow") else "12"
    one, other = both(tmp_path, clock, monkeypatch, capsys, "in", "--bit-depth", depth)
    assert one == other == (0, "")
    assert_same_planes(tmp_path, 3 if name == "many.tif" else 1)


BARE = ("--pixel-format", "Mono12", "--height", "64", "--width", "96")


@pytest.mark.parametrize("missing", (0, 8, 48))
def test_bare_samples_may_end_with_the_last_sample(missing, tmp_path, clock, monkeypatch, capsys):
    rows = np.zeros((3 * 64, 240), np.uint8)
    rows[:, :192] = frames_of(3).reshape(-1, 96).view(np.uint8)
    (tmp_path / "in.raw").write_bytes(rows.tobytes()[: rows.size - missing])
    line = ("in.raw", *BARE, "--stride", "240")
    one, other = both(tmp_path, clock, monkeypatch, capsys, *line)
    if missing == 8:
        assert one[1] == other[1] and f"error: {tmp_path}/in.raw: has 46072 bytes; " in one[1]
        return
    assert one == other == (0, "")
    assert_same_planes(tmp_path, 3)


def test_pictures_are_no_bare_samples(tmp_path, clock, monkeypatch, capsys):
    png("L")(tmp_path / "in.raw")
    one, other = both(tmp_path, clock, monkeypatch, capsys, "in.raw", *BARE)
    assert one == other and one[0] == 2 and "in.raw is a PNG image; leave the option out" in one[1]
