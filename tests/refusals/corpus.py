"""The corpus as data: what is run, what has to come of it, and what no user may read."""

from __future__ import annotations

import os
import shlex
import shutil
import stat
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

HERE = Path(__file__).resolve().parent

# What no line of a text file can hold as it is.
_WORDS = {
    "{escape}": "\x1b[31m",
    "{bell}": "\x07",
    "{newline}": "\n",
    "{latin1}": "\udcff\udcfe",
    "{rtl}": "\u202e",
    "{long}": "x" * 300,
}


@dataclass(frozen=True)
class Case:
    place: str  # file and line of the corpus
    code: int
    words: tuple[str, ...]  # of the whole command line
    own: tuple[str, ...]  # those that make it a bad one
    wanted: str  # in the message; empty: any of `own`
    lines: int = 1  # of the message

    def names_what_is_wrong(self, message: str) -> bool:
        if self.wanted:
            return self.wanted in message
        named = [word for word in self.own if word in message]
        return len(named) == self.lines if self.lines > 1 else bool(named)


def load(name: str, only: str = "") -> list[Case]:
    """Lines of a code, words and, behind =>, what the message has to hold.

    A star behind the code: each word is an input that gets a line of its own. A line that begins with = gives the words around those of the lines behind it, which stand in
    place of {}.
    """
    cases = []
    around = ("{}",)
    for place, line in _lines(name):
        if line.startswith("="):
            around = tuple(shlex.split(line[1:]))
        if line.startswith("=") or only not in line:
            continue
        said, _, wanted = line.partition(" => ")
        code, *own = map(_meant, shlex.split(said))
        words: list[str] = []
        for word in around if "{}" in around else (*around, "{}"):
            words += own if word == "{}" else [_meant(word)]
        is_each = code.endswith("*")
        cases.append(
            Case(
                place,
                int(code.rstrip("*")),
                tuple(words),
                tuple(filter(None, own)),
                wanted.strip(),
                len(own) if is_each else 1,
            )
        )
    return cases


def calls(name: str, only: str = "") -> list[tuple[str, str, str]]:
    """Place, Python expression, and, behind =>, what the message has to hold."""
    found = []
    for place, line in _lines(name):
        call, _, wanted = line.partition(" => ")
        if only in line:
            found.append((place, call, wanted.strip()))
    return found


def forbidden_words(message: str) -> list[str]:
    return [phrase for _, phrase in _lines("forbidden.txt") if phrase in message]


def _lines(name: str) -> Iterator[tuple[str, str]]:
    for number, line in enumerate((HERE / name).read_text().splitlines(), 1):
        if line.strip() and not line.startswith("#"):
            yield f"{name}:{number}", line


def _meant(word: str) -> str:
    for name, meaning in _WORDS.items():
        word = word.replace(name, meaning)
    return word


def problems_of_lines(message: str, wanted: int = 1) -> Iterator[str]:
    """Of what stands on standard error, or in an exception."""
    lines = message.split("\n")[: -1 if message.endswith("\n") else None]
    if not message:
        yield "no line"
    elif len(lines) != wanted:
        yield f"{len(lines)} lines"
    if any(not sign.isprintable() for line in lines for sign in line):
        yield "control characters"
    for phrase in forbidden_words(message):
        yield f"a library's '{phrase}'"
    if any(len(line) > 1500 for line in lines):
        yield "more than 1500 characters"


class Place:
    """A copy of the hostile files to work in, made anew when something has changed it."""

    def __init__(self, source: Path, folder: Path) -> None:
        self._source, self._folder = source, folder
        self.files, self.temporary = folder / "files", folder / "tmp"
        self._make()

    def _make(self) -> None:
        shutil.copytree(self._source, self.files, symlinks=True, copy_function=_copied)
        self.temporary.mkdir()
        self._before = self._listing()

    def changes(self) -> Iterator[str]:
        now = self._listing()
        if now == self._before:
            return
        names = [n for n in self._before | now if self._before.get(n) != now.get(n)]
        yield f"made, changed or removed {', '.join(map(repr, sorted(names)[:5]))}"
        for path in self._folder.iterdir():
            shutil.rmtree(path)
        self._make()

    def _listing(self) -> dict[str, tuple[int, ...]]:
        """Every name with what would show a change."""
        found: dict[str, tuple[int, ...]] = {}
        for path in self._folder.rglob("*"):
            status = path.lstat()
            found[str(path.relative_to(self._folder))] = (
                (status.st_mode,)
                if stat.S_ISDIR(status.st_mode)
                else (status.st_mode, status.st_size, status.st_ino, status.st_mtime_ns)
            )
        return found


def _copied(source: str, target: str) -> str:
    """copytree() alone would read a FIFO and hang."""
    if Path(source).is_fifo():
        os.mkfifo(target)
        return target
    return str(shutil.copy2(source, target))
