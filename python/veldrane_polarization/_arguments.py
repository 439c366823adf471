"""Checks of arguments. Every message says what was given and what is accepted."""

from __future__ import annotations

import math
import os
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _native

# Those that the processor stores; the table has more.
PLANES = _native.all_planes
_NAMES = tuple(_native.plane_table)

Layout = Union[int, str, Iterable[int]]
Array = npt.NDArray[Any]

_LAYOUTS = tuple(tuple(_native.layout_of_phase(phase)) for phase in range(4))
_ALL_LAYOUTS = "; ".join(f"phase {phase} {layout}" for phase, layout in enumerate(_LAYOUTS))
_SAMPLES = (np.dtype(np.uint8), np.dtype(np.uint16))


def phase_of(layout: Layout) -> int:
    """Number of a layout that is given as a phase, as four angles or as text."""
    try:
        if isinstance(layout, str):
            return _native.phase_of_text(layout)
        if isinstance(layout, (int, np.integer)) and not isinstance(layout, bool):
            if 0 <= layout <= 3:
                return int(layout)
            raise ValueError
        return _LAYOUTS.index(tuple(layout))  # type: ignore[arg-type]
    except TypeError:
        raise TypeError(
            f"layout is {layout!r}; give a phase from 0 to 3, four angles in degrees or a text "
            "such as '90,45,135,0'"
        ) from None
    except ValueError:
        raise ValueError(
            f"layout is {layout!r}; give one of the four that there are: {_ALL_LAYOUTS}"
        ) from None


def planes_of(planes: Union[str, Iterable[str]]) -> tuple[str, ...]:
    """Names of planes, each once, in the order of asking."""
    if isinstance(planes, str):
        planes = PLANES if planes == "all" else [name.strip() for name in planes.split(",")]
    try:
        names = tuple(dict.fromkeys(planes))
    except TypeError:
        raise TypeError(
            f"planes is {planes!r}; give the names of planes, such as ('s0', 'dolp')"
        ) from None
    if not names:
        raise ValueError(f"planes is empty; name some of {', '.join(_NAMES)}, or 'all'")
    for name in names:
        if name not in _NAMES:
            raise ValueError(f"planes holds {name!r}; name some of {', '.join(_NAMES)}, or 'all'")
    return names


def whole_number(name: str, value: Any, lowest: int, highest: int) -> int:
    return _native.whole_number(name, value, lowest, highest)


def finite_number(name: str, value: Any) -> float:
    if isinstance(value, (bool, str)):
        raise TypeError(f"{name} is {value!r}; give a finite number")
    try:
        number = float(value)
    except TypeError:
        raise TypeError(f"{name} is {value!r}; give a finite number") from None
    if not math.isfinite(number):
        raise ValueError(f"{name} is {number}; give a finite number")
    return number


def number_within(name: str, value: Any, least: float, most: float) -> float:
    number = finite_number(name, value)
    if not least <= number <= most:
        raise ValueError(f"{name} is {number:g}; give {least:g} to {most:g}")
    return number


def truth(name: str, value: Any) -> bool:
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} is {value!r}; give True or False")
    return bool(value)


def choice(name: str, value: Any, accepted: tuple[str, ...]) -> str:
    if not isinstance(value, str) or value not in accepted:
        kind = ValueError if isinstance(value, str) else TypeError
        raise kind(f"{name} is {value!r}; give one of {', '.join(map(repr, accepted))}")
    return value


def file_name(name: str, value: Any) -> str:
    try:
        file: str = os.fsdecode(value)
        os.fsencode(file)
    except TypeError:
        raise TypeError(f"{name} is {value!r}; give the name of a file") from None
    except UnicodeError:
        raise ValueError(
            f"{name} is {value!r}; give a name of characters that files can have"
        ) from None
    if not file:
        raise ValueError(f"{name} is empty; give the name of a file")
    if "\0" in file:
        raise ValueError(f"{name} is {file!r}; give a name without a character of code 0")
    return file


def scale_of(bit_depth: Any, full_scale: Any) -> _native.Scale:
    depth = whole_number("bit_depth", bit_depth, 1, 16)
    if full_scale is None:
        return _native.Scale(depth)
    return _native.Scale(depth, whole_number("full_scale", full_scale, 1, 65535))


def check_samples(dtype: np.dtype[Any], shape: tuple[int, ...], name: str = "raw") -> None:
    """Whether frames of this type and shape can be processed."""
    if dtype not in _SAMPLES or not dtype.isnative:
        raise TypeError(
            f"{name} has the dtype {dtype}; give uint8 or uint16 in host byte order, such as by "
            f"{name}.astype('uint16') if no sample is lost by it"
        )
    if len(shape) not in (2, 3):
        raise ValueError(
            f"{name} has the shape {shape}; give one frame (H, W) or several (N, H, W)"
        )
    height, width = shape[-2:]
    if not _native.can_be_processed(width, height):
        raise ValueError(
            f"{name} has the shape {shape}; give frames of at least 2 rows and 16 columns, or of "
            "exactly 2 rows and at least 2 columns"
        )


def check_no_mask(array: Array, name: str) -> None:
    if isinstance(array, np.ma.MaskedArray):
        raise TypeError(
            f"{name} is a masked array, whose mask would be lost; give {name}.filled(...)"
        )


def frames(raw: Any, bit_depth: int, name: str = "raw") -> Array:
    """`raw` itself, once it is known to hold frames that can be processed."""
    if not isinstance(raw, np.ndarray):
        raise TypeError(
            f"{name} is a {type(raw).__name__}; give a NumPy array of uint8 or uint16 with the "
            "shape (H, W) or (N, H, W)"
        )
    check_no_mask(raw, name)
    check_samples(raw.dtype, raw.shape, name)
    if raw.dtype == np.uint8 and bit_depth > 8:
        raise ValueError(
            f"bit_depth is {bit_depth}, but {name} has the dtype uint8; give at most 8, or the "
            "frames as uint16"
        )
    return raw


def one_frame(raw: Any, bit_depth: int, name: str) -> Array:
    checked = frames(raw, bit_depth, name)
    if checked.ndim != 2:
        raise ValueError(f"{name} has the shape {checked.shape}; give one frame (H, W)")
    return checked


def each_frame(name: str, given: Any) -> Iterator[Any]:
    """What of an array (N, H, W), an array (H, W) or frames one by one is a frame each."""
    if isinstance(given, np.ndarray) and given.ndim == 2:
        given = [given]
    try:
        return iter(given)
    except TypeError:
        raise TypeError(
            f"{name} is a {type(given).__name__}; give an array (N, H, W) or frames (H, W)"
        ) from None


def plane_dtype(name: str, signed: bool) -> np.dtype[Any]:
    about = _native.plane_table[name]
    return np.dtype(about.signed_dtype if signed else about.dtype)


def plane_shape(name: str, shape: tuple[int, ...]) -> tuple[int, ...]:
    count = _native.plane_table[name].elements_per_pixel
    return (*shape, count) if count > 1 else shape


def new_planes(raw: Array, planes: tuple[str, ...], signed: bool) -> dict[str, Array]:
    return {
        name: np.empty(plane_shape(name, raw.shape), plane_dtype(name, signed)) for name in planes
    }


def _share_memory(one: Array, other: Array) -> bool:
    # Whether strided arrays meet is a hard question; one that takes long is answered with yes.
    if not np.may_share_memory(one, other):
        return False
    try:
        return bool(np.shares_memory(one, other, max_work=100_000))
    except RuntimeError:  # NumPy's TooHardError, which versions have in different places
        return True


def check_out(
    out: Mapping[str, Array], raw: Array, planes: tuple[str, ...], signed: bool
) -> dict[str, Array]:
    """The arrays of `out`, once each can take its plane."""
    if not isinstance(out, Mapping):
        raise TypeError(f"out is a {type(out).__name__}; give a mapping from plane to array")
    if set(out) != set(planes):
        raise ValueError(
            f"out holds {', '.join(map(repr, out)) or 'nothing'}; give an array for each of the "
            f"planes asked for: {', '.join(map(repr, planes))}"
        )
    arrays = {name: _checked_target(name, out[name], raw.shape, signed) for name in planes}
    buffers = [("raw", raw), *((f"out[{name!r}]", array) for name, array in arrays.items())]
    for number, (name, array) in enumerate(buffers):
        for other_name, other in buffers[:number]:
            if _share_memory(array, other):
                raise ValueError(
                    f"{name} is in the same memory as {other_name}; give every array memory of "
                    "its own"
                )
    return arrays


def _checked_target(name: str, array: Any, shape: tuple[int, ...], signed: bool) -> Array:
    title = f"out[{name!r}]"
    dtype, wanted = plane_dtype(name, signed), plane_shape(name, shape)
    if not isinstance(array, np.ndarray):
        raise TypeError(f"{title} is a {type(array).__name__}; give a NumPy array of {dtype}")
    check_no_mask(array, title)
    if array.dtype != dtype or not array.dtype.isnative:
        raise TypeError(f"{title} has the dtype {array.dtype}; give {dtype}")
    if array.shape != wanted:
        raise ValueError(f"{title} has the shape {array.shape}; give {wanted}")
    if not array.flags.writeable:
        raise ValueError(f"{title} is read-only; give an array that can be written")
    if not array.flags.c_contiguous or not array.flags.aligned:
        raise ValueError(f"{title} is not dense; give a C-contiguous array")
    return array


def phase_and_calibration(
    layout: Optional[Layout], calibration: Any, name: str = "calibration"
) -> tuple[int, Optional[_native.Calibration]]:
    """The phase, from the layout or the calibration, which must agree if both are given."""
    if calibration is None:
        if layout is None:
            raise TypeError("layout is missing; give a layout, or a calibration, which holds one")
        return phase_of(layout), None
    if not isinstance(calibration, _native.Calibration):
        raise TypeError(
            f"{name} is a {type(calibration).__name__}; give a Calibration, such as from "
            "Calibration.load"
        )
    if layout is not None and phase_of(layout) != calibration.phase:
        raise ValueError(
            f"layout is {layout!r}, but the {name} is for {calibration.layout}; leave the "
            f"layout out, or give the {name} of this one"
        )
    return calibration.phase, calibration


def check_maps(
    calibration: Optional[_native.Calibration], shape: tuple[int, ...], bit_depth: int
) -> None:
    """Whether the calibration's maps, if it has any, are for such frames (H, W)."""
    if calibration is None or calibration.model == "position":
        return
    wanted = calibration.maps["dark_level"].shape
    if tuple(shape) != wanted:
        raise ValueError(
            f"the frames have {_native.size_text(shape[1], shape[0])} pixels, but the calibration's "
            f"maps {_native.size_text(wanted[1], wanted[0])}; give frames of that size, or cut the "
            "maps with of_region"
        )
    if bit_depth != calibration.bit_depth:
        raise ValueError(
            f"bit_depth is {bit_depth}, but the calibration's maps are for {calibration.bit_depth} "
            "bits; give samples as they were for the calibration"
        )


def mode_of(mode: Optional[str], calibration: Any) -> str:
    if mode is None:
        return "fast" if calibration is None else "calibrated"
    choice("mode", mode, ("fast", "calibrated"))
    if mode == "fast" and calibration is not None:
        raise ValueError(
            "mode is 'fast', which applies weights to few pixels only; leave out mode or the "
            "calibration"
        )
    return mode


def zero_direction_of(degrees: Any, mode: str) -> float:
    direction = finite_number("zero_direction", degrees)
    if direction != 0 and mode == "fast":
        raise ValueError(
            f"zero_direction is {degrees}, which turns weights, and mode 'fast' applies them to few "
            "pixels only; give mode='calibrated' or a calibration, or leave it out"
        )
    return direction


def finite_numbers(
    name: str, values: Any, count: Optional[int], of_each: str = "frame"
) -> list[float]:
    """So many numbers, or as many as there are."""
    try:
        listed = list(values)
    except TypeError:
        wanted = "" if count is None else f"{count} "
        raise TypeError(f"{name} is {values!r}; give {wanted}numbers, one a {of_each}") from None
    if count is not None and len(listed) != count:
        raise ValueError(f"{name} holds {len(listed)} numbers; give {count}, one a {of_each}")
    return [finite_number(f"{name}[{index}]", value) for index, value in enumerate(listed)]
