"""Blocks of a recording's frames as arrays of dask, each read once for all that is looked at."""

from __future__ import annotations

import functools
import itertools
import uuid
from collections.abc import Iterator, Set
from dataclasses import dataclass, replace
from typing import Any

import numpy as np
from dask import array as da
from dask.base import tokenize
from dask.highlevelgraph import HighLevelGraph, Layer, MaterializedLayer

from .. import _arguments
from .._arguments import Array
from .._recordings import Picture_recording, Recording, Recording_changed, Recording_error
from .._settings import Settings

RAW = "raw"


@dataclass(frozen=True)
class Work:
    """What all blocks have in common; `scales` has (step, offset) of planes to be told in units."""

    settings: Settings
    scales: dict[str, tuple[float, float]]

    def dtype_of(self, name: str) -> np.dtype[Any]:
        if name in self.scales:
            return np.dtype(np.float32)
        return _arguments.plane_dtype(name, self.settings.signed)

    def plane(self, name: str, stored: Array) -> Array:
        if name not in self.scales:
            return stored
        step, offset = self.scales[name]
        numbers: Array = np.multiply(stored, np.float32(step), dtype=np.float32)
        if offset:
            numbers += np.float32(offset)
        return numbers


def _frames(recording: Recording, first: int, stop: int) -> Array:
    try:
        read = recording.read(first, stop)
        return np.ascontiguousarray(read if stop - first > 1 else read[0][np.newaxis])
    except (Recording_changed, OSError, ValueError) as error:
        if stop - first == 1:
            raise Recording_error(f"{recording.name(first)}: {_problem(error)}") from None
    # One by one it shows which is at fault.
    return np.concatenate([_frames(recording, index, index + 1) for index in range(first, stop)])


def _problem(error: Exception) -> str:
    if isinstance(error, Recording_changed):
        return (
            f"the file {error.change} since it was opened; open the recording again, once nothing "
            "writes to it any more"
        )
    if isinstance(error, OSError):
        return f"cannot be read ({error.strerror or error}); put its file back, or make it readable"
    return str(error)


def _arrays(
    recording: Recording, first: int, stop: int, names: tuple[str, ...], work: Work
) -> list[Array]:
    raw = _frames(recording, first, stop)
    planes = tuple(name for name in names if name != RAW)
    arrays = {RAW: raw}
    if planes:
        # One thread: the scheduler has one for every task that it runs at once.
        result = replace(work.settings, planes=planes).process(raw, threads=1)
        arrays |= {name: work.plane(name, result[name]) for name in planes}
    return [arrays[name] for name in names]


def _array(recording: Recording, first: int, stop: int, name: str, work: Work) -> Array:
    return _arrays(recording, first, stop, (name,), work)[0]


def _item(arrays: list[Array], number: int) -> Array:
    return arrays[number]


class _Blocks(Layer):  # type: ignore[misc]
    """(token, name, number): an array of a block.

    Culling tells which of them are looked at together, and those of a block come from one task.
    """

    def __init__(
        self, token: str, recording: Recording, size: int, names: tuple[str, ...], work: Work
    ) -> None:
        super().__init__()
        self.token, self.recording, self.size = token, recording, size
        self.names, self.work = names, work

    @property
    def count(self) -> int:
        return -(-self.recording.count // self.size)

    def is_materialized(self) -> bool:
        return False

    def get_output_keys(self) -> Set[Any]:
        return set(itertools.product((self.token,), self.names, range(self.count)))

    def __iter__(self) -> Iterator[Any]:
        yield self._shared
        yield from self.get_output_keys()

    def __len__(self) -> int:
        return 1 + len(self.names) * self.count

    def __getitem__(self, key: Any) -> Any:
        if key == self._shared:
            return self.work
        _, name, number = key
        return functools.partial(_array, *self._block(number), name), self._shared

    @property
    def _shared(self) -> str:
        # Under a key of its own: a calibration with maps goes to each worker once, not with each task.
        return "work-" + self.token

    def _block(self, number: int) -> tuple[Recording, int, int]:
        first = number * self.size
        stop = min(first + self.size, self.recording.count)
        if isinstance(self.recording, Picture_recording):  # which holds the names of all its files
            return self.recording.part(first, stop), first, stop
        return self.recording, first, stop

    def cull(self, keys: set[Any], all_hlg_keys: Any) -> tuple[Layer, dict[Any, set[Any]]]:
        together: dict[int, list[str]] = {}
        for _, name, number in sorted(keys):
            together.setdefault(number, []).append(name)
        tasks: dict[Any, Any] = {self._shared: self.work}
        dependencies: dict[Any, set[Any]] = {self._shared: set()}
        for number, names in together.items():
            if len(names) == 1:
                key = (self.token, names[0], number)
                tasks[key], dependencies[key] = self[key], {self._shared}
                continue
            block = (f"block-{self.token}", number)
            # In a partial, since dask takes a name for a key where somebody's graph has one.
            work = functools.partial(_arrays, *self._block(number), tuple(names))
            tasks[block] = work, self._shared
            dependencies[block] = {self._shared}
            for index, name in enumerate(names):
                tasks[self.token, name, number] = (_item, block, index)
                dependencies[self.token, name, number] = {block}
        return MaterializedLayer(tasks), dependencies


class _Plane(Layer):  # type: ignore[misc]
    """Blocks of one name under the keys that an array has."""

    def __init__(self, key: str, blocks: _Blocks, name: str, dimensions: int) -> None:
        super().__init__()
        self.key, self.blocks, self.name = key, blocks, name
        self.tail = ((0,),) * (dimensions - 1)

    def is_materialized(self) -> bool:
        return False

    def get_output_keys(self) -> Set[Any]:
        return set(itertools.product((self.key,), range(self.blocks.count), *self.tail))

    def __iter__(self) -> Iterator[Any]:
        return iter(self.get_output_keys())

    def __len__(self) -> int:
        return self.blocks.count

    def __getitem__(self, key: Any) -> Any:
        return (self.blocks.token, self.name, key[1])

    def cull(self, keys: set[Any], all_hlg_keys: Any) -> tuple[Layer, dict[Any, set[Any]]]:
        tasks = {key: self[key] for key in keys}
        return MaterializedLayer(tasks), {key: {block} for key, block in tasks.items()}


def arrays_of(recording: Recording, frames_per_block: int, work: Work) -> dict[str, Any]:
    """The raw frames and every plane of the settings, (N, H, W) or (N, H, W, C), lazily."""
    names = (RAW, *work.settings.planes)
    description = recording.description()
    # A cluster keeps what it has under a name: without a time, nothing tells replaced files apart.
    version = "" if "modified" in description else uuid.uuid4().hex
    token = "recording-" + tokenize(
        description, version, frames_per_block, work.settings.identity(), sorted(work.scales)
    )
    blocks = _Blocks(token, recording, frames_per_block, names, work)
    return {name: _array_of(blocks, name) for name in names}


def _array_of(blocks: _Blocks, name: str) -> Any:
    recording, work = blocks.recording, blocks.work
    shape = (recording.count, *recording.shape)
    dtype = np.dtype(recording.dtype)
    if name != RAW:
        shape, dtype = _arguments.plane_shape(name, shape), work.dtype_of(name)
    whole, rest = divmod(recording.count, blocks.size)
    lengths = (blocks.size,) * whole + ((rest,) if rest else ())
    key = f"{name}-{blocks.token}"
    graph = HighLevelGraph(
        {blocks.token: blocks, key: _Plane(key, blocks, name, len(shape))},
        {blocks.token: set(), key: {blocks.token}},
    )
    chunks = (lengths, *((size,) for size in shape[1:]))
    return da.Array(graph, key, chunks, meta=np.empty((0,) * len(shape), dtype))
