"""The zarr group that a recording is turned into: made, checked, gone on with."""

from __future__ import annotations

import contextlib
import json
import os
import time
import uuid
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Optional

import numpy as np

from . import _arguments, _zarr_metadata, datasets
from ._arguments import Array
from ._batch_settings import Settings
from ._native import processor_identification, software_version
from ._recordings import Recording, blosc_sizes

COMPLETE = "complete"
_FORMAT = "veldrane_polarization.batch 1"
_SECONDS_OF_A_LEFTOVER = 3600
# The same version gives the same bits, whenever and from whichever commit it was built.
_MAY_DIFFER = ("calibration.file", "software.processor", "state")


class Output_error(ValueError):
    """An OUT that cannot be made or gone on with: one line for a user."""


@dataclass(frozen=True)
class Output:
    """Where frames go. `run` is in the names of all files that a run has not finished."""

    path: str
    compression: str
    run: str

    def compressor(self) -> Any:
        from numcodecs import Blosc

        if self.compression == "none":
            return None
        return Blosc("lz4", clevel=1, shuffle=Blosc.SHUFFLE)

    def store(self, name: str, index: int, values: Array) -> None:
        """Make or replace a chunk in one step: whoever looks sees it whole or not at all."""
        compressor = self.compressor() if name != COMPLETE else None
        data = values.data if compressor is None else compressor.encode(values)
        file = os.path.join(self.path, name, _key(index, values.ndim))
        unfinished = f"{file}.{self.run}.{uuid.uuid4().hex}.partial"
        try:
            with open(unfinished, "wb") as stream:
                stream.write(data)
            os.replace(unfinished, file)
        except BaseException:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(unfinished)
            raise


def _key(index: int, dimensions: int) -> str:
    return ".".join([str(index)] + ["0"] * (dimensions - 1))


def attributes_of(settings: Settings, recording: Recording, compression: str) -> dict[str, Any]:
    """Of the group. Whoever goes on with a run must have all alike but what _MAY_DIFFER names."""
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    calibration = settings.calibration
    attributes: dict[str, Any] = {
        "format": _FORMAT,
        **datasets.common_attributes(empty),
        "planes": list(settings.planes),
        "signed": settings.signed,
        "compression": compression,
        "zero_direction": "along the rows, towards growing columns",
        "sense": "counter-clockwise on a picture whose row 0 is at the top",
        "calibration": "ideal analysers",
        "source": {**recording.description(), "shift": 0, "dark_frame_subtracted": False},
        "software": {
            "name": "veldrane_polarization",
            "version": software_version(),
            "processor": processor_identification(),
        },
    }
    if calibration is not None:
        attributes["calibration"] = {
            "time": calibration.time,
            "sensor": calibration.sensor,
            "rms_residual": calibration.rms_residual,
            "text": calibration.to_json(),
            "file": settings.calibration_file,
        }
    return dict(json.loads(json.dumps(attributes)))


def prepare(output: Output, settings: Settings, recording: Recording) -> None:
    """Make the group with arrays for all frames, or check that it is one to go on with."""
    import zarr

    path = Path(output.path)
    wanted = attributes_of(settings, recording, output.compression)
    try:
        found = _attributes_in(path)
        if found is not None:
            _check_same(path, found, wanted)
        path.mkdir(parents=True, exist_ok=True)
        # First of all, so that a group that a crash leaves behind half-made is known for ours.
        if found is None:
            _write_attributes(path, wanted | {"state": "being created"})
        group = zarr.open_group(str(path), mode="a")
        for name in settings.planes:
            _make_plane(group, name, output, settings, recording)
        _make_marks(group, recording.count)
        if found is None or found.get("state") != "ready":
            _write_attributes(path, wanted | {"state": "ready"})
    except (OSError, KeyError) as error:  # zarr has a KeyError where it cannot make a folder
        reason = getattr(error, "strerror", None) or error
        raise Output_error(f"{path} cannot be written ({reason}); give another OUT") from None


def _attributes_in(path: Path) -> Optional[dict[str, Any]]:
    """What an earlier run wrote, None where there is nothing yet."""
    if not path.exists():
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
        found = json.loads((path / ".zattrs").read_text())
        if not isinstance(found, dict):
            raise ValueError("no JSON object")
    except ValueError as error:
        raise Output_error(
            f"{path}/.zattrs is damaged ({error}); restore it, or remove {path}"
        ) from None
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


def _write_attributes(path: Path, attributes: dict[str, Any]) -> None:
    unfinished = path / f".zattrs.{uuid.uuid4().hex}.partial"
    unfinished.write_text(json.dumps(attributes, indent=4))
    os.replace(unfinished, path / ".zattrs")


def _make_plane(
    group: Any, name: str, output: Output, settings: Settings, recording: Recording
) -> None:
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    shape = _arguments.plane_shape(name, recording.shape)
    # xarray takes the fill value for one that stands for nothing, and every number of the integer
    # planes stands for something.
    is_float = name == "normalized_stokes"
    array = _make_array(
        group, name, (recording.count, *shape), (1, *shape),
        _arguments.plane_dtype(name, settings.signed), output.compressor(),
        float("nan") if is_float else None,
    )
    dimensions = ["time", "y", "x", "component"][: len(shape) + 1]
    if not datasets.is_at_pixels(name, settings.mode, *recording.shape):
        dimensions = ["time", "packed_row", "packed_column", "component"]
    array.attrs.put({
        **datasets.plane_attributes(empty, name),
        **datasets.sidecar_attributes(empty, name),
        "_ARRAY_DIMENSIONS": dimensions,
    })


def _make_marks(group: Any, count: int) -> None:
    # Here the fill value is needed: without one, zarr reads a mark that is missing as anything.
    marks = _make_array(group, COMPLETE, (count,), (1,), np.dtype(np.uint8), None, 0)
    marks.attrs.put(
        {"long_name": "1 where all planes of a frame are stored", "_ARRAY_DIMENSIONS": ["time"]}
    )


def _make_array(
    group: Any, name: str, shape: tuple[int, ...], chunks: tuple[int, ...], dtype: np.dtype[Any],
    compressor: Any, fill_value: Optional[float],
) -> Any:
    wanted = {"shape": shape, "chunks": chunks, "dtype": dtype, "compressor": compressor,
              "order": "C", "filters": None}
    try:
        if name not in group:
            return group.create_dataset(name, **wanted, fill_value=fill_value)
        _zarr_metadata.check(Path(group.store.path) / name)
        array = group[name]
        found = {key: getattr(array, key) for key in wanted}
    except (OSError, KeyError):
        raise
    except Exception as error:  # zarr and json have a dozen for metadata that makes no sense
        raise Output_error(
            f"{group.store.path}/{name}/.zarray is damaged ({error}); remove {name}"
        ) from None
    for key, value in wanted.items():
        if found[key] != value:
            raise Output_error(
                f"{group.store.path}/{name} has {key} {found[key]}, not {value}; remove {name}, or "
                "give another OUT"
            )
    same_fill = array.fill_value == fill_value or (
        name == "normalized_stokes" and array.fill_value is not None and np.isnan(array.fill_value)
    )
    if not same_fill:
        raise Output_error(
            f"{group.store.path}/{name} has the fill value {array.fill_value}, not {fill_value}; "
            f"remove {name}, or give another OUT"
        )
    return array


def incomplete_frames(output: Output, settings: Settings, recording: Recording) -> list[int]:
    """Frames without a mark, or with one but without a plane of the right size."""
    complete = _marked(output)
    for name in settings.planes:
        shape = _arguments.plane_shape(name, recording.shape)
        size = int(np.prod(shape)) * _arguments.plane_dtype(name, settings.signed).itemsize
        complete = _whole(output, name, len(shape) + 1, size, complete)
    return [index for index in range(recording.count) if index not in complete]


def _marked(output: Output) -> set[int]:
    marked = set()
    with os.scandir(os.path.join(output.path, COMPLETE)) as entries:
        for entry in entries:
            if entry.name.isdecimal():
                with open(entry.path, "rb", buffering=0) as stream:
                    if stream.read(2) == b"\1":
                        marked.add(int(entry.name))
    return marked


def _whole(
    output: Output, name: str, dimensions: int, size: int, candidates: set[int]
) -> set[int]:
    whole = set()
    ending = _key(0, dimensions)[1:]
    with os.scandir(os.path.join(output.path, name)) as entries:
        for entry in entries:
            number = entry.name.removesuffix(ending)
            if not number.isdecimal() or int(number) not in candidates:
                continue
            expected = (size, size)
            if output.compression != "none":
                expected = blosc_sizes(entry.path)
            if expected == (size, entry.stat().st_size):
                whole.add(int(number))
    return whole


def remove_leftovers(output: Output, settings: Settings) -> None:
    """What killed writers of this run left beside the chunks, and those of any run an hour ago.

    Younger files of other runs may be under somebody's hands.
    """
    old = time.time() - _SECONDS_OF_A_LEFTOVER
    for name in ("", COMPLETE, *settings.planes):
        with os.scandir(os.path.join(output.path, name)) as entries:
            for entry in entries:
                if not entry.name.endswith(".partial"):
                    continue
                with contextlib.suppress(FileNotFoundError):
                    if f".{output.run}." in entry.name or entry.stat().st_mtime < old:
                        os.unlink(entry.path)
