"""Samples as cameras lay them in bytes."""

from __future__ import annotations

from typing import Any, Optional, Union

import numpy as np
import numpy.typing as npt

from . import _arguments, _native

PIXEL_FORMATS = tuple(_native.pixel_format_names())

Buffer = Union[bytes, bytearray, memoryview, "npt.NDArray[np.uint8]"]


def bit_depth_of(pixel_format: str) -> int:
    """Significant bits of a sample of a pixel format.

    Parameters
    ----------
    pixel_format : str
        One of `PIXEL_FORMATS`.

    Returns
    -------
    int

    Raises
    ------
    TypeError, ValueError
        For a format that is none of them.

    Examples
    --------
    >>> bit_depth_of("Mono12p")
    12
    """
    return _native.bit_depth_of_format(
        _arguments.choice("pixel_format", pixel_format, PIXEL_FORMATS)
    )


def unpack(
    data: Buffer,
    pixel_format: str,
    height: int,
    width: int,
    *,
    frames: Optional[int] = None,
    stride: Optional[int] = None,
    offset: int = 0,
) -> npt.NDArray[np.uint16]:
    """Unpack bytes of a camera or a raw recording into samples.

    Parameters
    ----------
    data : bytes-like or numpy.ndarray of uint8
        Frames one behind the other.
    pixel_format : str
        One of `PIXEL_FORMATS`, names of the GenICam convention.
    height, width : int
        Of a frame.
    frames : int, optional
        How many; all that the data holds if not given.
    stride : int, optional
        Bytes from one row to the next; rows adjoin if not given.
    offset : int
        Bytes before the first frame.

    Returns
    -------
    numpy.ndarray
        (N, H, W) uint16, right-aligned.

    Raises
    ------
    TypeError
        If `data` does not hold bytes.
    ValueError
        For an unknown format, and if `data` is not as long as the frames need.

    Examples
    --------
    >>> unpack(bytes([0x21, 0x43, 0x65] * 2), "Mono12p", 2, 2)[0, 0]
    array([ 801, 1620], dtype=uint16)
    """
    _arguments.choice("pixel_format", pixel_format, PIXEL_FORMATS)
    rows = _arguments.whole_number("height", height, 1, 1 << 20)
    columns = _arguments.whole_number("width", width, 1, 1 << 20)
    row_bytes = 0 if stride is None else _arguments.whole_number("stride", stride, 1, 1 << 32)
    skipped = _arguments.whole_number("offset", offset, 0, 1 << 62)
    view = _bytes_of(data)[skipped:]
    frame_bytes = _native.bytes_per_frame(pixel_format, rows, columns, row_bytes)
    distance = row_bytes * rows if row_bytes else frame_bytes
    held = (view.size - frame_bytes) // distance + 1 if view.size >= frame_bytes else 0
    count = held if frames is None else _arguments.whole_number("frames", frames, 1, 1 << 31)
    exact = (distance * count, distance * (count - 1) + frame_bytes)
    if count == 0 or count > held or (frames is None and view.size not in exact):
        raise ValueError(
            f"data holds {view.size} bytes behind the offset; {pixel_format} frames of "
            f"{_native.size_text(columns, rows)} take {distance} bytes each, so give a multiple of it, or the "
            "number of frames"
        )
    return _native.unpack(view, pixel_format, count, rows, columns, row_bytes, distance)


def pack(samples: npt.NDArray[np.uint16], pixel_format: str) -> npt.NDArray[np.uint8]:
    """The way back of `unpack` for one frame: its bytes, rows adjoining.

    Parameters
    ----------
    samples : numpy.ndarray
        (H, W) uint16, right-aligned.
    pixel_format : str
        One of `PIXEL_FORMATS`.

    Returns
    -------
    numpy.ndarray
        Bytes of the frame, uint8.

    Raises
    ------
    TypeError, ValueError
        For a wrong dtype or shape, and if a sample is too large for the format.

    Examples
    --------
    >>> pack(np.array([[801, 1620]], np.uint16), "Mono12p").tobytes().hex()
    '214365'
    """
    _arguments.choice("pixel_format", pixel_format, PIXEL_FORMATS)
    if not isinstance(samples, np.ndarray):
        raise TypeError(f"samples is a {type(samples).__name__}; give a NumPy array of uint16")
    _arguments.check_no_mask(samples, "samples")
    if samples.dtype != np.uint16:
        raise TypeError(f"samples has the dtype {samples.dtype}; give uint16")
    if samples.ndim != 2 or 0 in samples.shape:
        raise ValueError(f"samples has the shape {samples.shape}; give one frame (H, W)")
    return _native.pack(np.ascontiguousarray(samples), pixel_format)


def _bytes_of(data: Any) -> npt.NDArray[np.uint8]:
    if isinstance(data, np.ndarray):
        _arguments.check_no_mask(data, "data")
        if data.dtype != np.uint8:
            raise TypeError(f"data has the dtype {data.dtype}; give bytes, uint8")
        if not data.flags.c_contiguous:
            raise ValueError("data is not dense; give numpy.ascontiguousarray of it")
        return data.reshape(-1)
    try:
        view = memoryview(data)
    except TypeError:
        raise TypeError(
            f"data is a {type(data).__name__}; give bytes or an array of uint8"
        ) from None
    if view.itemsize != 1 or not view.c_contiguous:
        raise TypeError(
            f"data is a {type(data).__name__} of {view.itemsize} bytes an item; give dense bytes"
        )
    return np.frombuffer(view, np.uint8)
