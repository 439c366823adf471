"""Which part of the package may know of which: arrows point one way."""

from __future__ import annotations

import ast
import graphlib
from pathlib import Path

import veldrane_polarization as vp

PACKAGE = Path(vp.__file__).parent
ALLOWED = {"_recordings": {""}, "batch": {"", "_recordings"}, "": set()}


def name_of(file):
    parts = file.relative_to(PACKAGE).with_suffix("").parts
    return ".".join(parts[:-1] if parts[-1] == "__init__" else parts)


MODULES = {name_of(file): file for file in PACKAGE.rglob("*.py")}


def imported_by(name):
    """Modules of the package, also those that a function imports."""
    package = MODULES[name].relative_to(PACKAGE).parent.parts
    for node in ast.walk(ast.parse(MODULES[name].read_text())):
        if isinstance(node, ast.ImportFrom) and node.level:
            start = [*package[: len(package) + 1 - node.level], *(node.module or "").split(".")]
            place = ".".join(filter(None, start))
            for each in node.names:
                inner = f"{place}.{each.name}".lstrip(".")
                # Every module imports the package that it is in; that is no arrow.
                yield inner if inner in MODULES else place


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
        assert known <= ALLOWED[room_of(name)], name
