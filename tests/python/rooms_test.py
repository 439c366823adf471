"""Which part of the package may know of which: arrows point one way."""

from __future__ import annotations

import ast
import graphlib
from pathlib import Path

import veldrane_polarization as vp

PACKAGE = Path(vp.__file__).parent
ALLOWED = {
    "_recordings": {""},
    "_lazy": {"", "_recordings"},
    "batch": {"", "_recordings"},
    "": set(),
}
# What users import comes from everywhere but the program of the batch.
FACADE = {"_recordings", "_lazy"}


def name_of(file):
    parts = file.relative_to(PACKAGE).with_suffix("").parts
    return ".".join(parts[:-1] if parts[-1] == "__init__" else parts)


MODULES = {name_of(file): file for file in PACKAGE.rglob("*.py")}


def imported_by(name):
    """Modules of the package, also those that a function imports."""
    package = (PACKAGE.name, *MODULES[name].relative_to(PACKAGE).parent.parts)
    yield from imported_in(MODULES[name].read_text(), package)


def imported_in(text, package):
    for node in ast.walk(ast.parse(text)):
        if isinstance(node, ast.Import):
            named = [each.name for each in node.names]
        elif isinstance(node, ast.ImportFrom):
            start = package[: len(package) + 1 - node.level] if node.level else ()
            place = ".".join(filter(None, (*start, node.module)))
            named = [f"{place}.{each.name}" for each in node.names]
        else:
            continue
        for each in named:
            top, _, inner = each.partition(".")
            if top == PACKAGE.name:
                # Every module imports the package that it is in; that is no arrow.
                yield inner if inner in MODULES else inner.rpartition(".")[0]


def room_of(name):
    room = name.partition(".")[0]
    return room if (PACKAGE / room).is_dir() else ""


def test_no_module_leads_back_to_itself():
    arrows = {name: set(imported_by(name)) - {""} for name in MODULES}
    assert sum(map(len, arrows.values())) > 40
    graphlib.TopologicalSorter(arrows).prepare()


def test_rooms_know_only_those_below_them():
    for name in MODULES:
        known = {room_of(each) for each in imported_by(name)} - {room_of(name)}
        assert known <= (ALLOWED[room_of(name)] if name else FACADE), name


def test_both_ways_to_import_count():
    for line in (
        "from ..batch import line",
        "from ..batch.line import Text",
        "import veldrane_polarization.batch.line",
        "from veldrane_polarization.batch import line",
        "def late():\n    from veldrane_polarization.batch.line import Text",
    ):
        found = list(imported_in(line, (PACKAGE.name, "_recordings")))
        assert found == ["batch.line"], line
    assert not list(imported_in("import numpy\nfrom zarr import Array", (PACKAGE.name,)))
