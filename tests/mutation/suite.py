"""The test programs of the project, built once, run against the library of a mutant."""

import os
import shutil
import subprocess
import sys
import threading

from reduced_library import LIBRARY

PROGRAMS = {
    "quartet": ["quartet_test", "border_test", "module_test", "variants_test", "kernel_test"],
    "kernel": ["kernel_test", "variants_test", "module_test", "quartet_test"],
    "border": ["border_test", "module_test", "variants_test", "kernel_test"],
    "variants": ["variants_test", "kernel_test", "module_test"],
    "module": ["lifecycle_test", "module_test", "variants_test"],
}
NOT_COPIED = shutil.ignore_patterns(".git", "build", "out", "__pycache__")
TIME_LIMIT = 120


def run_program(command, time_limit, environment=None):
    """Runs a program in a process group of its own. Returns its result code, None for none in time, and
    its output."""
    process = subprocess.Popen(
        list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
        errors="replace", start_new_session=True, env={**os.environ, **(environment or {})},
    )
    try:
        output, _ = process.communicate(timeout=time_limit)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        # With whatever it started itself.
        os.killpg(process.pid, 9)
        output, _ = process.communicate()
        return None, output


class Suite:
    """A copy of the project with a build of its own: the library file in it is replaced by the
    mutants' one after another, which the developer's own build must never see."""

    def __init__(self, project, folder, compiler, jobs):
        self.tree = folder / "tree"
        self.build = folder / "suite"
        self.lock = threading.Lock()
        self.usable = {}
        self.jobs = jobs
        self.copy(project)
        self.configure(compiler)

    def copy(self, project):
        shutil.rmtree(self.tree, ignore_errors=True)
        # With the files' times, so that only what was edited is compiled again.
        shutil.copytree(project, self.tree, ignore=NOT_COPIED)
        # The last run may have left objects with a fault behind, newer than the files.
        for folder in ("support", "reduced"):
            for file in (self.tree / "tests" / folder).iterdir():
                file.touch()

    def configure(self, compiler):
        command = ["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja"]
        options = [
            "CMAKE_BUILD_TYPE=Release",
            "VELDRANE_BUILD_TESTS=ON",
            "VELDRANE_BUILD_CLIENT=OFF",
            "VELDRANE_BUILD_TOOLS=OFF",
        ]
        done = subprocess.run(
            command + [f"-D{option}" for option in options], capture_output=True, text=True,
            env={**os.environ, "CXX": compiler},
        )
        if done.returncode != 0:
            sys.exit(f"the project cannot be configured: {done.stderr}")

    def ninja(self, *targets, check=True):
        command = ["ninja", "-C", self.build, f"-j{self.jobs}", *targets]
        done = subprocess.run(command, capture_output=True, text=True)
        if check and done.returncode != 0:
            sys.exit(f"the test programs cannot be built:\n{done.stdout}{done.stderr}")
        return done

    def program(self, name):
        return next(path for path in self.build.rglob(name) if path.is_file())

    def build_programs(self):
        """Builds the programs against the unchanged library."""
        (self.build / "src" / LIBRARY).unlink(missing_ok=True)
        programs = {program for names in PROGRAMS.values() for program in names}
        self.ninja("difference_finder", *programs)

    def pixel_code_objects(self):
        """Of the unchanged library, with every variant."""
        objects = (self.build / "src").rglob("*.o")
        module = self.build / "src" / "module"
        return [path for path in objects if module not in path.parents]

    def install(self, library):
        target = self.build / "src" / LIBRARY
        target.unlink(missing_ok=True)
        shutil.copyfile(library, target)

    def find_usable_tests(self, library):
        """Tests that pass with the reduced library: the others call variants that it leaves out."""
        self.install(library)
        for name in {program for names in PROGRAMS.values() for program in names}:
            tests = list(self.tests_of(name))
            self.usable[name] = [
                test for test in tests if self.run(name, test, TIME_LIMIT)[0] == 0
            ]
            print(f"{name}: {len(self.usable[name])} of {len(tests)} tests usable", flush=True)

    def tests_of(self, name):
        _, output = run_program([self.program(name), "--gtest_list_tests"], TIME_LIMIT)
        group = ""
        for line in output.splitlines():
            word = line.split("#")[0].strip()
            if not line.startswith(" ") and word.endswith("."):
                group = word
            elif line.startswith("  "):
                yield group + word

    def run(self, name, tests, time_limit):
        return run_program(
            [self.program(name), "--gtest_brief=1", f"--gtest_filter={tests}"], time_limit
        )

    def killing_test(self, folder, library, is_whole):
        """The name of a test that fails with the library, or None."""
        with self.lock:
            self.install(library)
            for name in PROGRAMS[folder]:
                tests = "*" if is_whole else ":".join(self.usable[name])
                result, output = self.run(name, tests, TIME_LIMIT)
                if result != 0:
                    return f"{name} {first_failure(output, result)}"
        return None


def first_failure(output, result):
    for line in output.splitlines():
        if line.startswith("[  FAILED  ]"):
            return line.split("]")[1].split(",")[0].split("(")[0].strip()
    return "does not end" if result is None else f"ends with {result}"
