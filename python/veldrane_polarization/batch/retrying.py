"""Errors of storage that pass: what is tried again, and when."""

from __future__ import annotations

import random
import time
from typing import Callable, TypeVar

from .._recordings import PASSING_ERRORS

_TRIES = 3
_SECONDS = 0.5
Value = TypeVar("Value")


def is_passing(error: Exception) -> bool:
    return isinstance(error, ConnectionError) or (
        isinstance(error, OSError) and error.errno in PASSING_ERRORS
    )


class Retries:
    """Tries an action three times, and counts how often it took more than one."""

    def __init__(self) -> None:
        self.count = 0

    def __call__(self, action: Callable[[], Value]) -> Value:
        for attempt in range(1, _TRIES):
            try:
                return action()
            except OSError as error:
                if not is_passing(error):
                    raise
            self.count += 1
            # Workers that failed at the same moment do not come back at the same moment.
            time.sleep(_SECONDS * 2 ** (attempt - 1) * random.uniform(0.5, 1.5))
        return action()
