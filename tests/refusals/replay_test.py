"""The replay itself: a program that breaks one of its rules is noticed, one that keeps them is not."""

from __future__ import annotations

import corpus
import program_cases
import pytest

GOOD = 'printf "veldrane-polarize: --phase is 9; give 0 to 3\\n" >&2; exit 2'

FAULTS = {
    "exit code 0, not 2": GOOD.replace("exit 2", "exit 0"),
    "exit code -6, not 2": GOOD.replace("exit 2", "kill -ABRT $$"),
    "2 lines": GOOD.replace("3\\n", "3\\nmore\\n"),
    "no line": "exit 2",
    "a library's 'std::'": GOOD.replace("0 to 3", "std::out_of_range"),
    "control characters": GOOD.replace("0 to 3", "\\033[31m"),
    "no name of the program": GOOD.replace("veldrane-polarize: ", ""),
    "does not say '--phase or 9'": GOOD.replace("--phase is 9; give 0 to 3", "this is wrong"),
    "standard output": "echo word; " + GOOD,
    "removed 'files/left'": "echo word > left; " + GOOD,
    "removed 'files/frame.png'": "echo word > frame.png; " + GOOD,
    "removed 'tmp/left'": 'echo word > "$TMPDIR/left"; ' + GOOD,
}


@pytest.fixture
def faults_of(tmp_path):
    def run(script: str) -> list[str]:
        program = tmp_path / "program"
        program.write_text("#!/bin/sh\n" + script + "\n")
        program.chmod(0o755)
        (tmp_path / "files").mkdir()
        (tmp_path / "files" / "frame.png").write_text("a frame")
        case = corpus.Case("corpus:1", 2, ("process", "--phase", "9"), ("--phase", "9"), "")
        return program_cases.replay(str(program), tmp_path, [case])

    return run


def test_a_program_that_refuses_as_it_should_has_no_fault(faults_of):
    assert faults_of(GOOD) == []


@pytest.mark.parametrize("fault", FAULTS)
def test_a_fault_is_noticed(faults_of, fault):
    found = faults_of(FAULTS[fault])
    assert len(found) >= 1 and any(fault in each for each in found), found


def test_the_corpus_is_as_large_as_the_documentation_says():
    sizes = [
        len(corpus.load("command_lines.txt")) + len(corpus.load("view_lines.txt")),
        len(corpus.calls("package_calls.txt")),
        len(corpus.load("batch_lines.txt")),
    ]
    print(f"{sizes} cases")
    told = (corpus.HERE.parents[1] / "docs" / "testing.md").read_text()
    assert "{} command lines of the program, {} calls of the package, {} command lines".format(
        *sizes
    ) in " ".join(told.split())
