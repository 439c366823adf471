"""Frames from cameras, as they arrive."""

from __future__ import annotations

from dataclasses import dataclass
from types import ModuleType, TracebackType
from typing import TYPE_CHECKING, Any, NamedTuple, Optional

import numpy as np
import numpy.typing as npt

from . import _arguments
from ._arguments import Layout
from ._camera_error import Camera_error
from ._native import Calibration
from ._pixel_formats import PIXEL_FORMATS

if TYPE_CHECKING:
    from . import _native_cameras

_DROPS = ("newest", "oldest", "none")


@dataclass(frozen=True)
class Camera_description:
    """A camera that answers. `address` is empty for one that is not in the network, `protocol` is
    ``'GigEVision'``, ``'USB3Vision'`` or ``'Fake'``."""

    id: str
    vendor: str
    model: str
    serial: str
    address: str
    protocol: str


class Camera_region(NamedTuple):
    """Part of a sensor."""

    row: int
    column: int
    height: int
    width: int


@dataclass(frozen=True)
class Camera_settings:
    """What a camera runs with. `sensor` is (height, width); what it does not tell is None."""

    pixel_format: str
    region: Camera_region
    sensor: tuple[int, int]
    exposure_us: Optional[float]
    gain: Optional[float]
    frame_rate: Optional[float]


@dataclass(frozen=True)
class Camera_counts:
    """What became of the frames that a camera sent.

    `received` whole ones, of which `dropped` found no room; `lost` ones, of which nothing came but
    the gap in the numbers; `incomplete` ones by their cause, which go no further.
    """

    received: int
    dropped: int
    lost: int
    incomplete: dict[str, int]
    reconnections: int


@dataclass(frozen=True)
class Camera_frame:
    """One whole frame: `samples` (H, W) uint16 in memory of their own, right-aligned; the camera's
    count, which may wrap; nanoseconds by the camera's clock, from whenever that began, and by this
    machine's, since 1970.

    Examples
    --------
    >>> Camera_frame(np.zeros((32, 64), np.uint16), 65535, 0, 0).samples.shape
    (32, 64)
    """

    samples: npt.NDArray[np.uint16]
    frame_number: int
    camera_time_ns: int
    host_time_ns: int


class Camera:
    """A camera that sends: an iterator of frames, and a context manager that gives it back.

    Made by `open_camera`.

    Attributes
    ----------
    description : Camera_description
    settings : Camera_settings
    counts : Camera_counts
        Until now; of all frames once the camera was given back.
    """

    def __init__(self, native: _native_cameras.Native_camera) -> None:
        self._native = native
        self.description = Camera_description(*native.description())
        pixel_format, region, sensor, exposure_us, gain, frame_rate = native.settings()
        self.settings = Camera_settings(
            pixel_format, Camera_region(*region), sensor, exposure_us, gain, frame_rate
        )

    @property
    def counts(self) -> Camera_counts:
        return Camera_counts(*self._native.counts())

    def layout(self, sensor: Layout) -> tuple[int, ...]:
        """The layout of the frames, from that of the whole sensor: a region that begins at an odd
        row or column exchanges the rows or columns of the cell.

        Parameters
        ----------
        sensor : int, str or sequence of int
            A phase from 0 to 3, four angles in degrees, or a text.

        Returns
        -------
        tuple of int
            As `process` takes it.

        Examples
        --------
        >>> camera.layout((90, 45, 135, 0))  # doctest: +SKIP
        (135, 0, 90, 45)
        """
        whole = Calibration.ideal(_arguments.phase_of(sensor))
        return tuple(whole.of_region(self.settings.region.row, self.settings.region.column).layout)

    def close(self) -> None:
        """Give the camera back. Frames that wait are let go.

        Examples
        --------
        >>> camera.close()  # doctest: +SKIP
        """
        self._native.stop()

    def __enter__(self) -> Camera:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __iter__(self) -> Camera:
        return self

    def __next__(self) -> Camera_frame:
        found = self._native.next()
        if found is None:
            raise StopIteration
        return Camera_frame(*found)


def list_cameras() -> list[Camera_description]:
    """The cameras that answer, in the order of their ids. Takes about a second.

    Returns
    -------
    list of Camera_description

    Raises
    ------
    Camera_error
        If this machine or this build of the package cannot reach any.

    Examples
    --------
    >>> isinstance(list_cameras(), list)
    True
    """
    return [Camera_description(*camera) for camera in _native_module().list_cameras()]


def open_camera(
    id: Optional[str] = None,
    *,
    pixel_format: Optional[str] = None,
    exposure_us: Optional[float] = None,
    gain: Optional[float] = None,
    frame_rate: Optional[float] = None,
    region: Optional[tuple[int, int, int, int]] = None,
    frames: Optional[int] = None,
    seconds: Optional[float] = None,
    drop: str = "newest",
    waiting_frames: int = 16,
    reconnect_seconds: float = 0,
    packet_socket: bool = True,
) -> Camera:
    """Open a camera, set it up and let it send.

    Parameters
    ----------
    id : str, optional
        As `list_cameras` tells, or its address; not needed where there is one camera.
    pixel_format, exposure_us, gain, frame_rate, region : optional
        One of `PIXEL_FORMATS`; microseconds; in the camera's unit, mostly dB; frames a second;
        (row, column, height, width) of the sensor. What is not given stays as the camera has it.
    frames, seconds : optional
        So many frames, or so long: then the iteration ends. Otherwise it goes on.
    drop : str
        Which frame goes when one arrives and `waiting_frames` wait: ``'newest'``, the one that
        arrives, ``'oldest'``, or ``'none'``, so that the camera has to wait.
    waiting_frames : int
        1 to 4096.
    reconnect_seconds : float
        How long to wait for a camera that goes away.
    packet_socket : bool
        Whether packets may be taken past the system's network stack where the process may.

    Returns
    -------
    Camera
        An iterator of `Camera_frame`. Frames that are not whole are counted and not handed on.

    Raises
    ------
    TypeError, ValueError
        For no camera, or several and no id; for an option that the camera has not, or a value that
        it does not take.
    Camera_error
        If the camera cannot be reached or refuses; while iterating, behind the last frame, if it
        went away.

    Examples
    --------
    >>> with open_camera(exposure_us=5000, frames=10) as camera:  # doctest: +SKIP
    ...     layout = camera.layout((90, 45, 135, 0))  # of the sensor
    ...     for frame in camera:
    ...         result = process(frame.samples, layout=layout, bit_depth=12)
    >>> try:
    ...     open_camera(drop="some")
    ... except ValueError as error:
    ...     print(error)
    drop is 'some'; give one of 'newest', 'oldest', 'none'
    """
    numbers = [
        None if value is None else _arguments.finite_number(name, value)
        for name, value in (
            ("exposure_us", exposure_us),
            ("gain", gain),
            ("frame_rate", frame_rate),
            ("seconds", seconds),
        )
    ]
    if frames is not None:
        frames = _arguments.whole_number("frames", frames, 1, 1 << 62)
    if pixel_format is not None:
        _arguments.choice("pixel_format", pixel_format, PIXEL_FORMATS)
    return Camera(
        _native_module().open_camera(
            "" if id is None else _checked_id(id),
            pixel_format or "",
            *numbers[:3],
            None if region is None else _checked_region(region),
            frames,
            numbers[3],
            _arguments.choice("drop", drop, _DROPS),
            _arguments.whole_number("waiting_frames", waiting_frames, 1, 4096),
            _arguments.number_within("reconnect_seconds", reconnect_seconds, 0, 1e6),
            _arguments.truth("packet_socket", packet_socket),
        )
    )


def _checked_id(id: Any) -> str:
    if not isinstance(id, str):
        raise TypeError(f"id is {id!r}; give one that list_cameras() tells")
    if not id or not id.isprintable():
        raise ValueError(f"id is {id!r}; give one that list_cameras() tells, or leave it out")
    return id


def _checked_region(region: Any) -> Camera_region:
    given = f"region is {region!r}; give (row, column, height, width)"
    try:
        row, column, height, width = region
    except (TypeError, ValueError) as error:
        raise type(error)(given) from None
    return Camera_region(
        _arguments.whole_number("row of region", row, 0, 1 << 20),
        _arguments.whole_number("column of region", column, 0, 1 << 20),
        _arguments.whole_number("height of region", height, 1, 1 << 20),
        _arguments.whole_number("width of region", width, 1, 1 << 20),
    )


# At first use: the rest of the package does without Aravis.
def _native_module() -> ModuleType:
    try:
        from . import _native_cameras
    except ImportError as error:
        raise Camera_error(
            "cameras: cannot be reached, since Aravis is not installed or this package was built "
            "without it; install libaravis-0.8-0"
        ) from error
    return _native_cameras
