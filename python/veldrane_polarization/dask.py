"""Recordings of any length as lazy arrays of dask."""

from __future__ import annotations

import functools
from collections.abc import Iterable
from typing import Any, Optional, Union

import numpy as np
from dask import array as da
from dask.base import tokenize
from dask.highlevelgraph import HighLevelGraph

from . import _arguments, _native, _settings, _trust
from ._arguments import Array, Layout
from ._settings import Settings

__all__ = ["process"]


def _block(raw: Array, settings: Settings) -> dict[str, Array]:
    # One thread: a worker has a thread for every task that it runs at once.
    result = settings.process(raw, threads=1)
    return {name: result[name] for name in result}


def process(
    array: Any,
    *,
    layout: Optional[Layout] = None,
    bit_depth: int,
    planes: Union[str, Iterable[str]] = ("s0", "azimuth", "dolp"),
    mode: Optional[str] = None,
    calibration: Optional[_native.Calibration] = None,
    full_scale: Optional[int] = None,
    signed: bool = False,
    noise: Optional[_trust.Noise] = None,
    zero_direction: float = 0.0,
) -> dict[str, Any]:
    """Process frames of a dask array, lazily.

    Parameters
    ----------
    array : dask.array.Array
        (N, H, W) uint8 or uint16. Blocks are whole frames: chunks that split rows or columns are
        joined first, so that no number depends on chunks.
    layout, bit_depth, planes, mode, calibration, full_scale, signed, noise, zero_direction
        As in `veldrane_polarization.process`.

    Returns
    -------
    dict of str to dask.array.Array
        One array for each plane, with the chunks of the frames. All planes of a block come from one
        task with one thread; `dask.compute` on several planes at once runs it once.

    Raises
    ------
    TypeError, ValueError
        As in `veldrane_polarization.process`, at once.

    Examples
    --------
    >>> frames = da.zeros((6, 16, 20), chunks=(2, 8, 8), dtype=np.uint16)
    >>> planes = process(frames, layout=0, bit_depth=12)
    >>> planes["dolp"].chunks, planes["dolp"].dtype
    (((2, 2, 2), (16,), (20,)), dtype('uint16'))
    """
    if not isinstance(array, da.Array):
        raise TypeError(
            f"array is a {type(array).__name__}; give a dask array (N, H, W), such as from "
            "dask.array.from_array or from_zarr"
        )
    if array.ndim != 3:
        raise ValueError(f"array has the shape {array.shape}; give frames (N, H, W)")
    if np.isnan(array.shape).any():
        raise ValueError("array has unknown sizes; call array.compute_chunk_sizes() first")
    settings = _settings.checked(
        layout, bit_depth, planes, mode, calibration, full_scale, signed, noise, zero_direction
    )
    _arguments.check_no_mask(array._meta, "array")
    settings.check_frames(array.dtype, array.shape, "array")
    return _graph(array.rechunk({1: -1, 2: -1}), settings)


def _graph(frames: Any, settings: Settings) -> dict[str, Any]:
    # Of what is in them: dask gives objects that it does not know another name each time.
    token: str = tokenize(frames.name, *settings.identity())
    blocks = "polarization-" + token
    # Under a key of their own: a calibration with maps goes to each worker once, not with each task.
    shared = "settings-" + token
    layer: dict[Any, Any] = {
        (blocks, number): (_block, (frames.name, number, 0, 0), shared)
        for number in range(len(frames.chunks[0]))
    }
    layer[shared] = settings
    graph = HighLevelGraph.from_collections(blocks, layer, dependencies=[frames])
    return {
        name: _plane(graph, blocks, name, frames, token, settings.signed)
        for name in settings.planes
    }


def _take(block: dict[str, Array], *, name: str) -> Array:
    return block[name]


def _plane(graph: Any, blocks: str, name: str, frames: Any, token: str, signed: bool) -> Any:
    key = f"{name}-{token}"
    inner = _arguments.plane_shape(name, ())  # of a pixel
    tail = (0,) * (2 + len(inner))
    take = functools.partial(_take, name=name)
    layer = {
        (key, number, *tail): (take, (blocks, number)) for number in range(len(frames.chunks[0]))
    }
    layers = {**graph.layers, key: layer}
    dependencies = {**graph.dependencies, key: {blocks}}
    shape_of_chunks = (*frames.chunks, *((count,) for count in inner))
    meta = np.empty((0,) * len(shape_of_chunks), _arguments.plane_dtype(name, signed))
    return da.Array(HighLevelGraph(layers, dependencies), key, shape_of_chunks, meta=meta)
