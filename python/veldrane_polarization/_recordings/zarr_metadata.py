"""What the metadata of a zarr array say, checked before zarr makes anything of it.

They come from whoever made the array. zarr looks up any codec by its name, some of which run code
that is in the data, and takes sizes as they stand.
"""

from __future__ import annotations

import json
import math
import re
import reprlib
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, NoReturn, Optional

FILE = ".zarray"
LARGEST_SIDE = 1 << 20
MOST_FRAMES = 1 << 24

_MOST_BYTES = 1 << 20
_LARGEST_CHUNK = 1 << 40
_TYPES = {"|u1": "uint8", "<u1": "uint8", "u1": "uint8", "<u2": "uint16", "u2": "uint16"}
_NUMBERS = re.compile(r"[<>|]?([iu][1248]|f[248]|b1)")
_WHOLE_NUMBERS = re.compile(r"[<>|]?[iu][1248]")
# Their data alone say how they are decoded, so no parameter of theirs is needed.
_COMPRESSORS = "blosc", "bz2", "gzip", "lz4", "lzma", "zlib", "zstd"
_FILTERS = "delta", "shuffle"
_MOST_FILTERS = 4


class Metadata_error(ValueError):
    """What is wrong with them; the caller knows the remedy."""


@dataclass(frozen=True)
class Array_metadata:
    """An array of frames. `text` is all that zarr is told."""

    shape: tuple[int, ...]
    chunks: tuple[int, ...]
    dtype: str
    text: bytes


def of_frames(folder: Path) -> Array_metadata:
    """Of an array (N, H, W) of samples.

    Raises
    ------
    Metadata_error
        If it is none that can be read.
    OSError
        If the file cannot be read.
    """
    fields = _checked(folder / FILE)
    shape, dtype = tuple(fields["shape"]), _TYPES.get(fields["dtype"], fields["dtype"])
    if len(shape) != 3 or dtype not in _TYPES.values():
        raise Metadata_error(
            f"it holds {dtype} in the shape {shape}, not uint8 or uint16 frames (N, H, W)"
        )
    if 0 in shape[1:]:
        raise Metadata_error(f"shape is {_shown(shape)}, frames of nothing")
    limits = MOST_FRAMES, LARGEST_SIDE, LARGEST_SIDE
    if any(size > limit for size, limit in zip(shape, limits)):
        raise Metadata_error(f"shape is {_shown(shape)}, more than {_shown(limits)}")
    # What is missing fails its frames, so no number stands for it.
    told = fields | {"zarr_format": 2, "fill_value": None}
    return Array_metadata(
        shape, tuple(fields["chunks"]), dtype, json.dumps(told, allow_nan=False).encode()
    )


def check(folder: Path) -> None:
    """Whether zarr may open an array of numbers.

    Raises
    ------
    Metadata_error, OSError
        If not.
    """
    _checked(folder / FILE)


def open_frames(folder: Path, metadata: Array_metadata) -> Any:
    """zarr's array of the chunks in a folder, without a look at the metadata there."""
    import zarr

    return zarr.Array(
        {FILE: metadata.text}, read_only=True, chunk_store=zarr.DirectoryStore(str(folder))
    )


def _checked(file: Path) -> dict[str, Any]:
    """The fields that decoding needs, and no others."""
    fields = _fields_in(file)
    for key in ("shape", "chunks", "dtype", "compressor", "filters", "order", "fill_value"):
        if key not in fields:
            raise Metadata_error(f"{key} is missing")
    version = fields.get("zarr_format")
    if type(version) is not int or version != 2:
        raise Metadata_error(f"zarr_format is {_shown(version)}, not 2")
    shape, chunks, dtype = fields["shape"], fields["chunks"], fields["dtype"]
    _check_sizes("shape", shape, 0)
    _check_sizes("chunks", chunks, 1)
    if len(chunks) != len(shape):
        raise Metadata_error(f"chunks is {_shown(chunks)}, but shape {_shown(shape)}")
    if not isinstance(dtype, str) or not _NUMBERS.fullmatch(dtype):
        raise Metadata_error(f"dtype is {_shown(dtype)}, not that of numbers")
    if math.prod(chunks) > _LARGEST_CHUNK:
        raise Metadata_error(f"chunks is {_shown(chunks)}, more than {_LARGEST_CHUNK} numbers")
    order, separator = fields["order"], fields.get("dimension_separator", ".")
    if order not in ("C", "F"):
        raise Metadata_error(f"order is {_shown(order)}, not 'C' or 'F'")
    if separator not in (".", "/"):
        raise Metadata_error(f"dimension_separator is {_shown(separator)}, not '.' or '/'")
    _check_fill_value(fields["fill_value"])
    return {
        "shape": shape,
        "chunks": chunks,
        "dtype": dtype,
        "compressor": _compressor(fields["compressor"]),
        "filters": _filters(fields["filters"]),
        "order": order,
        "dimension_separator": separator,
    }


def _fields_in(file: Path) -> dict[str, Any]:
    if not file.is_file():  # of a pipe nobody knows when it ends
        raise Metadata_error("it is no regular file")
    with open(file, "rb") as stream:
        text = stream.read(_MOST_BYTES + 1)
    if len(text) > _MOST_BYTES:
        raise Metadata_error(f"it has more than {_MOST_BYTES} bytes")
    try:
        fields = json.loads(text, object_pairs_hook=_each_once, parse_constant=_no_number)
    except Metadata_error:
        raise
    except (ValueError, RecursionError):
        raise Metadata_error("it is no JSON") from None
    if not isinstance(fields, dict):
        raise Metadata_error("it is no JSON object")
    return fields


def _each_once(pairs: Sequence[tuple[str, Any]]) -> dict[str, Any]:
    fields = dict(pairs)
    if len(fields) != len(pairs):
        names = [name for name, _ in pairs]
        twice = next(name for name in names if names.count(name) > 1)
        raise Metadata_error(f"{_shown(twice)} stands there twice")
    return fields


def _no_number(text: str) -> NoReturn:
    raise Metadata_error(f"{text} is no number of JSON")


def _shown(value: Any) -> str:
    return reprlib.repr(value)


def _is_whole(value: Any) -> bool:
    return type(value) is int


def _check_sizes(key: str, sizes: Any, lowest: int) -> None:
    is_list = isinstance(sizes, list) and len(sizes) <= 32
    if not is_list or not all(_is_whole(size) and lowest <= size < 1 << 62 for size in sizes):
        raise Metadata_error(f"{key} is {_shown(sizes)}, not whole numbers from {lowest} on")


def _check_fill_value(value: Any) -> None:
    if isinstance(value, str) and value not in ("NaN", "Infinity", "-Infinity"):
        raise Metadata_error(f"fill_value is {_shown(value)}, not a number")
    if not isinstance(value, (str, int, float, type(None))):
        raise Metadata_error(f"fill_value is {_shown(value)}, not a number")


def _name_of(codec: Any, kind: str, accepted: tuple[str, ...]) -> str:
    name = codec.get("id") if isinstance(codec, Mapping) else None
    if not isinstance(name, str) or name not in accepted:
        raise Metadata_error(f"the {kind} is {_shown(name or codec)}, which is none of the usual")
    return name


def _compressor(codec: Any) -> Optional[dict[str, Any]]:
    return None if codec is None else {"id": _name_of(codec, "compressor", _COMPRESSORS)}


def _filters(codecs: Any) -> Optional[list[dict[str, Any]]]:
    if codecs is None:
        return None
    if not isinstance(codecs, list) or len(codecs) > _MOST_FILTERS:
        raise Metadata_error(f"filters is {_shown(codecs)}, not a list of {_MOST_FILTERS} at most")
    return [_filter(codec) for codec in codecs] or None


def _filter(codec: Any) -> dict[str, Any]:
    name = _name_of(codec, "filter", _FILTERS)
    if name == "shuffle":
        size = codec.get("elementsize", 4)
        if not _is_whole(size) or not 1 <= size <= 16:
            raise Metadata_error(f"elementsize is {_shown(size)}, not 1 to 16")
        return {"id": name, "elementsize": size}
    types = {"dtype": codec.get("dtype"), "astype": codec.get("astype") or codec.get("dtype")}
    for key, value in types.items():
        if not isinstance(value, str) or not _WHOLE_NUMBERS.fullmatch(value):
            raise Metadata_error(f"{key} of delta is {_shown(value)}, not that of whole numbers")
    return {"id": name, **types}
