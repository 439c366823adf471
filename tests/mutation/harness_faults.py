"""Faults of the test harness itself: each would let a faulty library pass, or let a run end that has
compared too little. What a fault names has to notice it: the tests of tests/support and of
the plain call in tests/reduced, or the count that a test keeps of its own scenes, variants or calls."""

from dataclasses import dataclass
from pathlib import Path

from suite import DOES_NOT_END, UNCHANGED_LIMIT, first_failure, limit_from, run_program, timed_run


@dataclass(frozen=True)
class Fault:
    what: str
    file: str
    old: str
    new: str
    folder: str = "support"
    program: str = "support_test"
    tests: str = "*"
    # A test of the faulty file, which it takes as its argument; in the place of a program.
    script: str = ""

    def path(self, tree):
        return tree / "tests" / self.folder / self.file

    def command(self, suite):
        if self.script:
            return (suite.tree / "tests" / self.script, self.path(suite.tree))
        program = suite.program(self.program)
        return (program, "--gtest_brief=1", f"--gtest_filter={self.tests}")


def suite_of_equality(file, tests, what, old, new):
    return Fault(what, f"{file}_equality_test.cpp", old, new, "module", "equality_test", tests)


def test_of_variants(file, tests, what, old, new):
    return Fault(what, f"{file}_test.cpp", old, new, "variants", "variants_test", tests)


def long_run(what, old, new):
    return Fault(what, "long_equality", old, new, folder="", script="module/long_equality_test")


def opened_page(address):
    return f"mprotect({address}, page_, PROT_READ | PROT_WRITE);\n    close(file);"


FAULTS_OF_SUPPORT = [
    Fault(
        "both guards can be accessed", "guarded_pages.cpp", "PROT_NONE", "PROT_READ | PROT_WRITE"
    ),
    Fault(
        "the guard before the start is open",
        "guarded_pages.cpp",
        "close(file);",
        opened_page("guarded_ - page_"),
    ),
    Fault(
        "the guard behind the end is open",
        "guarded_pages.cpp",
        "close(file);",
        opened_page("guarded_ + size_"),
    ),
    Fault(
        "read-only memory can be written", "guarded_pages.cpp", "? PROT_READ : all", "? all : all"
    ),
    Fault(
        "buffers at the end are not flush",
        "guarded_pages.hpp",
        "? 0 : size_ - bytes",
        "? 0 : (size_ - bytes) / 64 * 64",
    ),
    Fault("buffers at the start are not flush", "guarded_pages.hpp", "? 0 :", "? 1 :"),
    Fault(
        "every buffer lies at the end",
        "guarded_pages.hpp",
        "edge == Edge::start ? 0 :",
        "edge == Edge::start && bytes == 0 ? 0 :",
    ),
    Fault(
        "the raw frame can be written",
        "guarded_frame.cpp",
        "raw_{2 * maximum_pixels, read_only}",
        "raw_{2 * maximum_pixels, read_write}",
    ),
    Fault(
        "the arguments can be written",
        "guarded_frame.cpp",
        "sizeof(Polarization_computation_arguments), read_only",
        "sizeof(Polarization_computation_arguments), read_write",
    ),
    Fault(
        "a matrix can be written",
        "guarded_frame.cpp",
        "{{sizeof(Matrix), read_only}",
        "{{sizeof(Matrix), read_write}",
    ),
    Fault(
        "the record of matrices can be written",
        "guarded_frame.cpp",
        "sizeof(Calibration_matrices), read_only",
        "sizeof(Calibration_matrices), read_write",
    ),
    Fault(
        "planes are laid at the start only",
        "guarded_frame.cpp",
        "planes_[index].guarded(bytes, edge)",
        "planes_[index].guarded(bytes, Edge::start)",
    ),
    Fault(
        "matrices are laid at the end only",
        "guarded_frame.cpp",
        "load_matrices(scene, edge);\n    load",
        "load_matrices(scene, Edge::end);\n    load",
    ),
    Fault(
        "arguments are laid at the start only",
        "guarded_frame.cpp",
        "load_arguments(scene, edge);\n}",
        "load_arguments(scene, Edge::start);\n}",
    ),
    Fault(
        "every plane is requested",
        "guarded_frame.cpp",
        "scene.wanted.has(plane) ? as<Element>(bytes.data()) : nullptr",
        "scene.wanted.has(plane) ? as<Element>(bytes.data()) : as<Element>(bytes.data())",
    ),
    Fault(
        "planes keep the contents of the call before",
        "guarded_frame.cpp",
        "fill_plane(loaded_[index], fill);",
        "",
    ),
    Fault(
        "the float plane of the call is not filled",
        "guarded_frame.cpp",
        "fill_plane(loaded_[index], fill);",
        "if (index != 0) {\n            fill_plane(loaded_[index], fill);\n        }",
    ),
    Fault(
        "the float plane has the same fill in both runs",
        "guarded_frame.cpp",
        "fill_plane(loaded_[index], fill);",
        "fill_plane(loaded_[index], index == 0 ? Fill::plain : fill);",
    ),
    Fault(
        "half of a plane is watched",
        "guarded_frame.cpp",
        "difference = 0;\n    for (std::size_t index = 0; index < plane.size() / 2;",
        "difference = 0;\n    for (std::size_t index = 0; index < plane.size() / 4;",
    ),
    Fault(
        "a written plane counts as untouched",
        "guarded_frame.cpp",
        "return difference == 0;",
        "return difference < 65536;",
    ),
    Fault(
        "one matrix serves two positions",
        "guarded_frame.cpp",
        "*guarded[2], *guarded[3]}",
        "*guarded[2], *guarded[2]}",
    ),
    Fault(
        "both fills are the same",
        "guarded_frame.hpp",
        "static_cast<std::uint16_t>(~plain)",
        "plain",
    ),
    Fault(
        "half of a plane is compared",
        "comparison.cpp",
        "actual.data(), expected.size()) == 0",
        "actual.data(), expected.size() / 2) == 0",
    ),
    Fault(
        "the float plane is not compared",
        "comparison.cpp",
        "return first_different_pair(width, expected, actual, nan_rule);",
        "return std::nullopt;",
    ),
    Fault(
        "differences in one direction are passed over",
        "comparison.cpp",
        "if (left != right) {",
        "if (left > right) {",
    ),
    Fault(
        "any NaN equals any number",
        "comparison.cpp",
        "std::isnan(std::bit_cast<float>(left)) &&",
        "std::isnan(std::bit_cast<float>(left)) ||",
    ),
    Fault(
        "NaNs are always equal", "comparison.cpp", "nan_rule == Nan_rule::any_nan_is_equal &&", ""
    ),
    Fault(
        "ratios are compared with a rule for NaNs that no scene asked for",
        "equality_checker.cpp",
        ": Nan_rule::exact_bits",
        ": Nan_rule::any_nan_is_equal",
    ),
    Fault(
        "a plane is left out",
        "equality_checker.cpp",
        "if (auto verdict = check_plane(scene, plane); !verdict)",
        "if (auto verdict = check_plane(scene, plane); !verdict && plane != Plane::dolp)",
    ),
    Fault(
        "the float plane is left out",
        "equality_checker.cpp",
        "if (auto verdict = check_plane(scene, plane); !verdict)",
        "if (auto verdict = check_plane(scene, plane); !verdict && plane != every_plane[0])",
    ),
    Fault(
        "planes that were not requested are not watched",
        "equality_checker.cpp",
        "if (frame_.is_untouched(plane))",
        "if (plane <= Plane::dolp)",
    ),
    Fault(
        "the result is not checked",
        "equality_checker.cpp",
        "if (result != 0)",
        "if (result > 65535)",
    ),
    Fault(
        "the control word is not checked",
        "equality_checker.cpp",
        "(_mm_getcsr() & ~exception_flags) != control",
        "control == 1",
    ),
    Fault(
        "only one edge is run",
        "equality_checker.cpp",
        "for (Edge const edge : both_edges)",
        "for (Edge const edge : {Edge::end})",
    ),
    Fault(
        "both runs start from the same fill",
        "equality_checker.cpp",
        "edge == Edge::end ? Fill::plain : Fill::inverted",
        "Fill::plain",
    ),
    Fault(
        "unwritten floats are expected to hold the fill of the other run",
        "equality_checker.cpp",
        "fill_unwritten_floats(scene, fill);",
        "fill_unwritten_floats(scene, Fill::plain);",
    ),
    Fault("calls are not counted", "equality_checker.cpp", "        ++calls_;\n", ""),
    Fault(
        "the calls of the process are not counted",
        "equality_checker.cpp",
        "        ++all_calls;\n",
        "",
    ),
    Fault(
        "the expectation starts from another fill",
        "equality_checker.cpp",
        "scene.pixels()}, Fill::plain);",
        "scene.pixels()}, Fill::inverted);",
    ),
    Fault(
        "the expectation of one plane goes to another",
        "equality_checker.cpp",
        "Plane::s2, expected_[3])",
        "Plane::s2, expected_[2])",
    ),
    Fault(
        "a fault does not name its scene",
        "equality_checker.cpp",
        "    Fault_report const report{scene};\n",
        "",
    ),
    Fault(
        "an untouched plane is not watched in single results",
        "planes.cpp",
        "EXPECT_TRUE(frame.is_untouched(plane))",
        "EXPECT_TRUE(scene.pixels() > 0)",
    ),
    Fault(
        "single results may depend on the former contents",
        "planes.cpp",
        ": at_end[index] == at_start[index])",
        ": at_end[index] == at_end[index])",
    ),
    Fault(
        "single floats may depend on the former contents",
        "planes.cpp",
        "if (left != right && !is_untouched)",
        "if (left != right && left == right)",
    ),
    Fault(
        "single results are compared by value",
        "planes.hpp",
        "std::ranges::equal(bits(), other.bits())",
        "elements == other.elements",
    ),
    Fault(
        "half of a single result is compared",
        "planes.hpp",
        "equal(bits(), other.bits())",
        "equal(bits().first(8), other.bits().first(8))",
    ),
    Fault("row 3 of a matrix holds no NaN", "matrices.cpp", "matrix[12 + sample] = quiet_nan;", ""),
    Fault(
        "the matrices of phase 2 are those of phase 0",
        "matrices.cpp",
        "return {{3, 0}, {1, 2}};",
        "return {{0, 3}, {2, 1}};",
    ),
    Fault(
        "weights are never peculiar", "matrices.cpp", "random.below(3) == 0", "random.below(3) == 3"
    ),
    Fault(
        "every seed gives the same samples",
        "samples.cpp",
        "Random_stream random{seed};",
        "Random_stream random{seed * 0};",
    ),
    Fault(
        "extremes are all zero", "samples.cpp", "random.below(2) == 0 ?", "random.below(2) < 2 ?"
    ),
    Fault(
        "a round may make few calls",
        "equality_checker.hpp",
        "least_calls_of_a_round{400'000}",
        "least_calls_of_a_round{4}",
    ),
    Fault(
        "the number of calls is not checked",
        "equality_checker.cpp",
        "if (volume.is_whole_run) {",
        "if (volume.is_whole_run && volume.calls == 0) {",
    ),
    Fault(
        "all rounds together may make the calls of one",
        "equality_checker.cpp",
        "least_calls_of_a_round * volume.rounds",
        "least_calls_of_a_round",
    ),
    Fault(
        "a plain call equals the reference whatever differs",
        "plain_call.cpp",
        "if (auto const difference = expected.difference_from(actual, scene)) {",
        "if (auto const difference = expected.difference_from(expected, scene)) {",
        folder="reduced",
    ),
    Fault(
        "a plain call's float plane is left out",
        "plain_call.cpp",
        "if (scene.wanted.has(plane)) {\n            auto const difference",
        "if (scene.wanted.has(plane) && plane != Plane::normalized_stokes) {\n"
        "            auto const difference",
        folder="reduced",
    ),
    Fault(
        "a plain call's last plane is left out",
        "plain_call.cpp",
        "if (scene.wanted.has(plane)) {\n            auto const difference",
        "if (scene.wanted.has(plane) && plane != Plane::dolp) {\n"
        "            auto const difference",
        folder="reduced",
    ),
    Fault(
        "half of a plain call's planes is compared",
        "plain_call.cpp",
        "integer_planes_[index].get(), pixels}",
        "integer_planes_[index].get(), pixels / 2}",
        folder="reduced",
    ),
    Fault(
        "the result of a plain call is not checked",
        "plain_call.cpp",
        "if (result != 0)",
        "if (result > 65535)",
        folder="reduced",
    ),
    Fault(
        "a plain call takes any NaN for another",
        "plain_call.cpp",
        ": support::Nan_rule::exact_bits",
        ": support::Nan_rule::any_nan_is_equal",
        folder="reduced",
    ),
]

# The expected number stands in the test, so that only its comparison with what ran can notice.
FAULTS_OF_COUNTS = [
    Fault(
        "the equality tests lose count of their calls",
        "equality_checker.cpp",
        "        ++all_calls;\n",
        "",
        program="equality_test",
    ),
    suite_of_equality(
        "every_leaf",
        "*Every_leaf_of_phase*/0",
        "a frame of the leaves is left out",
        ": frames)",
        ": std::span{frames}.first(7))",
    ),
    suite_of_equality(
        "every_leaf",
        "*Every_leaf_of_phase*/0",
        "a set of planes is left out",
        "unsigned set = 0;",
        "unsigned set = 1;",
    ),
    suite_of_equality(
        "every_geometry",
        "*Every_geometry_in_phase*/0",
        "a height is left out",
        "height <= 9",
        "height <= 8",
    ),
    suite_of_equality(
        "every_scale",
        "*Every_scale_in_phase*/0",
        "a full scale is left out",
        ": maximum_output_values)",
        ": std::span{maximum_output_values}.first(9))",
    ),
    suite_of_equality(
        "rounding_mode",
        "*Rounding_mode*/0",
        "a phase is left out of a rounding mode",
        "phase < 4; ++phase",
        "phase < 3; ++phase",
    ),
    suite_of_equality(
        "large_frame",
        "*2_by_4096*/0",
        "a kind of matrices is left out",
        ": every_matrix_kind)",
        ": std::span{every_matrix_kind}.first(2))",
    ),
    test_of_variants(
        "variant_set",
        "*every_output_set*",
        "a set of planes writes unseen",
        "bits = 1; bits",
        "bits = 2; bits",
    ),
    test_of_variants(
        "variant_set",
        "*one_plane_more*",
        "a pair of sets is left out",
        "smaller != 0",
        "smaller > 1",
    ),
    test_of_variants(
        "variant_reads", "*", "a phase is left out of what variants read", "phase < 4", "phase < 3"
    ),
    test_of_variants(
        "variant_reads",
        "*that_its_planes_need",
        "a needed row is left out",
        "if (needs_row({bits}, row))",
        "if (row != 0 && needs_row({bits}, row))",
    ),
    long_run(
        "the long run makes a thousandth of its calls", "least_calls=7000000", "least_calls=7000"
    ),
    long_run("the long run ends after a round", "|| calls < least_calls", ""),
    long_run("the long run takes a round without calls", "${of_round:-0} -gt 0", "1 -gt 0"),
    long_run(
        "the long run passes over a round that fails", 'fail "round $round', 'echo "round $round'
    ),
    long_run(
        "the long run counts no round before an interruption",
        "calls=$((first_round * of_round))",
        "calls=0",
    ),
]

FAULTS = FAULTS_OF_SUPPORT + FAULTS_OF_COUNTS
FAULTY_FILES = sorted({fault.path(Path()) for fault in FAULTS})


def outcome(suite, fault, limit):
    """(whether the fault was noticed, by what)"""
    path = fault.path(suite.tree)
    original = path.read_text()
    if original.count(fault.old) == 0:
        return False, "the text to change is not there any more"
    path.write_text(original.replace(fault.old, fault.new, 1))
    try:
        # A script's fault changes no program: the build finds nothing to do.
        built = suite.ninja(fault.program, check=False)
        if built.returncode != 0:
            errors = [line for line in built.stdout.splitlines() if "error" in line]
            return False, f"does not compile: {(errors or ['?'])[0]}"
        result, output = run_program(fault.command(suite), limit)
    finally:
        path.write_text(original)
    if result in (0, None):
        return False, "" if result == 0 else DOES_NOT_END
    return True, first_failure(output, result)


def limits_of_unchanged(suite):
    """The time limit of each command, or None if one fails although nothing is changed."""
    limits = {}
    for command in {fault.command(suite) for fault in FAULTS}:
        result, output, seconds = timed_run(command, UNCHANGED_LIMIT)
        if result != 0:
            print(f"the tests of the unchanged harness fail: {first_failure(output, result)}")
            return None
        limits[command] = limit_from(seconds)
    return limits


def run_all(suite):
    suite.build_programs()
    suite.ninja(*{fault.program for fault in FAULTS})
    limits = limits_of_unchanged(suite)
    if limits is None:
        return False
    noticed = 0
    for fault in FAULTS:
        was_noticed, by = outcome(suite, fault, limits[fault.command(suite)])
        noticed += was_noticed
        print(f"{'noticed' if was_noticed else 'NOT NOTICED'}: {fault.what}: {by}", flush=True)
    print(f"{noticed} of {len(FAULTS)} faults of the harness noticed")
    return noticed == len(FAULTS)
