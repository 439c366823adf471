"""Calibrations: of ideal sensors, kept in files, for parts of frames."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Optional, Union

from . import _arguments
from ._arguments import Layout
from ._native import Calibration

# From here, so that nobody has the class without what is added to it below.
__all__ = ["Calibration"]


def ideal(layout: Layout) -> Calibration:
    """The calibration of an ideal sensor.

    Parameters
    ----------
    layout : int, str or sequence of int
        As in `process`.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        For a layout that is none.

    Examples
    --------
    >>> Calibration.ideal("90,45,135,0").phase
    2
    """
    return Calibration._ideal(_arguments.phase_of(layout))


def load(path: Union[str, Path]) -> Calibration:
    """Read a calibration that `save` or the program's `calibrate` wrote.

    Parameters
    ----------
    path : str or pathlib.Path

    Returns
    -------
    Calibration

    Raises
    ------
    FileNotFoundError
        If there is no such file.
    ValueError
        If it is no regular file, no calibration, damaged, or of a newer schema; says which line
        and key. If the array file of its maps is missing, another one or damaged; says which map,
        row and column.

    Examples
    --------
    >>> from tempfile import TemporaryDirectory
    >>> with TemporaryDirectory() as folder:
    ...     Calibration.ideal(2).save(folder + "/ideal.json")
    ...     Calibration.load(folder + "/ideal.json") == Calibration.ideal(2)
    True
    """
    name = _arguments.file_name("path", path)
    # For the exception of a file that is missing. To open a pipe as usual would wait for a writer.
    os.close(os.open(name, os.O_RDONLY | os.O_NONBLOCK))
    return Calibration._load(name)


def save(self: Calibration, path: Union[str, Path], *, overwrite: bool = False) -> None:
    """Write a file of JSON, whole or not at all.

    Maps go into an array file beside it, which `numpy.load` reads: `sensor.maps-HASH.npy` for
    `sensor.json`, float32 (maps, H, W) in the order of `maps`. Keep the two together.

    Parameters
    ----------
    path : str or pathlib.Path
    overwrite : bool
        Replace a file that is there. Only a regular file is ever replaced.

    Raises
    ------
    TypeError
        For an `overwrite` that is no bool.
    ValueError
        If the file exists already, or cannot be written.

    Examples
    --------
    >>> from tempfile import TemporaryDirectory
    >>> with TemporaryDirectory() as folder:
    ...     Calibration.ideal(2).save(folder + "/ideal.json")
    ...     open(folder + "/ideal.json").read(1)
    '{'
    """
    self._save(_arguments.file_name("path", path), _arguments.truth("overwrite", overwrite))


def from_json(text: str) -> Calibration:
    """The calibration that `to_json` wrote, of one without maps.

    Parameters
    ----------
    text : str

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        If the text is none; says which key, or the line of what is no JSON.

    Examples
    --------
    >>> Calibration.from_json(Calibration.ideal(1).to_json()).layout
    (45, 90, 0, 135)
    """
    if not isinstance(text, str):
        raise TypeError(f"text is a {type(text).__name__}; give what to_json returned")
    try:
        text.encode()
    except UnicodeEncodeError as error:
        raise ValueError(
            f"text has a character at {error.start} that UTF-8 cannot hold; give what to_json "
            "returned"
        ) from None
    return Calibration._from_json(text)


def of_region(
    self: Calibration,
    row_offset: int,
    column_offset: int,
    height: Optional[int] = None,
    width: Optional[int] = None,
) -> Calibration:
    """The calibration of frames that begin at this row and column of the sensor.

    Parameters
    ----------
    row_offset, column_offset : int
        0 or more. Without maps only whether they are odd matters.
    height, width : int, optional
        Size of the region, which a calibration with maps needs; they are cut to it.

    Returns
    -------
    Calibration

    Raises
    ------
    TypeError, ValueError
        For an offset or size that is no such number, for one of height and width without the
        other, for maps without a size, and for a region that they do not cover.

    Examples
    --------
    >>> Calibration.ideal((90, 45, 135, 0)).of_region(0, 3).layout
    (45, 90, 0, 135)
    >>> Calibration.ideal((90, 45, 135, 0)).of_region(0, 3, 64, 64).maps
    {}
    """
    if (height is None) != (width is None):
        raise TypeError(
            f"height is {height} and width is {width}; give both of a region, or none of them"
        )
    return self._of_region(
        _arguments.whole_number("row_offset", row_offset, 0, 2**31),
        _arguments.whole_number("column_offset", column_offset, 0, 2**31),
        None if height is None else _arguments.whole_number("height", height, 1, 2**31),
        None if width is None else _arguments.whole_number("width", width, 1, 2**31),
    )


# The class is made in C++; what takes arguments in several spellings is added here.
for _name, _function in (
    ("ideal", staticmethod(ideal)),
    ("load", staticmethod(load)),
    ("from_json", staticmethod(from_json)),
    ("save", save),
    ("of_region", of_region),
):
    setattr(Calibration, _name, _function)
