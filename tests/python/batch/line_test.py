"""Values on the command line of the batch: what each option takes, and our words for the rest."""

from __future__ import annotations

import json
import os

import pytest
import zarr
from batch_support import assert_equal, frames_of, options, run
from hypothesis import given, strategies as st

import veldrane_polarization as vp
from veldrane_polarization import _recordings, batch
from veldrane_polarization.batch import command, line as line_of_words

OF_ARGPARSE = (
    "invalid",
    "expected",
    "unrecognized",
    "argument is",
    "choose from",
    "required",
    "ignored",
)
PARSER = command._parser()
WITH_VALUE = {
    max(action.option_strings, key=len): action
    for action in PARSER._actions
    if isinstance(action, line_of_words._Value) and action.option_strings
}
FLAGS = {
    max(action.option_strings, key=len)
    for action in PARSER._actions
    if action.option_strings and not isinstance(action, line_of_words._Value)
}
WHOLE_NUMBERS = [
    name
    for name, action in WITH_VALUE.items()
    if isinstance(action.kind, line_of_words.Whole_number)
]


def told(capsys, *arguments):
    assert batch.main(["in", "out", *arguments]) == 2
    printed, errors = capsys.readouterr()
    assert errors.startswith("error: ") and errors.count("\n") == 1 and not printed
    assert not any(words in errors for words in OF_ARGPARSE), errors
    return errors


def test_the_options_are_found():
    assert {
        "--layout",
        "--bit-depth",
        "--planes",
        "--mode",
        "--calibration",
        "--full-scale",
        "--pixel-format",
        "--height",
        "--width",
        "--header-bytes",
        "--stride",
        "--scheduler",
        "--workers",
        "--patience",
        "--compression",
        "--frames-per-chunk",
        "--tls-ca-file",
        "--tls-cert",
        "--tls-key",
    } <= set(WITH_VALUE)
    assert {"--signed", "--quiet", "--help"} <= FLAGS and len(WHOLE_NUMBERS) == 8
    # Whose texts would come before ours.
    assert all(action.type is None and action.choices is None for action in WITH_VALUE.values())


@pytest.mark.parametrize("name", WITH_VALUE)
def test_an_option_needs_a_value_that_is_not_empty_and_comes_once(capsys, name):
    accepted = WITH_VALUE[name].kind.accepted
    assert f"{name} has no value; give {accepted}" in told(capsys, name)
    assert f"{name} has no value; give {accepted}" in told(capsys, name, "--signed")
    for empty in ("", " ", "\t"):
        assert f"{name} is empty; give {accepted}" in told(capsys, name, empty)
    assert f"{name} is empty; give {accepted}" in told(capsys, f"{name}=")
    value = {"--mode": "fast", "--compression": "lz4", "--pixel-format": "Mono8"}.get(name, "5")
    assert f"{name} is given twice; give it once" in told(capsys, name, value, name, value)


@pytest.mark.parametrize("name", sorted(FLAGS - {"--help"}))
def test_a_flag_takes_no_value(capsys, name):
    assert f"{name}=1 has a value where none belongs; give {name} alone" in told(
        capsys, f"{name}=1"
    )


@pytest.mark.parametrize("name", WHOLE_NUMBERS)
@pytest.mark.parametrize(
    "value",
    [
        "0x10",
        "1_0",
        " 12",
        "12 ",
        "+5",
        "1.0",
        "1e3",
        "0b1",
        "x",
        "--",
        "\u0663",
        "12\n",
        "\x1b[31m",
        "9223372036854775808",
        "-9223372036854775809",
        "9" * 5000,
    ],
)
def test_numbers_are_decimal_digits_of_64_bits(capsys, name, value):
    errors = told(capsys, f"{name}={value}")
    assert f"error: {name} is " in errors and "; give a whole number " in errors
    assert all(sign.isprintable() for sign in errors[:-1])


@given(st.integers(-(2**63), 2**63 - 1))
def test_every_number_of_64_bits_is_taken(number):
    line = PARSER.parse_line(["in", "out", f"--stride={number}"])
    assert line.stride == number and line.input == "in" and line.output == "out"


@pytest.mark.parametrize("value", ["nan", "inf", "0x1", "1_0", "x", " 1", "1e", "--"])
def test_patience_is_a_number_of_seconds(capsys, value):
    assert "--patience is " in told(capsys, f"--patience={value}")


def test_case_of_values_does_not_matter():
    line = PARSER.parse_line(
        [
            "in",
            "out",
            "--mode",
            "FAST",
            "--compression",
            "NONE",
            "--planes",
            "S0,DoLP",
            "--pixel-format",
            "mono12P",
            "--layout",
            "2",
        ]
    )
    assert (line.mode, line.compression, line.pixel_format) == ("fast", "none", "Mono12p")
    assert command._settings(line).planes == ("s0", "dolp")


TRUST = ("--electrons-per-count", "--read-noise", "--zero-direction")


@pytest.mark.parametrize("name", TRUST)
@pytest.mark.parametrize(
    "value", ["nan", "inf", "-1e9", "1e9", "0x1", "1_0", "x", " 1", "1e", "--"]
)
def test_decimal_numbers_have_a_range(capsys, name, value):
    assert f"{name} is " in told(capsys, f"{name}={value}")


def test_noise_and_zero_direction_reach_the_settings():
    options = zip(TRUST, ("2.5", "7", "-30.5"))
    words = [word for option in options for word in option]
    line = PARSER.parse_line(
        ["in", "out", "--layout", "2", "--bit-depth", "12", "--mode", "calibrated", *words]
    )
    chosen = command._settings(line)
    assert chosen.noise == vp.Noise(2.5, 7.0) and chosen.zero_direction == -30.5
    help_text = PARSER.format_help()
    assert all(name in help_text for name in (*TRUST, "validity", "uncertainty"))


@pytest.mark.parametrize(
    "arguments, words",
    [
        (("--read-noise", "3"), "but --electrons-per-count is not given; add it"),
        (("--planes", "uncertainty"), "--planes has uncertainty, but no noise is known; give --el"),
        (("--zero-direction", "30"), "--zero-direction turns weights, which fast mode applies"),
    ],
)
def test_noise_and_zero_direction_that_cannot_be_used_are_refused(capsys, arguments, words):
    assert words in told(capsys, "--layout", "2", "--bit-depth", "12", *arguments)


@pytest.mark.parametrize(
    "arguments, words",
    [
        (("--mode", "quick"), "--mode is quick; give one of fast, calibrated"),
        (("--compression", "zip"), "--compression is zip; give one of lz4, zstd, none"),
        (("--pixel-format", "Mono13"), "--pixel-format is Mono13; give one of Mono8,"),
        (("other",), "other is no argument of this command"),
        (("-qx",), "-qx has a value where none belongs; give --quiet alone"),
        (("--nonsense", "5"), "--nonsense is no argument of this command"),
        (("--quie",), "--quie is no argument of this command"),
        (("--bit-depth", "17"), "--bit-depth is 17; give a whole number from 1 to 16"),
        (
            ("--frames-per-chunk", "0"),
            "--frames-per-chunk is 0; give a whole number from 1 to 1000000",
        ),
        (("--full-scale", "0"), "--full-scale is 0; give a whole number from 1 to 65535"),
    ],
)
def test_what_is_wrong_is_told_in_our_words(capsys, arguments, words):
    assert words in told(capsys, *arguments)


@pytest.mark.parametrize(
    "line, words",
    [
        ([], "IN is missing; give a zarr array"),
        (["in"], "OUT is missing"),
        (["", "out"], "IN is empty"),
        (["in", ""], "OUT is empty"),
        (["--nonsense"], "--nonsense is no argument"),
    ],
)
def test_in_and_out_are_needed(capsys, line, words):
    assert batch.main(line) == 2
    assert words in capsys.readouterr().err


def test_options_may_stand_between_in_and_out():
    line = PARSER.parse_line(["in", "--height", "20", "--signed", "out", "--width", "48"])
    assert (line.input, line.output, line.height, line.width) == ("in", "out", 20, 48)


@given(st.text())
def test_what_is_printed_is_one_line_of_signs(text):
    shown = line_of_words.printable(text)
    assert shown.isprintable() and shown.encode().decode() == shown
    assert text != shown or text.isprintable()


def test_names_that_are_no_utf_8_are_read_written_and_told(tmp_path):
    """Bytes, control characters and a line's end in the names of IN, of a file in it and of OUT."""
    name = os.fsdecode(b"\xff\xfe\x1b[31m \n")
    frames, folder, out = frames_of(2), tmp_path / f"in{name}", tmp_path / f"out{name}"
    folder.mkdir()
    from PIL import Image

    Image.fromarray(frames[0]).save(folder / f"f0{name}.png")
    (folder / f"f1{name}.png").write_bytes(b"no picture")
    vp.Calibration.ideal(2).save(tmp_path / f"c{name}.json")
    code, printed, errors = run(
        folder, out, *options("--workers", 1, "--calibration", tmp_path / f"c{name}.json")
    )
    assert code == 1 and "1 frames done, 0 skipped, 1 failed" in printed
    assert (
        errors.count("\n") == 1
        and r"f1\xff\xfe\x1b[31m \n.png: not a PNG, TIFF, binary PGM or npy file" in errors
    )
    attributes = json.loads((out / ".zattrs").read_text())
    assert json.dumps(attributes, ensure_ascii=False).encode()
    assert attributes["source"]["file"].endswith("in\\xff\\xfe\x1b[31m \n")
    assert zarr.open_group(str(out), mode="r")["complete"][:].tolist() == [1, 0]
    assert_equal(out, frames, [0], calibration=vp.Calibration.ideal(2))
    assert _recordings.text_of_name("/a/\u00e4") == "/a/\u00e4"
