"""Every example of the docstrings runs, and whatever is public has one."""

from __future__ import annotations

import doctest
import importlib
import inspect

import numpy as np
import pytest

import veldrane_polarization as vp

MODULES = ("", ".colours", ".dask", ".datasets")


def public_names():
    """Public functions, classes and methods of the package, by the name that their examples go by."""
    for suffix in MODULES:
        module = importlib.import_module("veldrane_polarization" + suffix)
        for name in module.__all__:
            value = getattr(module, name)
            if inspect.isclass(value):
                yield from (
                    (f"{name}.{method}", getattr(value, method))
                    for method in vars(value)
                    if not method.startswith("_") and callable(getattr(value, method))
                )
                yield name, value
            elif callable(value):
                yield name, value


PUBLIC = dict(public_names())
# Made by functions whose examples show them, or with a camera alone.
WITHOUT_EXAMPLE = {"Analyser", "Inspection", "Simulation"} | {
    "Camera",
    "Camera.close",
    "Camera.layout",
}


def test_the_public_names_are_found():
    assert {
        "process",
        "calibrate",
        "Result.angle",
        "Calibration.of_region",
        "picture",
        "to_dataset",
    } <= set(PUBLIC) and len(PUBLIC) > 25
    print(len(PUBLIC), "public names")


@pytest.mark.parametrize("name", PUBLIC)
def test_is_documented_by_an_example_that_runs(name):
    value = PUBLIC[name]
    assert value.__doc__
    module = importlib.import_module(getattr(value, "__module__", None) or "veldrane_polarization")
    names = {"np": np} | {each: getattr(vp, each) for each in vp.__all__} | vars(module)
    tests = doctest.DocTestFinder(recurse=False).find(value, name, globs=names)
    runner = doctest.DocTestRunner(optionflags=doctest.FAIL_FAST)
    tried = sum(runner.run(test).attempted for test in tests)
    assert runner.summarize().failed == 0
    assert tried or name in WITHOUT_EXAMPLE
    if not inspect.isclass(value):
        assert "Examples\n" in inspect.getdoc(value) and (
            "Returns\n" in inspect.getdoc(value) or name in ("Calibration.save", "Camera.close")
        )
