from typing import Optional

import numpy as np
import numpy.typing as npt

Description = tuple[str, str, str, str, str, str]
Rows_first = tuple[int, int, int, int]
Settings = tuple[
    str, Rows_first, tuple[int, int], Optional[float], Optional[float], Optional[float]
]
Counts = tuple[int, int, int, dict[str, int], int]

class Native_camera:
    def next(self) -> Optional[tuple[npt.NDArray[np.uint16], int, int, int]]: ...
    def stop(self) -> None: ...
    def counts(self) -> Counts: ...
    def description(self) -> Description: ...
    def settings(self) -> Settings: ...

def list_cameras() -> list[Description]: ...
def open_camera(
    id: str,
    pixel_format: str,
    exposure_us: Optional[float],
    gain: Optional[float],
    frame_rate: Optional[float],
    region: Optional[Rows_first],
    frames: Optional[int],
    seconds: Optional[float],
    drop: str,
    waiting_frames: int,
    reconnect_seconds: float,
    packet_socket: bool,
) -> Native_camera: ...
