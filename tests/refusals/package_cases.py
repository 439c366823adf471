"""Calls of the Python package and command lines of its batch command, in this process."""

from __future__ import annotations

import contextlib
import io
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import corpus
from corpus import Case

# What the package's documentation names; whatever else comes is a fault of ours.
_ERRORS = (ValueError, TypeError, OSError, KeyError, AttributeError, IndexError)


def replay(folder: Path, only: str = "") -> list[str]:
    place = corpus.Place(folder / "files", folder / "package")
    faults: list[str] = []
    with contextlib.chdir(place.files):
        calls = corpus.calls("package_calls.txt", only)
        names = _names()
        for where, call, wanted in calls:
            problems = [*_problems_of_call(call, wanted, names), *place.changes()]
            faults += [f"{where}: {problem}" for problem in problems]
            os.chdir(place.files)  # which may have been made anew
        print(len(calls), "calls of the package", flush=True)
        lines = corpus.load("batch_lines.txt", only)
        for case in lines:
            problems = [*_problems_of_line(case), *place.changes()]
            faults += [f"{case.place}: {problem}" for problem in problems]
            os.chdir(place.files)
        print(len(lines), "command lines of the batch command", flush=True)
    return faults


def _names() -> dict[str, Any]:
    import numpy as np

    import veldrane_polarization as vp
    from veldrane_polarization import colours

    frame = np.arange(4 * 20, dtype=np.uint16).reshape(4, 20)
    return {
        "vp": vp,
        "np": np,
        "colours": colours,
        "frame": frame,
        "series": np.stack([frame, frame]),
        "good": {"layout": 2, "bit_depth": 12, "planes": ("s0",)},
        "result": vp.process(frame, layout=2, bit_depth=12),
    }


def _problems_of_call(call: str, wanted: str, names: dict[str, Any]) -> Iterator[str]:
    errors = io.StringIO()
    try:
        with contextlib.redirect_stderr(errors), contextlib.redirect_stdout(errors):
            eval(call, dict(names))
    except _ERRORS as error:
        message = _text_of(error)
        if not message:
            yield f"{type(error).__name__} without a word"
        for problem in corpus.problems_of_lines(message):
            yield f"{problem}: {message[:200]!r}"
        if wanted not in message:
            yield f"does not say '{wanted}': {message[:200]!r}"
    except BaseException as error:
        yield f"{type(error).__name__}: {str(error)[:200]!r}"
    else:
        yield "was not refused"
    if errors.getvalue():
        yield f"printed {errors.getvalue()[:200]!r}"


def _text_of(error: BaseException) -> str:
    """Without what Python itself puts around it."""
    if isinstance(error, OSError) and error.strerror:
        return f"{error.filename}: {error.strerror}"
    return str(error.args[0]) if isinstance(error, KeyError) else str(error)


def _problems_of_line(case: Case) -> Iterator[str]:
    from veldrane_polarization import batch

    output, errors = io.StringIO(), io.StringIO()
    try:
        with contextlib.redirect_stdout(output), contextlib.redirect_stderr(errors):
            code = batch.main(list(case.words))
    except SystemExit as end:
        code = end.code if isinstance(end.code, int) else 1
    except BaseException as error:
        yield f"{type(error).__name__}: {str(error)[:200]!r}"
        return
    message = errors.getvalue()
    told = message.strip().splitlines()[:1]
    if code != case.code:
        yield f"exit code {code}, not {case.code}: {told}"
    for problem in corpus.problems_of_lines(message):
        yield f"{problem}: {told}"
    if not message.startswith("error: "):
        yield f"does not begin with 'error: ': {told}"
    if not case.names_what_is_wrong(message):
        yield f"does not say '{case.wanted or ' or '.join(case.own)}': {told}"
    if output.getvalue():
        yield f"standard output: {output.getvalue()[:60]!r}"
