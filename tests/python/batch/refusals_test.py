"""Wrong usage: one line that names the option or file, exit code 2, nothing done."""

from __future__ import annotations

import errno
import os
import socket
from pathlib import Path

import numpy as np
import pytest
import zarr
from batch_support import frames_of, options, output, settings
from PIL import Image

import veldrane_polarization as vp
from veldrane_polarization import _recordings, batch
from veldrane_polarization.batch import cluster, command, output_group


def bare(*changes, height="64", width="96"):
    return (
        "--layout",
        "2",
        "--pixel-format",
        "Mono12p",
        "--height",
        height,
        "--width",
        width,
        *changes,
    )


# A port that is taken, so that no other program listens on it, and that refuses who comes.
TAKEN = socket.socket()
TAKEN.bind(("127.0.0.1", 0))
NOBODY = f"tcp://127.0.0.1:{TAKEN.getsockname()[1]}"

CASES = [
    (("nowhere", "out", *options()), "nowhere does not exist"),
    (("in.raw", "out", *options()), "--pixel-format"),
    (("in.raw", "out", "--layout", "2", "--pixel-format", "Mono12p"), "--height and --width"),
    (("in.raw", "out", *bare(height="60")), "in.raw: has 9216 bytes; frames of 96 x 60 in Mono12p"),
    (("in.raw", "out", *bare(height="0")), "--height is 0; give 1 to"),
    (("in.raw", "out", *bare(height="-1")), "--height is -1; give 1 to"),
    (("in.raw", "out", *bare(width="0")), "--width is 0; give 1 to"),
    (("in.raw", "out", *bare("--header-bytes", "-1")), "--header-bytes is -1, but"),
    (("in.raw", "out", *bare("--header-bytes", "9216")), "in.raw has 9216 bytes; give 0 to 9215"),
    (("in.raw", "out", *bare("--stride", "143")), "--stride is 143; give at least 144"),
    (("in.raw", "out", *bare("--stride", "-5")), "--stride is -5; give at least 144"),
    (("in.raw", "out", *bare("--stride", "0")), "--stride is 0; give at least 144"),
    (("in.raw", "out", *bare(height="x")), "--height is x; give a whole number"),
    (("empty.raw", "out", *bare()), "empty.raw is empty"),
    (("in.zarr", "out", *options("--stride", "200")), "--stride is for bare samples"),
    (("in.zarr", "out", *options("--header-bytes", "0")), "--header-bytes is for bare samples"),
    (("in.zarr", "out", "--layout", "2"), "--bit-depth is missing"),
    (("in.zarr", "out", "--bit-depth", "12"), "layout is missing"),
    (("in.zarr", "out", *options("--planes", "aolp")), "'aolp'"),
    (("in.zarr", "out", *options("--mode", "fast", "--calibration", "c.json")), "leave out mode"),
    (
        ("in.zarr", "out", *options("--calibration", "nope.json")),
        "--calibration nope.json cannot be read (No such file",
    ),
    (("in.zarr", "out", *options("--calibration", "in.raw")), "--calibration: in.raw"),
    (
        ("in.zarr", "out", *options("--calibration", ".")),
        "--calibration: .: cannot be read: it is a folder",
    ),
    (("png", "out", *options()), "--bit-depth is 12, but"),
    (("narrow.zarr", "out", *options()), "narrow.zarr holds frames of 8 x 20"),
    (("flat.zarr", "out", *options()), "holds uint16 in the shape (2, 64)"),
    (("broken.zarr", "out", *options()), "broken.zarr/.zarray cannot be read"),
    (("group.zarr", "out", *options()), "is a zarr group; give one of the arrays"),
    (("group.zarr/s0", "group.zarr", *options()), "lie in each other"),
    (("in.zarr", "in.zarr", *options()), "lie in each other"),
    (("in.zarr", "in.zarr/out", *options()), "lie in each other"),
    (("link.zarr", "in.zarr", *options()), "lie in each other"),
    (("in.zarr", "empty", *options("--planes", "s0,s9")), "'s9'"),
    (("empty", "out", *options()), "empty holds no PNG, TIFF, PGM or npy files; give a folder"),
    (("in.zarr", "in.raw", *options()), "in.raw is a file"),
    (("in.zarr", "in.raw/out", *options()), "cannot be written (Not a directory)"),
    (("in.zarr", "/proc/none/out", *options()), "/proc/none/out cannot be written"),
    (("in.zarr", "png", *options()), "is a folder that this program did not make"),
    (("in.zarr", "other", *options("--full-scale", "4095")), "was made with full_scale"),
    (("in.zarr", "other", *options("--compression", "none")), "was made with compression"),
    (("in.zarr", "out", *options("--workers", "2", "--scheduler", "tcp://127.0.0.1:9")), "exclude"),
    (
        ("in.zarr", "out", *options("--workers", "0")),
        "--workers is 0; give a whole number from 1 to 1024",
    ),
    (("in.zarr", "out", *options("--patience", "0")), "--patience is 0"),
    (("in.zarr", "out", *options("--patience", "nan")), "--patience is nan"),
    (("in.zarr", "out", *options("--work", "2")), "--work is no argument"),
    (("in.zarr",), "OUT is missing; give a folder"),
    (("in.zarr/.zarray", "out", *bare()), "bytes; frames of 96 x 64 in Mono12p"),
    (("png/f.png", "out", *options()), "png/f.png is a single picture; give the folder"),
    (("png/f.png", "out", *bare()), "png/f.png is a PNG image; leave the option out"),
    (("pipe", "out", *options()), "pipe is no regular file"),
    (("pipe", "out", *bare()), "pipe is no regular file"),
    (("/dev/zero", "out", *bare()), "/dev/zero is no regular file"),
    (("circle", "out", *options()), "circle does not exist"),
    (("in.zarr", "circle", *options()), "circle is a link to nothing; give another OUT"),
    (("in.zarr", "pipe", *options()), "pipe is a file"),
    (("in.zarr", "piped", *options()), "piped/.zattrs is damaged; restore it"),
    (("in.zarr", "torn", *options()), "torn/.zattrs is damaged; restore it"),
    (
        ("in.zarr", "out", *options("--layout", "1", "--calibration", "c.json")),
        "--layout is given twice",
    ),
    (
        ("in.zarr", "out", "--bit-depth", "12", "--layout", "1", "--calibration", "c.json"),
        "--calibration c.json is for (90, 45, 135, 0), not for --layout 1",
    ),
    ((os.fsdecode(b"a\xff\x1b[31m\n"), "out", *options()), r"a\xff\x1b[31m\n does not exist"),
    (("in.zarr", "out", *options("--dashboard", "--scheduler", NOBODY)), "exclude"),
    (("in.zarr", "out", *options("--tls-cert", "c.json")), "are for --scheduler; give it too"),
    (
        ("in.zarr", "out", *options("--scheduler", NOBODY, "--tls-cert", "c.json")),
        "--tls-ca-file is missing",
    ),
    (
        ("in.zarr", "out", *options("--scheduler", NOBODY, "--tls-ca-file", "c.json")),
        "--tls-cert is missing",
    ),
    (
        (
            "in.zarr",
            "out",
            *options("--scheduler", NOBODY, "--tls-ca-file", "c.json", "--tls-cert", "no"),
        ),
        "--tls-cert no cannot be read (No such file",
    ),
    (
        (
            "in.zarr",
            "out",
            *options("--scheduler", NOBODY, "--tls-ca-file", "c.json", "--tls-cert", "c.json"),
        ),
        "no certificates in PEM form",
    ),
    *(
        (
            ("in.zarr", "out", *options("--scheduler", address)),
            f"--scheduler {address} is no address that can be used; give one such as tcp://HOST:8786",
        )
        for address in (
            "nonsense://x:1",
            "localhost",
            "inproc://x",
            "tcp://[::1]:x",
            "tls://x:99999",
        )
    ),
    (("in.zarr", "out", *options("--scheduler", NOBODY)), "does not answer"),
]


@pytest.fixture
def folder(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    monkeypatch.setattr(cluster, "_CONNECT_SECONDS", 1)
    zarr.save_array("in.zarr", frames_of(2), chunks=(1, 64, 96))
    zarr.save_array("narrow.zarr", np.zeros((2, 20, 8), "u2"))
    zarr.save_array("flat.zarr", np.zeros((2, 64), "u2"))
    zarr.save_group("group.zarr", s0=frames_of(2))
    os.symlink("in.zarr", "link.zarr")
    Path("broken.zarr").mkdir()
    Path("broken.zarr/.zarray").write_text("{}")
    Path("in.raw").write_bytes(bytes(9216))
    os.mkfifo("pipe")
    os.symlink("circle", "circle")
    for name in ("piped", "torn"):
        Path(name).mkdir()
    os.mkfifo("piped/.zattrs")
    Path("torn/.zattrs").write_text("{")
    Path("empty.raw").touch()
    Path("empty").mkdir()
    Path("png").mkdir()
    Image.fromarray(np.zeros((64, 96), np.uint8)).save("png/f.png")
    vp.Calibration.ideal(2).save("c.json")
    recording = _recordings.open_recording(Path("in.zarr").absolute())
    output_group.prepare(
        output(Path("other").absolute()), settings(planes=("s0", "azimuth", "dolp")), recording
    )


@pytest.mark.parametrize("arguments, words", CASES)
def test_wrong_usage_is_one_line_and_code_2(folder, capsys, arguments, words):
    before = zarr.load("in.zarr")
    assert batch.main(list(map(str, arguments))) == 2
    printed, errors = capsys.readouterr()
    assert errors.startswith("error: ") and errors.count("\n") == 1 and words in errors, errors
    assert not printed and np.array_equal(zarr.load("in.zarr"), before)


@pytest.mark.parametrize(
    "refused, function, words",
    [
        ("png", "scandir", "png cannot be read (Permission denied); make it readable"),
        ("other", "listdir", "other cannot be written (Permission denied); give another OUT"),
    ],
)
def test_a_folder_that_may_not_be_looked_into_is_wrong_usage(
    folder, capsys, monkeypatch, refused, function, words
):
    """As for a user who is not root."""
    usual = getattr(os, function)

    def refusing(path):
        if os.fspath(path).endswith(refused):
            raise PermissionError(errno.EACCES, os.strerror(errno.EACCES), path)
        return usual(path)

    monkeypatch.setattr(os, function, refusing)
    source = "png" if refused == "png" else "in.zarr"
    assert batch.main([source, "other", *map(str, options())]) == 2
    printed, errors = capsys.readouterr()
    assert errors.startswith("error: ") and errors.count("\n") == 1 and words in errors, errors
    assert not printed


@pytest.mark.parametrize(
    "path, wanted",
    [
        ("a/b", "a/b"),
        ("./a", "a"),
        ("link/x", "link/x"),
        ("link/../x", "real/x"),
        ("a/../x/y", "x/y"),
    ],
)
def test_workers_are_told_paths_with_the_links_in_them(tmp_path, monkeypatch, path, wanted):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "real" / "deep").mkdir(parents=True)
    (tmp_path / "link").symlink_to(tmp_path / "real" / "deep")
    assert command._absolute(Path(path)) == tmp_path / wanted


def test_the_recording_a_worker_gets_has_the_path_that_was_given(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "disk").mkdir()
    zarr.save_array("disk/in.zarr", frames_of(1), chunks=(1, 64, 96))
    (tmp_path / "link").symlink_to("disk")
    given = []
    monkeypatch.setattr(command, "_process", lambda *arguments: given.extend(arguments[1:3]))
    batch.main(["link/in.zarr", "link/out.zarr", *map(str, options("--quiet"))])
    assert given[0].path == str(tmp_path / "link" / "in.zarr")
    assert given[1].path == str(tmp_path / "link" / "out.zarr")


def test_help_ends_with_0(capsys):
    with pytest.raises(SystemExit) as ended:
        batch.main(["--help"])
    assert ended.value.code == 0 and "exit codes" in capsys.readouterr().out
