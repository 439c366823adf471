"""What a worker tells Prometheus where its client is installed: Dask shows it under /metrics."""

from __future__ import annotations

from typing import Any

_TEXTS = {
    "frames": "Frames whose planes are stored.",
    "bytes": "Bytes of planes that were stored, after compression.",
    "failures": "Frames that could not be read, processed or stored.",
}


def _registered() -> dict[str, Any]:
    try:
        from prometheus_client import Counter
    except ImportError:
        return {}
    return {name: Counter(f"veldrane_{name}", text) for name, text in _TEXTS.items()}


# The client keeps one registry a process, and takes each name once.
_COUNTERS = _registered()


def count(**amounts: int) -> None:
    """Add to `frames`, `bytes` and `failures`."""
    for name, counter in _COUNTERS.items():
        counter.inc(amounts[name])
