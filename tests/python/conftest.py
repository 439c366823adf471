"""Options of all tests of the Python package."""

from __future__ import annotations

import os
import signal

import hypothesis
import pytest

# Derandomised: a failure shows again. Machines that are busy may take long for one example.
hypothesis.settings.register_profile(
    "ordinary", deadline=None, derandomize=True, max_examples=150, database=None
)
hypothesis.settings.register_profile(
    "long", parent=hypothesis.settings.get_profile("ordinary"), max_examples=3000
)


@pytest.fixture(autouse=True)
def signals_as_in_a_terminal():
    """Whoever started the tests may ignore signals, as nohup does; programs would inherit that."""
    before = {number: signal.getsignal(number) for number in (signal.SIGINT, signal.SIGHUP)}
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    yield
    for number, handler in before.items():
        signal.signal(number, handler)


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="more examples")


def pytest_configure(config: pytest.Config) -> None:
    hypothesis.settings.load_profile("long" if config.getoption("--long") else "ordinary")
    os.environ.setdefault("MPLBACKEND", "Agg")
