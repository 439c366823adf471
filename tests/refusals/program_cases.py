"""Command lines of the program: each run in a folder of its own, in a thread for each processor."""

from __future__ import annotations

import os
import subprocess
from collections.abc import Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import corpus
from corpus import Case

# Only for what hangs: no verdict hangs on the machine's speed.
_SECONDS = 120


def replay(program: str, folder: Path, cases: Sequence[Case]) -> list[str]:
    threads = os.cpu_count() or 1
    shares = [cases[number::threads] for number in range(threads)]
    with ThreadPoolExecutor(threads) as pool:
        jobs = [
            pool.submit(_replay_share, program, folder, number, share)
            for number, share in enumerate(shares)
        ]
        return sorted(fault for job in jobs for fault in job.result())


def has_view(program: str) -> bool:
    told = subprocess.run([program, "--version"], capture_output=True, text=True, check=True)
    return "view: built in" in told.stdout.splitlines()


def _replay_share(program: str, folder: Path, number: int, cases: Sequence[Case]) -> list[str]:
    place = corpus.Place(folder / "files", folder / f"run{number}")
    return [
        f"{case.place}: {problem}" for case in cases for problem in _problems(program, case, place)
    ]


def _problems(program: str, case: Case, place: corpus.Place) -> Iterator[str]:
    try:
        done = subprocess.run(
            [program, *map(os.fsencode, case.words)],
            cwd=place.files,
            timeout=_SECONDS,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            env=os.environ | {"TMPDIR": str(place.temporary), "LC_ALL": "C.UTF-8"},
        )
    except subprocess.TimeoutExpired:
        yield f"no end within {_SECONDS} s"
        return
    message = done.stderr.decode(errors="surrogateescape")
    told = message.strip().splitlines()[:1]
    if done.returncode != case.code:
        yield f"exit code {done.returncode}, not {case.code}: {told}"
    for problem in corpus.problems_of_lines(message, case.lines):
        yield f"{problem}: {told}"
    if not message.startswith("veldrane-polarize: "):
        yield f"no name of the program: {told}"
    if not case.names_what_is_wrong(message):
        yield f"does not say '{case.wanted or ' or '.join(case.own)}': {told}"
    if done.stdout:
        yield f"standard output: {done.stdout[:60]!r}"
    yield from place.changes()
