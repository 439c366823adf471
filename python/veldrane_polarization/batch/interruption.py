"""How a run hears of Ctrl-C, of the system's request to end, of a terminal that closes."""

from __future__ import annotations

import contextlib
import signal
import sys
import threading
from collections.abc import Iterator
from typing import Any


class Interruption(BaseException):
    """Ctrl-C, the system's request to end, or a terminal that closes."""


# What a handler raises is lost where it falls into a finaliser; the event stays.
_interrupted = threading.Event()


def raise_if_interrupted() -> None:
    """Whatever became of the exception of a signal."""
    if _interrupted.is_set():
        raise Interruption


@contextlib.contextmanager
def interruptible() -> Iterator[None]:
    """The first signal raises Interruption; more of them leave the clearing up alone."""
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    numbers = [signal.SIGINT, signal.SIGTERM]
    # nohup starts a program that is to outlive its terminal.
    if signal.getsignal(signal.SIGHUP) is not signal.SIG_IGN:
        numbers.append(signal.SIGHUP)

    def interrupt(number: int, frame: Any) -> None:
        for each in numbers:
            signal.signal(each, signal.SIG_IGN)
        _interrupted.set()
        raise Interruption

    def tell_lost(lost: Any) -> None:
        # Objects that the signal leaves half-made fail in their finalisers, too.
        if not _interrupted.is_set():
            before_lost(lost)

    _interrupted.clear()
    before_lost, sys.unraisablehook = sys.unraisablehook, tell_lost
    before = {number: signal.signal(number, interrupt) for number in numbers}
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
        sys.unraisablehook = before_lost
        _interrupted.clear()
