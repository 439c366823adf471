"""The arrays of the group that a recording is turned into: their form, and what they say of it."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np

from .. import _arguments, datasets
from .._recordings import Recording, zarr_metadata
from .._settings import Settings
from .storing import COMPLETE, Output


class Output_error(ValueError):
    """An OUT that cannot be made or gone on with: one line for a user."""


def form_of(name: str, output: Output, settings: Settings, recording: Recording) -> dict[str, Any]:
    """Of an array, as zarr makes it."""
    common = {"order": "C", "filters": None}
    if name == COMPLETE:
        # Here the fill value is needed: without one, zarr reads a mark that is missing as anything.
        return common | {
            "shape": (recording.count,),
            "chunks": (output.frames_per_mark_file,),
            "dtype": np.dtype(np.uint8),
            "compressor": None,
            "fill_value": 0,
        }
    shape = _arguments.plane_shape(name, recording.shape)
    dtype = _arguments.plane_dtype(name, settings.signed)
    # xarray takes the fill value for one that stands for nothing, and every number of the integer
    # planes stands for something.
    return common | {
        "shape": (recording.count, *shape),
        "chunks": (output.frames_per_chunk, *shape),
        "dtype": dtype,
        "compressor": output.compressor(),
        "fill_value": float("nan") if dtype.kind == "f" else None,
    }


def attributes_of(name: str, settings: Settings, recording: Recording) -> dict[str, Any]:
    if name == COMPLETE:
        return {
            "long_name": "1 where all planes of a frame are stored",
            "_ARRAY_DIMENSIONS": ["time"],
        }
    empty = settings.process(np.zeros((0, *recording.shape), recording.dtype))
    height, width = recording.shape
    return {
        **datasets.plane_attributes(empty, name),
        **datasets.sidecar_attributes(empty, name),
        "_ARRAY_DIMENSIONS": list(datasets.dimensions_of(name, settings.mode, height, width)),
    }


def check(group: Any, name: str, wanted: dict[str, Any]) -> None:
    place = f"{group.store.path}/{name}"
    try:
        zarr_metadata.check(Path(group.store.path) / name)
        array = group[name]
        found = {key: getattr(array, key) for key in wanted}
    except (OSError, KeyError):
        raise
    except Exception as error:  # zarr and json have a dozen for metadata that makes no sense
        raise Output_error(f"{place}/.zarray is damaged ({error}); remove {name}") from None
    for key, value in wanted.items():
        if found[key] != value and not (_is_nan(found[key]) and _is_nan(value)):
            raise Output_error(
                f"{place} has {key} {found[key]}, not {value}; remove {name}, or give another OUT"
            )


def _is_nan(value: Any) -> bool:
    return isinstance(value, (float, np.floating)) and bool(np.isnan(value))
