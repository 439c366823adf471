"""The test programs of the project, built once, run against the library of a mutant."""

import os
import shutil
import subprocess
import sys
import threading
import time

from reduced_library import LIBRARY

PROGRAMS = {
    "quartet": ["quartet_test", "border_test", "module_test", "variants_test", "kernel_test"],
    "kernel": ["kernel_test", "variants_test", "module_test", "quartet_test"],
    "border": ["border_test", "module_test", "variants_test", "kernel_test"],
    "variants": ["variants_test", "kernel_test", "module_test"],
    "module": ["lifecycle_test", "module_test", "variants_test"],
}
# Each program once, in an order that stays the same.
EVERY_PROGRAM = sorted({program for names in PROGRAMS.values() for program in names})
NOT_COPIED = shutil.ignore_patterns(".git", "build", "out", "__pycache__")
UNCHANGED_LIMIT = 1800
# A run may take so many times the seconds of the one with the unchanged sources, or these seconds:
# an equivalent mutant must not run out of time because the machine has other work.
LEAST_LIMIT = 60
LIMIT_FACTOR = 20

# What became of a mutant.
KILLED = "killed by a test"
DOES_NOT_END = "does not end"
WARNED_OF = "warned of"
SURVIVED = "survived"
DOES_NOT_COMPILE = "does not compile"


def limit_from(seconds):
    return max(LEAST_LIMIT, LIMIT_FACTOR * seconds)


def run_program(command, time_limit, environment=None):
    """Runs a program in a process group of its own. Returns its result code, None for none in time, and
    its output."""
    process = subprocess.Popen(
        list(map(str, command)),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        errors="replace",
        start_new_session=True,
        env={**os.environ, **(environment or {})},
    )
    try:
        output, _ = process.communicate(timeout=time_limit)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        # With whatever it started itself.
        os.killpg(process.pid, 9)
        output, _ = process.communicate()
        return None, output


def timed_run(command, time_limit):
    """As `run_program`, and the seconds that it took."""
    begin = time.monotonic()
    result, output = run_program(command, time_limit)
    return result, output, time.monotonic() - begin


def verdict(result, what):
    """What a run that did not pass does to a mutant."""
    return (DOES_NOT_END if result is None else KILLED), what


class Suite:
    """A copy of the project with a build of its own: the library file in it is replaced by the
    mutants' one after another, which the developer's own build must never see."""

    def __init__(self, project, folder, compiler, jobs):
        self.tree = folder / "tree"
        self.build = folder / "suite"
        self.lock = threading.Lock()
        self.usable = {}
        self.limits = {}
        self.jobs = jobs
        self.copy(project)
        self.configure(compiler)

    def copy(self, project):
        shutil.rmtree(self.tree, ignore_errors=True)
        # With the files' times, so that only what was edited is compiled again.
        shutil.copytree(project, self.tree, ignore=NOT_COPIED)

    def configure(self, compiler):
        command = ["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja"]
        options = [
            "CMAKE_BUILD_TYPE=Release",
            "VELDRANE_BUILD_TESTS=ON",
            "VELDRANE_BUILD_CLIENT=OFF",
            "VELDRANE_BUILD_TOOLS=OFF",
        ]
        done = subprocess.run(
            command + [f"-D{option}" for option in options],
            capture_output=True,
            text=True,
            env={**os.environ, "CXX": compiler},
        )
        if done.returncode != 0:
            sys.exit(f"the project cannot be configured: {done.stderr}")

    def ninja(self, *targets):
        command = ["ninja", "-C", self.build, f"-j{self.jobs}", *targets]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"the test programs cannot be built:\n{done.stdout}{done.stderr}")

    def program(self, name):
        return next(path for path in self.build.rglob(name) if path.is_file())

    def build_programs(self):
        """Builds the programs against the unchanged library."""
        (self.build / "src" / LIBRARY).unlink(missing_ok=True)
        self.ninja("difference_finder", *EVERY_PROGRAM)

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
        for name in EVERY_PROGRAM:
            tests = list(self.tests_of(name))
            self.usable[name] = ":".join(
                test for test in tests if self.run(name, test, UNCHANGED_LIMIT)[0] == 0
            )
            self.require_to_pass(name, self.usable[name])
            count = self.usable[name].count(":") + 1 if self.usable[name] else 0
            print(f"{name}: {count} of {len(tests)} tests usable", flush=True)

    def require_whole_to_pass(self, library):
        """Where only the module's objects differ, mutants are linked with every variant and judged by
        whole programs: these have to pass with the same composite of unchanged objects."""
        self.install(library)
        for name in EVERY_PROGRAM:
            self.require_to_pass(name, "*")
        print(
            f"unchanged module with every variant: {len(EVERY_PROGRAM)} programs pass", flush=True
        )

    def require_to_pass(self, name, tests):
        """Ends the run if tests fail with an unchanged library; else their time sets their limit."""
        result, output, seconds = timed_run(self.command(name, tests), UNCHANGED_LIMIT)
        if result != 0:
            sys.exit(f"{name} fails with an unchanged library: {first_failure(output, result)}")
        self.limits[name, tests] = limit_from(seconds)

    def tests_of(self, name):
        _, output = run_program([self.program(name), "--gtest_list_tests"], UNCHANGED_LIMIT)
        group = ""
        for line in output.splitlines():
            word = line.split("#")[0].strip()
            if not line.startswith(" ") and word.endswith("."):
                group = word
            elif line.startswith("  "):
                yield group + word

    def command(self, name, tests):
        return [self.program(name), "--gtest_brief=1", f"--gtest_filter={tests}"]

    def run(self, name, tests, time_limit):
        return run_program(self.command(name, tests), time_limit)

    def verdict_of_tests(self, folder, library, is_whole):
        """What the tests do to the library: (fate, name of a test), or None if all pass."""
        with self.lock:
            self.install(library)
            for name in PROGRAMS[folder]:
                tests = "*" if is_whole else self.usable[name]
                result, output = self.run(name, tests, self.limits[name, tests])
                if result != 0:
                    return verdict(result, f"{name} {first_failure(output, result)}")
        return None


def first_failure(output, result):
    for line in output.splitlines():
        if line.startswith("[  FAILED  ]"):
            return line.split("]")[1].split(",")[0].split("(")[0].strip()
    return DOES_NOT_END if result is None else f"ends with {result}"
