"""The library with the chosen variants alone, compiled anew for one mutant in a few seconds."""

import os
import re
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path

HERE = Path(__file__).resolve().parent
LIBRARY = "libveldrane_mrv_polarization_processor_vector_avx2.so"

COMMON = ["-std=c++20", "-fPIC", "-O1", "-DNDEBUG"]
# As the library is built: these decide bits.
PIXEL_CODE = ["-mavx2", "-mfma", "-ffp-contract=off", "-frounding-math"]
# As developers build: a mutant that these refuse never reaches a test.
WARNINGS = ["-O2", "-Wall", "-Wextra", "-Wconversion", "-Wsign-conversion", "-Wshadow", "-Werror"]
LATER_PHASES = re.compile(r"walk_phase_[1-9]")


class Does_not_compile(Exception):
    pass


class Reduced_library:
    """A copy of the sources with objects of its own. Not for use by two threads at once."""

    def __init__(self, project, folder, compiler):
        self.compiler = compiler
        self.folder = folder
        self.sources = folder / "src"
        self.library = folder / LIBRARY
        shutil.rmtree(folder, ignore_errors=True)
        shutil.copytree(project / "src", self.sources)
        folders = (HERE / "selection", project / "include", self.sources, HERE.parent)
        self.includes = [f"-I{folder}" for folder in folders]
        self.units = self.find_units()
        self.objects = {}
        self.dependencies = {}
        self.whole_pixel_code = []
        self.is_whole = False

    def find_units(self):
        """Translation units by name: (file, flags). The later phases share one, and so one reading
        of the headers."""
        files = sorted(self.sources.glob("*/*.cpp"))
        later = [file for file in files if LATER_PHASES.match(file.stem)]
        units = {}
        for file in files:
            if file not in later:
                flags = [] if file.parent.name == "module" else PIXEL_CODE
                units[f"{file.parent.name}_{file.stem}"] = (file, flags)
        shared = self.folder / "later_phases.cpp"
        shared.write_text("".join(f'#include "{file}"\n' for file in later))
        units["later_phases"] = (shared, PIXEL_CODE)
        return units

    def compile(self, name, target, more_flags=("-w", "-MMD")):
        file, flags = self.units[name]
        command = [self.compiler, *COMMON, *flags, *self.includes, *more_flags, "-c", file]
        command += ["-o", target]
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=300)
        except subprocess.TimeoutExpired:
            raise Does_not_compile(f"{name}: the compiler does not end") from None
        if done.returncode != 0:
            errors = [line for line in done.stderr.splitlines() if "error" in line]
            raise Does_not_compile(f"{name}: {(errors or [done.stderr])[0]}")

    def link(self, objects):
        command = [
            self.compiler,
            "-shared",
            *objects,
            "-o",
            self.library,
            "-ldl",
            f"-Wl,-soname,{LIBRARY}",
            "-Wl,-Bsymbolic",
            "-Wl,-z,lazy",
            "-Wl,--unresolved-symbols=ignore-all",
            f"-Wl,--version-script={self.sources}/module/exports.map",
        ]
        # The old file may be mapped by a program that still runs.
        self.library.unlink(missing_ok=True)
        subprocess.run(command, check=True, capture_output=True)

    def build_unchanged(self, jobs=1):
        def build(name):
            target = self.folder / f"{name}.o"
            self.compile(name, target)
            listed = target.with_suffix(".d").read_text().replace("\\\n", " ").split()
            self.dependencies[name] = {os.path.realpath(file) for file in listed[1:]}
            self.objects[name] = target

        with ThreadPoolExecutor(jobs) as pool:
            list(pool.map(build, self.units))
        self.link(self.objects.values())

    def share_objects(self, other):
        """Takes over the objects of another copy."""

        def here(file):
            return file.replace(str(other.folder.resolve()), str(self.folder.resolve()))

        self.objects = other.objects
        self.dependencies = {
            name: {here(file) for file in files} for name, files in other.dependencies.items()
        }

    @contextmanager
    def mutated(self, mutant):
        """Puts the mutant into the sources for a while; gives the units that read its file."""
        path = self.sources / mutant.file
        original = path.read_text()
        path.write_text(mutant.apply(original))
        try:
            real = os.path.realpath(path)
            yield [name for name in self.objects if real in self.dependencies[name]]
        finally:
            path.write_text(original)

    def link_whole(self, objects):
        """Links the module's objects with every variant of `whole_pixel_code`."""
        module = [file for name, file in objects.items() if name.startswith("module_")]
        self.link([*module, *self.whole_pixel_code])

    def warning_for(self, mutant):
        """What the compiler warns of in the mutant, or None."""
        with self.mutated(mutant) as dependents:
            for name in dependents:
                try:
                    self.compile(name, "/dev/null", WARNINGS)
                except Does_not_compile as refusal:
                    return str(refusal)
        return None

    def build_mutant(self, mutant):
        """Builds the library with the mutant in it. Returns whether any object changed. If only the
        module's did, the library has every variant, provided that `whole_pixel_code` is set."""
        objects = dict(self.objects)
        with self.mutated(mutant) as dependents:
            for name in dependents:
                objects[name] = self.folder / f"{name}.mutant.o"
                self.compile(name, objects[name])
        changed = [
            name
            for name in objects
            if objects[name].read_bytes() != self.objects[name].read_bytes()
        ]
        in_module = {name for name in objects if name.startswith("module_")}
        self.is_whole = bool(self.whole_pixel_code) and set(changed) <= in_module
        if self.is_whole:
            self.link_whole(objects)
        else:
            self.link(objects.values())
        return bool(changed)
