"""What workers put into OUT: chunks of planes, and the marks of frames that are all there."""

from __future__ import annotations

import contextlib
import errno
import fcntl
import io
import os
import random
import time
import uuid
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np

from .._arguments import Array
from .._recordings import blosc_sizes

COMPLETE = "complete"
COMPRESSIONS = ("lz4", "zstd", "none")
GO_ON = "the same command goes on from here"
# Of storage that will take no other frame either, with the remedy.
_AWAY = "put it where every worker sees it"
_LOST = {
    errno.ENOENT: _AWAY,
    errno.ENOTDIR: _AWAY,
    errno.ESTALE: _AWAY,
    errno.ENOSPC: "make room there",
    errno.EDQUOT: "make room there",
    errno.EROFS: "make it writable",
}
_FEWEST_MARKS = 1000
_SECONDS_FOR_A_LOCK = 10.0


class Output_lost(OSError):
    """Storage that takes no more frames: one line for a user."""


@dataclass(frozen=True)
class Output:
    """Where frames go. `run` is in the names of all files that a run has not finished."""

    path: str
    compression: str
    run: str
    frames_per_chunk: int = 1

    @property
    def frames_per_mark_file(self) -> int:
        """A byte each; whole chunks, so that the marks of a chunk lie in one file."""
        return self.frames_per_chunk * -(-_FEWEST_MARKS // self.frames_per_chunk)

    def compressor(self) -> Any:
        from numcodecs import Blosc

        if self.compression == "none":
            return None
        # Of noisy samples only the upper bits repeat, which share their bytes with the lower ones.
        return Blosc(self.compression, clevel=1, shuffle=Blosc.BITSHUFFLE)

    def file_of(self, name: str, number: int, dimensions: int) -> str:
        """Of a chunk."""
        return os.path.join(self.path, name, ".".join([str(number)] + ["0"] * (dimensions - 1)))

    def mark_file(self, number: int) -> str:
        return self.file_of(COMPLETE, number, 1)

    def is_whole(self, file: str, file_size: int, size: int) -> bool:
        """Whether a file of so many bytes is a chunk of `size` bytes."""
        expected = (size, size) if self.compression == "none" else blosc_sizes(file)
        return expected == (size, file_size)

    def last_mark(self, first: int, last: int) -> int:
        """When one of these frames, or one near them, was last done, in nanoseconds.

        A file that is opened is looked up anew on network storage.
        """
        size = self.frames_per_mark_file
        times = []
        for number in range(first // size, last // size + 1):
            with open(self.mark_file(number), "rb", buffering=0) as stream:
                times.append(os.fstat(stream.fileno()).st_mtime_ns)
        return max(times)

    def show_progress(self, number: int) -> None:
        """That a frame of a chunk is done which has no mark yet, as `last_mark` tells."""
        with contextlib.suppress(OSError):  # what storage refuses shows when the chunk is stored
            file = self.mark_file(number * self.frames_per_chunk // self.frames_per_mark_file)
            os.utime(file, follow_symlinks=False)

    @contextlib.contextmanager
    def opened_marks(self, number: int) -> Iterator[tuple[int, int]]:
        """The file with a chunk's marks, and where in it they begin."""
        file, place = divmod(number * self.frames_per_chunk, self.frames_per_mark_file)
        descriptor = os.open(self.mark_file(file), os.O_RDWR | os.O_NOFOLLOW | os.O_CLOEXEC)
        try:
            yield descriptor, place
        finally:
            os.close(descriptor)

    def raise_if_lost(self, error: OSError, planes: Sequence[str]) -> None:
        """
        Raises
        ------
        Output_lost
            If no other chunk can be stored either.
        """
        folders = (os.path.join(self.path, name) for name in (*planes, COMPLETE))
        # A file alone may be gone, taken for a leftover.
        is_file_alone = error.errno == errno.ENOENT and all(map(os.path.isdir, folders))
        if error.errno in _LOST and not is_file_alone:
            raise Output_lost(
                f"{self.path} cannot be written any more ({error.strerror}); {_LOST[error.errno]}, "
                f"and {GO_ON}"
            ) from None


class Chunk:
    """Frames that lie in one file of each plane. All its files take their places at once.

    Without compression frames go to the files as they come, so that one at a time is in memory.
    """

    def __init__(self, output: Output, number: int) -> None:
        self.bytes = 0
        self.output, self.number = output, number
        self._compressor = output.compressor()
        self._last: Mapping[str, Array] = {}
        self._gathered: dict[str, Array] = {}
        # Of each plane the open file, its name until it is finished, and its place.
        self._files: dict[str, tuple[io.FileIO, str, str]] = {}

    def __enter__(self) -> Chunk:
        return self

    def __exit__(self, *error: object) -> None:
        for stream, unfinished, _ in self._files.values():
            with contextlib.suppress(OSError):
                stream.close()
            with contextlib.suppress(FileNotFoundError):
                os.unlink(unfinished)

    def put(self, position: int, planes: Mapping[str, Array]) -> None:
        """A frame, at its place among those of the chunk."""
        self._last = planes
        for name, values in planes.items():
            self._put(position, name, values)

    def _put(self, position: int, name: str, values: Array) -> None:
        count = self.output.frames_per_chunk
        if self._compressor is None:
            self._write(name, values, position * values.nbytes, 1 + values.ndim)
        elif count == 1:
            self._gathered[name] = values[np.newaxis]
        else:
            if name not in self._gathered:
                self._gathered[name] = np.zeros((count, *values.shape), values.dtype)
            self._gathered[name][position] = values

    def store(self, done: Sequence[int]) -> None:
        """Make or replace the chunk, and mark the frames that are in it.

        Whoever looks sees a file whole or not at all, and no mark before its frame. Other frames
        that have a mark stay as they are: those of an earlier run, or of the worker that was given
        this chunk while this one had stopped.
        """
        count = self.output.frames_per_chunk
        if is_full := len(done) == count:
            self._finish_files()
        with self.output.opened_marks(self.number) as (descriptor, place):
            _lock(descriptor)
            before = np.frombuffer(os.pread(descriptor, count, place), np.uint8) == 1
            after = before.copy()
            after[list(done)] = True
            if not is_full:
                self._take_over(sorted({*np.flatnonzero(before).tolist()} - {*done}))
                self._finish_files()
            # Without a lock another writer may have marked frames that this chunk lacks.
            os.pwrite(descriptor, before.tobytes(), place)
            for _, unfinished, file in self._files.values():
                os.replace(unfinished, file)
            self._files.clear()
            os.pwrite(descriptor, after.tobytes(), place)

    def _take_over(self, positions: Sequence[int]) -> None:
        """Frames that are stored in this chunk already."""
        for name, values in self._last.items() if positions else ():
            file = self.output.file_of(name, self.number, 1 + values.ndim)
            size = self.output.frames_per_chunk * values.nbytes
            with open(file, "rb") as stream:
                if not self.output.is_whole(file, os.fstat(stream.fileno()).st_size, size):
                    raise ValueError(f"{file} was damaged during the run; {GO_ON}")
                stored = None if self._compressor is None else self._unpacked(stream, values)
                for position in positions:
                    if stored is None:
                        stream.seek(position * values.nbytes)
                        data = np.frombuffer(stream.read(values.nbytes), values.dtype)
                        self._put(position, name, data.reshape(values.shape))
                    else:
                        self._put(position, name, stored[position])

    def _unpacked(self, stream: io.BufferedReader, values: Array) -> Array:
        """All frames of a plane's chunk, each like these values."""
        try:
            data = self._compressor.decode(stream.read())
        except MemoryError:
            raise
        except Exception:  # each version of the codec has its own
            raise ValueError(f"{stream.name} is damaged; remove it, and {GO_ON}") from None
        unpacked: Array = np.frombuffer(data, values.dtype).reshape(-1, *values.shape)
        return unpacked

    def _finish_files(self) -> None:
        """Network storage tells only now what it could not take."""
        for name, values in self._gathered.items():
            self._write(name, self._compressor.encode(values), 0, values.ndim)
        for stream, _, _ in self._files.values():
            self.bytes += os.fstat(stream.fileno()).st_size
            stream.close()

    def _write(self, name: str, values: Any, place: int, dimensions: int) -> None:
        if name not in self._files:
            file = self.output.file_of(name, self.number, dimensions)
            unfinished = f"{file}.{self.output.run}.{uuid.uuid4().hex}.partial"
            # Made anew under a name that nobody can know before: a file or link of somebody else's
            # that is there is not written through.
            stream = open(unfinished, "xb", buffering=0)
            self._files[name] = stream, unfinished, file
            if self._compressor is None:
                stream.truncate(self.output.frames_per_chunk * values.nbytes)
        data, descriptor = memoryview(values).cast("B"), self._files[name][0].fileno()
        while data:
            written = os.pwrite(descriptor, data, place)
            data, place = data[written:], place + written


def _lock(descriptor: int) -> None:
    """Until the file is closed.

    Network storage brings marks of several machines together where they are written under a lock.
    Where there are none, or a process has stopped with it in hand, it goes without: a chunk is then
    marked for what its last writer put into it, and at worst frames are done again.
    """
    end = time.monotonic() + _SECONDS_FOR_A_LOCK
    while time.monotonic() < end:
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return
        except BlockingIOError:
            time.sleep(random.uniform(0.001, 0.01))
        except OSError:
            return
