"""Clusters that no run begins on: one line with the remedy, exit code 2, no frame done."""

from __future__ import annotations

import os
from pathlib import Path

import pytest
import zarr
from batch_support import completed, frames_of, loopback_cluster, options, run

import veldrane_polarization as vp


@pytest.fixture
def paths(tmp_path):
    zarr.save_array(str(tmp_path / "in.zarr"), frames_of(2), chunks=(1, 64, 96))
    return tmp_path / "in.zarr", tmp_path / "out.zarr"


@pytest.mark.parametrize(
    "contents, words",
    [
        ("raise ImportError('not here')", "cannot import veldrane_polarization"),
        ("raise OSError('a broken disk')", "cannot import veldrane_polarization"),
        ("__version__ = '0.0'", "has version 0.0, this machine"),
    ],
)
def test_a_worker_of_another_installation_is_refused(tmp_path, paths, contents, words):
    package = tmp_path / "other" / "veldrane_polarization"
    package.mkdir(parents=True)
    (package / "__init__.py").write_text(contents)
    with loopback_cluster(tmp_path, ({}, {"PYTHONPATH": str(package.parent)})) as (address, *_):
        code, printed, errors = run(*paths, *options("--scheduler", address))
        assert code == 2 and not printed
        assert errors.startswith("error: the worker tcp://") and words in errors, errors
        assert errors.count("\n") == 1
    assert completed(paths[1]) == 0


# For a worker that would find it.
WITHOUT_THE_PACKAGE = """import sys


class Without:
    def find_spec(self, name, path=None, target=None):
        if name == "veldrane_polarization":
            raise ModuleNotFoundError(f"No module named {name!r}", name=name)


sys.meta_path.insert(0, Without())
"""


def test_a_worker_without_the_package_is_refused(tmp_path, paths):
    folder = tmp_path / "nothing"
    folder.mkdir()
    (folder / "sitecustomize.py").write_text(WITHOUT_THE_PACKAGE)
    path = os.pathsep.join([str(folder), str(Path(vp.__file__).parents[1])])
    with loopback_cluster(tmp_path, ({"PYTHONPATH": path},)) as (address, *_):
        code, printed, errors = run(*paths, *options("--scheduler", address))
    assert "cannot import veldrane_polarization; install the package there" in errors, errors
    assert code == 2 and errors.count("\n") == 1 and not printed, errors


def test_a_scheduler_without_workers_is_refused(tmp_path, paths):
    with loopback_cluster(tmp_path, ({},)) as (address, _, workers):
        workers[0].kill()
        workers[0].wait()
        code, printed, errors = run(*paths, *options("--scheduler", address, "--patience", 1))
    assert code == 2 and "no worker for 1 s; start dask-worker" in errors
    assert errors.count("\n") == 1 and not printed
