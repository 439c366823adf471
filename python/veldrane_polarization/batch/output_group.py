"""The zarr group that a recording is turned into: made, checked, gone on with."""

from __future__ import annotations

import contextlib
import errno
import json
import os
import shutil
import time
import uuid
from collections.abc import Iterator
from pathlib import Path
from typing import Any, Optional

import numpy as np

from .. import _arguments, _native, datasets
from .._arguments import Array
from .._native import processor_identification, software_version
from .._recordings import Recording, text_of_name
from .._settings import Settings
from . import arrays
from .arrays import Output_error
from .storing import COMPLETE, Output

_FORMAT = "veldrane_polarization.batch 2"
_SECONDS_OF_A_LEFTOVER = 3600
# Of a group until it is in its place, which is beside files of others.
_MADE = ".veldrane"
# The same version gives the same bits, whenever and from whichever commit it was built.
_MAY_DIFFER = ("calibration.file", "software.processor", "state")


def attributes_of(settings: Settings, recording: Recording, output: Output) -> dict[str, Any]:
    """Of the group. Whoever goes on with a run must have all alike but what _MAY_DIFFER names."""
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    calibration = settings.calibration
    attributes: dict[str, Any] = {
        "format": _FORMAT,
        "state": "ready",
        **datasets.common_attributes(empty),
        "planes": list(settings.planes),
        "signed": settings.signed,
        "compression": output.compression,
        "frames_per_chunk": output.frames_per_chunk,
        "calibration": _native.no_calibration,
        "source": {**recording.description(), "shift": 0, "dark_frame_subtracted": False},
        "software": {
            "name": "veldrane_polarization",
            "version": software_version(),
            "processor": processor_identification(),
        },
    }
    if calibration is not None:
        attributes["calibration"] = {
            **({} if calibration.model == "position" else {"model": calibration.model}),
            "time": calibration.time,
            "sensor": calibration.sensor,
            "rms_residual": calibration.rms_residual,
            "text": calibration.to_json(),
            "file": settings.calibration_file and text_of_name(settings.calibration_file),
        }
    return dict(json.loads(json.dumps(attributes)))


def check(output: Output, settings: Settings, recording: Recording) -> None:
    """Whether OUT can be made, or is one to go on with. It stays as it is.

    A run that cannot begin must not bind OUT to its options.
    """
    path = Path(output.path)
    wanted = attributes_of(settings, recording, output)
    with _in_one_line(path):
        if _is_bound(path, wanted):
            _check_arrays(path, output, settings, recording)
        else:  # it shows here whether it can be written
            with _made_beside(path, wanted, output, settings, recording):
                pass


def prepare(output: Output, settings: Settings, recording: Recording) -> None:
    """Make the group with arrays for all frames, or check that it is one to go on with.

    OUT is made elsewhere and appears in one step, so that of runs that begin at the same moment
    one binds it to its options, and the others find it bound.
    """
    path = Path(output.path)
    wanted = attributes_of(settings, recording, output)
    with _in_one_line(path):
        parts = _parts(output, settings, recording)
        while not (bound := _is_bound(path, wanted)) or _missing(path, parts):
            with _made_beside(path, wanted, output, settings, recording) as made:
                for number in range(_mark_files(output, recording)):
                    (made / COMPLETE / str(number)).write_bytes(bytes(output.frames_per_mark_file))
                if made.parent == path.parent:
                    _replace_nothing(made, path)
                elif bound or _bind(made, path):
                    for part in _missing(path, parts):
                        (path / part).parent.mkdir(exist_ok=True)
                        os.replace(made / part, path / part)
        _check_arrays(path, output, settings, recording)


@contextlib.contextmanager
def _in_one_line(path: Path) -> Iterator[None]:
    try:
        yield
    except (OSError, KeyError) as error:  # zarr has a KeyError where it cannot make a folder
        reason = getattr(error, "strerror", None) or error
        raise Output_error(f"{path} cannot be written ({reason}); give another OUT") from None


def _is_bound(path: Path, wanted: dict[str, Any]) -> bool:
    """Whether there is an OUT of the same options; one of others is refused."""
    found = _attributes_in(path)
    if found is not None:
        _check_same(path, found, wanted)
    return found is not None


def _arrays(settings: Settings) -> tuple[str, ...]:
    return (*settings.planes, COMPLETE)


def _mark_files(output: Output, recording: Recording) -> int:
    return -(-recording.count // output.frames_per_mark_file)


def _parts(output: Output, settings: Settings, recording: Recording) -> dict[str, Optional[int]]:
    """Files of a group that zarr, xarray and workers need beside its attributes, some of one size."""
    of_arrays = [f"{name}/{file}" for name in _arrays(settings) for file in (".zattrs", ".zarray")]
    marks = [f"{COMPLETE}/{number}" for number in range(_mark_files(output, recording))]
    return dict.fromkeys((".zgroup", *of_arrays)) | dict.fromkeys(
        marks, output.frames_per_mark_file
    )


def _missing(path: Path, parts: dict[str, Optional[int]]) -> list[str]:
    return [part for part, size in parts.items() if not _is_there(path / part, size)]


def _is_there(file: Path, size: Optional[int]) -> bool:
    try:
        return file.stat().st_size == size or size is None
    except FileNotFoundError:
        return False


def _check_arrays(path: Path, output: Output, settings: Settings, recording: Recording) -> None:
    """Those that are there: what somebody has taken away is made anew."""
    import zarr

    if not (path / ".zgroup").exists():
        return
    group = zarr.open_group(str(path), mode="r")
    for name in _arrays(settings):
        if (path / name / ".zarray").exists():
            form = arrays.form_of(name, output, settings, recording)
            arrays.check(group, name, form)


@contextlib.contextmanager
def _made_beside(
    path: Path, wanted: dict[str, Any], output: Output, settings: Settings, recording: Recording
) -> Iterator[Path]:
    """A whole group under a name of its own: beside OUT, or in it where it is there already.

    A folder that a user has made keeps its owner and rights, and may be the root of a disk.
    """
    import zarr

    folder = path if path.exists() else path.parent
    made = folder / f"{_MADE}.{output.run}.{uuid.uuid4().hex}.partial"
    try:
        made.mkdir()
    except FileNotFoundError:
        made.mkdir(parents=True)
    try:
        group = zarr.open_group(str(made), mode="w-")
        _write_attributes(made, wanted)
        for name in _arrays(settings):
            form = arrays.form_of(name, output, settings, recording)
            array = group.create_dataset(name, **form)
            array.attrs.put(arrays.attributes_of(name, settings, recording))
        yield made
    finally:
        shutil.rmtree(made, ignore_errors=True)


def _replace_nothing(made: Path, path: Path) -> None:
    """An empty folder may be there; what another run was quicker to put there stays."""
    try:
        os.replace(made, path)
    except OSError as error:
        if error.errno not in (errno.ENOTEMPTY, errno.EEXIST):
            raise


def _bind(made: Path, path: Path) -> bool:
    """Whether it was this run that gave OUT its attributes. A link is made whole, and only once."""
    try:
        os.link(made / ".zattrs", path / ".zattrs")
    except FileExistsError:
        return False
    return True


def _attributes_in(path: Path) -> Optional[dict[str, Any]]:
    """What an earlier run wrote, None where there is nothing yet."""
    if not path.exists():
        if path.is_symlink():
            raise Output_error(f"{path} is a link to nothing; give another OUT")
        return None
    if not path.is_dir():
        raise Output_error(f"{path} is a file; give a folder that is not there yet")
    names = {name for name in os.listdir(path) if not name.endswith(".partial")}
    if not names:
        return None
    if ".zattrs" not in names:
        kind = "zarr group" if ".zgroup" in names else "folder"
        raise Output_error(f"{path} is a {kind} that this program did not make; give another OUT")
    try:
        # Of a pipe nobody knows when it ends.
        is_file = (path / ".zattrs").is_file()
        found = json.loads((path / ".zattrs").read_text()) if is_file else None
    except (ValueError, RecursionError):
        found = None
    if not isinstance(found, dict):
        raise Output_error(f"{path}/.zattrs is damaged; restore it, or remove {path}")
    if found.get("format") != _FORMAT:
        raise Output_error(
            f"{path} holds what this program, or this version of it, did not make; give another "
            "OUT"
        )
    return found


def _check_same(path: Path, found: dict[str, Any], wanted: dict[str, Any]) -> None:
    before, now = dict(_flat(found)), dict(_flat(wanted))
    for key in now | before:
        if key in _MAY_DIFFER or before.get(key) == now.get(key):
            continue
        if key.startswith("calibration"):
            difference = "another calibration"
        elif key.endswith("sha256"):
            difference = "files of other names"
        else:
            difference = f"{key} {before.get(key)!r}, not {now.get(key)!r}"
        raise Output_error(
            f"{path} was made with {difference}; give another OUT, or the same recording and "
            "options"
        )


def _flat(attributes: dict[str, Any], prefix: str = "") -> Iterator[tuple[str, Any]]:
    for key, value in attributes.items():
        if isinstance(value, dict):
            yield from _flat(value, f"{prefix}{key}.")
        else:
            yield prefix + key, value


def _write_attributes(made: Path, attributes: dict[str, Any]) -> None:
    (made / ".zattrs").write_text(json.dumps(attributes, indent=4))


def incomplete_frames(output: Output, settings: Settings, recording: Recording) -> Array:
    """Numbers of frames without a mark, or with one but without a plane's chunk of the right size."""
    marked = _marked(output, recording.count)
    is_whole = marked.reshape(-1, output.frames_per_chunk).any(axis=1)
    for name in settings.planes:
        shape = _arguments.plane_shape(name, recording.shape)
        size = int(np.prod(shape)) * _arguments.plane_dtype(name, settings.signed).itemsize
        is_whole &= _whole(output, name, 1 + len(shape), size * output.frames_per_chunk, is_whole)
    marked &= np.repeat(is_whole, output.frames_per_chunk)
    return np.flatnonzero(~marked[: recording.count])


def clear_marks(output: Output, frames: Array) -> None:
    """Of frames to be done. A chunk that is not whole has some, and nothing is taken over from it."""
    stale = np.zeros(frames[-1] + 1 if frames.size else 0, bool)
    stale[frames] = _marked(output, stale.size)[frames]
    with _in_one_line(Path(output.path)):
        for index in np.flatnonzero(stale).tolist():
            number, place = divmod(index, output.frames_per_chunk)
            with output.opened_marks(number) as (descriptor, start):
                os.pwrite(descriptor, b"\0", start + place)


def _marked(output: Output, count: int) -> Array:
    """Of all frames that the files of marks have room for. One of another size marks nothing."""
    size = output.frames_per_mark_file
    marks = np.zeros((-(-count // size), size), np.uint8)
    for number, row in enumerate(marks):
        with contextlib.suppress(FileNotFoundError):
            data = Path(output.mark_file(number)).read_bytes()
            if len(data) == size:
                row[:] = np.frombuffer(data, np.uint8)
    is_marked: Array = marks.ravel() == 1
    return is_marked


@contextlib.contextmanager
def _entries_of(output: Output, name: str) -> Iterator[Iterator[os.DirEntry[str]]]:
    """Of an array; none where OUT is not made yet."""
    try:
        entries = os.scandir(os.path.join(output.path, name))
    except FileNotFoundError:
        yield iter(())
        return
    with entries:
        yield entries


def _whole(output: Output, name: str, dimensions: int, size: int, candidates: Array) -> Array:
    """By their numbers, those of the candidates that are whole."""
    whole = np.zeros_like(candidates)
    ending = ".0" * (dimensions - 1)
    with _entries_of(output, name) as entries:
        for entry in entries:
            text = entry.name.removesuffix(ending)
            number = int(text) if text.isdecimal() else candidates.size
            if number < candidates.size and candidates[number]:
                whole[number] = output.is_whole(entry.path, entry.stat().st_size, size)
    return whole


def remove_leftovers(output: Output, settings: Settings) -> None:
    """What killed writers of this run left beside the chunks, and those of any run an hour ago.

    Younger files of other runs may be under somebody's hands.
    """
    for name, start in (("..", _MADE), ("", ""), *((name, "") for name in _arrays(settings))):
        with _entries_of(output, name) as entries:
            for entry in entries:
                if entry.name.startswith(start) and entry.name.endswith(".partial"):
                    _remove_leftover(entry, output.run)


def _remove_leftover(entry: os.DirEntry[str], run: str) -> None:
    old = time.time() - _SECONDS_OF_A_LEFTOVER
    with contextlib.suppress(FileNotFoundError):
        if f".{run}." not in entry.name and entry.stat(follow_symlinks=False).st_mtime >= old:
            return
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path, ignore_errors=True)
        else:
            os.unlink(entry.path)
