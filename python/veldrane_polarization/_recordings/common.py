"""What all recordings have in common: errors, what tells one from another, files that must stay."""

from __future__ import annotations

import contextlib
import errno
import os
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any


# Of storage that may answer a moment later.
PASSING_ERRORS = {
    errno.EIO,
    errno.ESTALE,
    errno.ETIMEDOUT,
    errno.EAGAIN,
    errno.ENETUNREACH,
    errno.EHOSTUNREACH,
}


class Recording_error(ValueError):
    """A recording that cannot be opened, or a frame of it that cannot be read: one line for a user.

    Examples
    --------
    >>> try:
    ...     open_recording("no.zarr", layout=2, bit_depth=12)
    ... except Recording_error as error:
    ...     print(str(error).endswith("no.zarr does not exist; give a zarr array, a folder or a file"))
    True
    """


class Recording_changed(Exception):
    """Somebody writes to a recording while it is read: one line for a user of the command.

    `change` goes on where a line began with the file.
    """

    def __init__(self, file: str, change: str, remedy: str) -> None:
        super().__init__(file, change, remedy)
        self.file, self.change, self.remedy = file, change, remedy

    def __str__(self) -> str:
        return f"{self.file} {self.change} while the run read it; {self.remedy}"


# What a user knows an argument by.
Naming = Callable[[str], str]


def on_the_command_line(argument: str) -> str:
    return "IN" if argument == "path" else "--" + argument.replace("_", "-")


def text_of_name(name: str) -> str:
    """What JSON can hold: bytes that are no UTF-8 as \\xff."""
    return os.fsencode(name).decode("utf-8", "backslashreplace")


def description_of(
    kind: str, path: str, count: int, shape: tuple[int, ...], dtype: str, **more: Any
) -> dict[str, Any]:
    """What tells a recording from another."""
    return {
        "kind": kind,
        "file": text_of_name(path),
        "frames": count,
        "frame_shape": list(shape),
        "dtype": dtype,
        **more,
    }


def check_regular(path: Path) -> None:
    # Of a device or a pipe nobody knows the size, or when it ends.
    if not path.is_file():
        raise Recording_error(f"{path} is no regular file; give a zarr array, a folder or a file")


def modified_of(status: os.stat_result) -> int:
    """In microseconds, which all kinds of storage tell alike; some round off finer ones."""
    return status.st_mtime_ns // 1000


def check_as_opened(file: str, size: int, modified: int) -> None:
    """For a file whose frames belong together: behind a read it shows what was written before."""
    status = os.stat(file)
    if (status.st_size, modified_of(status)) == (size, modified):
        return
    change = "was written to"
    if status.st_size != size:
        change = f"was changed from {size} to {status.st_size} bytes"
    raise Recording_changed(file, change, "give another OUT, once nothing writes to it any more")


@contextlib.contextmanager
def unchanged(file: str) -> Iterator[None]:
    """For a file that is opened by its name, more than once perhaps.

    Where there is none, reading it says so.
    """
    before = _version_of(file) if os.path.exists(file) else None
    try:
        yield
    finally:
        if before is not None and _version_of(file) != before:
            raise Recording_changed(
                file,
                "was written to",
                "the same command goes on once nothing writes to it any more",
            )


def _version_of(file: str) -> tuple[int, int, int]:
    status = os.stat(file)
    return status.st_size, status.st_mtime_ns, status.st_ino
