"""What a worker does with some frames, and how it is told later which frames are complete."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, Optional

import numpy as np

from . import _arguments, _processing, datasets
from ._arguments import Array
from ._native import Calibration, software_version
from ._recordings import Recording

COMPLETE = "complete"


@dataclass(frozen=True)
class Settings:
    """What all frames of a recording have in common."""

    phase: int
    bit_depth: int
    planes: tuple[str, ...]
    mode: str
    calibration: Optional[Calibration]
    full_scale: int
    signed: bool

    def process(self, raw: Array, threads: int = 1) -> _processing.Result:
        return _processing.process(
            raw,
            layout=self.phase,
            bit_depth=self.bit_depth,
            planes=self.planes,
            mode=self.mode,
            calibration=self.calibration,
            full_scale=self.full_scale,
            signed=self.signed,
            threads=threads,
        )


def attributes_of(settings: Settings, recording: Recording) -> dict[str, Any]:
    """Of the group: what two runs must have in common if one is to go on where the other ended."""
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    return {
        **datasets.common_attributes(empty),
        "planes": list(settings.planes),
        "signed": settings.signed,
        "calibration": settings.calibration.to_json() if settings.calibration else None,
        "recording": recording.name(0),
        "frames": recording.count,
        "frame_shape": list(recording.shape),
    }


def create(path: str, settings: Settings, recording: Recording, compressor: Any) -> None:
    """Arrays for all frames, empty. Present ones are kept: a crash may have come in between."""
    import zarr

    group = zarr.open_group(path, mode="a")
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    for name in settings.planes:
        shape = _arguments.plane_shape(name, recording.shape)
        array = group.require_dataset(
            name,
            shape=(recording.count, *shape),
            chunks=(1, *shape),
            dtype=_arguments.plane_dtype(name, settings.signed),
            compressor=compressor,
            exact=True,
        )
        dimensions = ["time", "y", "x", "component"][: len(shape) + 1]
        array.attrs.update(
            datasets.plane_attributes(empty, name) | {"_ARRAY_DIMENSIONS": dimensions}
        )
    marks = group.require_dataset(
        COMPLETE, shape=(recording.count,), chunks=(1,), dtype=np.uint8, compressor=None, exact=True
    )
    marks.attrs.update(
        {"long_name": "1 where all planes of a frame are stored", "_ARRAY_DIMENSIONS": ["time"]}
    )
    # Last: a group with attributes is one whose arrays are all there.
    group.attrs.update(attributes_of(settings, recording))


def incomplete_frames(path: str, settings: Settings, count: int) -> list[int]:
    """Frames without a mark, or with one but without a plane."""
    import zarr

    group = zarr.open_group(path, mode="r")
    present = {name: set(group[name].chunk_store.listdir(f"{name}")) for name in settings.planes}
    marked = set(group.store.listdir(COMPLETE))

    def is_complete(index: int) -> bool:
        return str(index) in marked and all(
            ".".join([str(index)] + ["0"] * (group[name].ndim - 1)) in present[name]
            for name in settings.planes
        )

    return [index for index in range(count) if not is_complete(index)]


def process_frames(
    recording: Recording, path: str, settings: Settings, indices: Sequence[int]
) -> list[tuple[int, Optional[str]]]:
    """Each frame with None, or with what went wrong. A frame that fails stops no other."""
    import zarr
    from numcodecs import blosc

    # A worker has a thread for each task already.
    blosc.use_threads = False
    group = zarr.open_group(path, mode="r+")
    arrays = {name: group[name] for name in (*settings.planes, COMPLETE)}
    outcome: list[tuple[int, Optional[str]]] = []
    block = None
    if len(indices) > 1:
        try:
            block = recording.read(indices[0], indices[-1] + 1)
        except Exception:  # frame by frame it shows which one is at fault
            block = None
    for index in indices:
        try:
            raw = recording.read(index, index + 1)[0] if block is None else block[index - indices[0]]
            _store(raw, index, recording, settings, arrays)
            outcome.append((index, None))
        except Exception as error:
            outcome.append((index, f"{type(error).__name__}: {error}"))
    return outcome


def _store(
    raw: Array, index: int, recording: Recording, settings: Settings, arrays: dict[str, Any]
) -> None:
    if raw.shape != recording.shape:
        raise ValueError(f"has the shape {raw.shape}; the recording has {recording.shape}")
    result = settings.process(np.ascontiguousarray(raw))
    for name in settings.planes:
        # A slice replaces the chunk, beside its place and by renaming; with a number in place of the
        # slice zarr would read the old one first, which a crash may have damaged.
        arrays[name][index : index + 1] = result[name][np.newaxis]
    # Only now: whoever is killed before leaves a frame that counts as not done.
    arrays[COMPLETE][index : index + 1] = 1


def worker_version() -> str:
    return software_version()
