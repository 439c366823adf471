"""Faults of the test harness itself: each would let a faulty library pass. The tests of
tests/support and of the plain call in tests/reduced have to notice every one."""

from dataclasses import dataclass

from suite import first_failure, run_program

TIME_LIMIT = 300
PROGRAM = "support_test"


@dataclass(frozen=True)
class Fault:
    what: str
    file: str  # seen from tests/support
    old: str
    new: str


def opened_page(address):
    return f"mprotect({address}, page_, PROT_READ | PROT_WRITE);\n    close(file);"


FAULTS = [
    Fault("both guards can be accessed", "guarded_pages.cpp", "PROT_NONE",
          "PROT_READ | PROT_WRITE"),
    Fault("the guard before the start is open", "guarded_pages.cpp", "close(file);",
          opened_page("guarded_ - page_")),
    Fault("the guard behind the end is open", "guarded_pages.cpp", "close(file);",
          opened_page("guarded_ + size_")),
    Fault("read-only memory can be written", "guarded_pages.cpp", "? PROT_READ : all",
          "? all : all"),
    Fault("buffers at the end are not flush", "guarded_pages.hpp", "? 0 : size_ - bytes",
          "? 0 : (size_ - bytes) / 64 * 64"),
    Fault("buffers at the start are not flush", "guarded_pages.hpp", "? 0 :", "? 1 :"),
    Fault("every buffer lies at the end", "guarded_pages.hpp", "edge == Edge::start ? 0 :",
          "edge == Edge::start && bytes == 0 ? 0 :"),
    Fault("the raw frame can be written", "guarded_frame.cpp",
          "raw_{2 * maximum_pixels, read_only}",
          "raw_{2 * maximum_pixels, read_write}"),
    Fault("the arguments can be written", "guarded_frame.cpp",
          "sizeof(Polarization_computation_arguments), read_only",
          "sizeof(Polarization_computation_arguments), read_write"),
    Fault("a matrix can be written", "guarded_frame.cpp", "{{sizeof(Matrix), read_only}",
          "{{sizeof(Matrix), read_write}"),
    Fault("planes are laid at the start only", "guarded_frame.cpp",
          "planes_[index].guarded(bytes, edge)", "planes_[index].guarded(bytes, Edge::start)"),
    Fault("matrices are laid at the end only", "guarded_frame.cpp",
          "load_matrices(scene, edge);\n    load", "load_matrices(scene, Edge::end);\n    load"),
    Fault("arguments are laid at the start only", "guarded_frame.cpp",
          "load_arguments(scene, edge);\n}", "load_arguments(scene, Edge::start);\n}"),
    Fault("every plane is requested", "guarded_frame.cpp",
          "scene.wanted.has(plane) ? as<Element>(bytes.data()) : nullptr",
          "scene.wanted.has(plane) ? as<Element>(bytes.data()) : as<Element>(bytes.data())"),
    Fault("planes keep the contents of the call before", "guarded_frame.cpp",
          "fill_plane(loaded_[index], fill_of(plane));", ""),
    Fault("the float plane of the call is not filled", "guarded_frame.cpp",
          "fill_plane(loaded_[index], fill_of(plane));",
          "if (index != 0) {\n            fill_plane(loaded_[index], fill_of(plane));\n        }"),
    Fault("half of a plane is watched", "guarded_frame.cpp",
          "difference = 0;\n    for (std::size_t index = 0; index < plane.size() / 2;",
          "difference = 0;\n    for (std::size_t index = 0; index < plane.size() / 4;"),
    Fault("a written plane counts as untouched", "guarded_frame.cpp", "return difference == 0;",
          "return difference < 65536;"),
    Fault("one matrix serves two positions", "guarded_frame.cpp", "*guarded[2], *guarded[3]}",
          "*guarded[2], *guarded[2]}"),
    Fault("both fills are the same", "guarded_frame.hpp",
          "static_cast<std::uint16_t>(~plain)", "plain"),
    Fault("half of a plane is compared", "comparison.cpp",
          "actual.data(), expected.size()) == 0", "actual.data(), expected.size() / 2) == 0"),
    Fault("the float plane is not compared", "comparison.cpp",
          "return first_different_pair(width, expected, actual, nan_rule);",
          "return std::nullopt;"),
    Fault("differences in one direction are passed over", "comparison.cpp",
          "if (left != right) {", "if (left > right) {"),
    Fault("any NaN equals any number", "comparison.cpp",
          "std::isnan(std::bit_cast<float>(left)) &&",
          "std::isnan(std::bit_cast<float>(left)) ||"),
    Fault("NaNs are always equal", "comparison.cpp",
          "nan_rule == Nan_rule::any_nan_is_equal &&", ""),
    Fault("ratios are compared with a rule for NaNs that no scene asked for",
          "equality_checker.cpp", ": Nan_rule::exact_bits", ": Nan_rule::any_nan_is_equal"),
    Fault("a plane is left out", "equality_checker.cpp",
          "if (auto verdict = check_plane(scene, plane); !verdict)",
          "if (auto verdict = check_plane(scene, plane); !verdict && plane != Plane::dolp)"),
    Fault("the float plane is left out", "equality_checker.cpp",
          "if (auto verdict = check_plane(scene, plane); !verdict)",
          "if (auto verdict = check_plane(scene, plane); !verdict && plane != every_plane[0])"),
    Fault("planes that were not requested are not watched", "equality_checker.cpp",
          "if (frame_.is_untouched(plane))", "if (plane <= Plane::dolp)"),
    Fault("the result is not checked", "equality_checker.cpp", "if (result != 0)",
          "if (result > 65535)"),
    Fault("the control word is not checked", "equality_checker.cpp",
          "(_mm_getcsr() & ~exception_flags) != control", "control == 1"),
    Fault("only one edge is run", "equality_checker.cpp", "for (Edge const edge : both_edges)",
          "for (Edge const edge : {Edge::end})"),
    Fault("both runs start from the same fill", "equality_checker.cpp",
          "edge == Edge::end ? Fill::plain : Fill::inverted", "Fill::plain"),
    Fault("calls are not counted", "equality_checker.cpp", "        ++calls_;\n", ""),
    Fault("the calls of the process are not counted", "equality_checker.cpp",
          "        ++all_calls;\n", ""),
    Fault("the expectation starts from another fill", "equality_checker.cpp",
          "scene.pixels()}, Fill::plain);", "scene.pixels()}, Fill::inverted);"),
    Fault("the expectation of one plane goes to another", "equality_checker.cpp",
          "Plane::s2, expected_[3])", "Plane::s2, expected_[2])"),
    Fault("a fault does not name its scene", "equality_checker.cpp",
          "    Fault_report const report{scene};\n", ""),
    Fault("an untouched plane is not watched in single results", "planes.cpp",
          "EXPECT_TRUE(frame.is_untouched(plane))", "EXPECT_TRUE(scene.pixels() > 0)"),
    Fault("single results may depend on the former contents", "planes.cpp",
          "EXPECT_TRUE(at_end[index] == at_start[index])",
          "EXPECT_TRUE(at_end[index] == at_end[index])"),
    Fault("row 3 of a matrix holds no NaN", "matrices.cpp", "matrix[12 + sample] = quiet_nan;", ""),
    Fault("the matrices of phase 2 are those of phase 0", "matrices.cpp",
          "return {{3, 0}, {1, 2}};", "return {{0, 3}, {2, 1}};"),
    Fault("weights are never peculiar", "matrices.cpp", "random.below(3) == 0",
          "random.below(3) == 3"),
    Fault("every seed gives the same samples", "samples.cpp", "Random_stream random{seed};",
          "Random_stream random{seed * 0};"),
    Fault("extremes are all zero", "samples.cpp", "random.below(2) == 0 ?",
          "random.below(2) < 2 ?"),
    Fault("a plain call equals the reference whatever differs", "../reduced/plain_call.cpp",
          "if (auto const difference = expected.difference_from(actual, scene)) {",
          "if (auto const difference = expected.difference_from(expected, scene)) {"),
    Fault("a plain call's float plane is left out", "../reduced/plain_call.cpp",
          "if (scene.wanted.has(plane)) {\n            auto const difference",
          "if (scene.wanted.has(plane) && plane != Plane::normalized_stokes) {\n"
          "            auto const difference"),
    Fault("a plain call's last plane is left out", "../reduced/plain_call.cpp",
          "if (scene.wanted.has(plane)) {\n            auto const difference",
          "if (scene.wanted.has(plane) && plane != Plane::dolp) {\n"
          "            auto const difference"),
    Fault("half of a plain call's planes is compared", "../reduced/plain_call.cpp",
          "integer_planes_[index].get(), pixels}", "integer_planes_[index].get(), pixels / 2}"),
    Fault("the result of a plain call is not checked", "../reduced/plain_call.cpp",
          "if (result != 0)", "if (result > 65535)"),
    Fault("a plain call takes any NaN for another", "../reduced/plain_call.cpp",
          ": support::Nan_rule::exact_bits", ": support::Nan_rule::any_nan_is_equal"),
]


def outcome(suite, fault):
    """(whether the fault was noticed, by what)"""
    path = suite.tree / "tests" / "support" / fault.file
    original = path.read_text()
    if original.count(fault.old) == 0:
        return False, "the text to change is not there any more"
    path.write_text(original.replace(fault.old, fault.new, 1))
    try:
        built = suite.ninja(PROGRAM, check=False)
        if built.returncode != 0:
            errors = [line for line in built.stdout.splitlines() if "error" in line]
            return False, f"does not compile: {(errors or ['?'])[0]}"
        result, output = run_program([suite.program(PROGRAM), "--gtest_brief=1"], TIME_LIMIT)
    finally:
        path.write_text(original)
    return result != 0, first_failure(output, result) if result != 0 else ""


def run_all(suite):
    suite.build_programs()
    suite.ninja(PROGRAM)
    if run_program([suite.program(PROGRAM)], TIME_LIMIT)[0] != 0:
        print("the tests of the unchanged harness fail")
        return False
    noticed = 0
    for fault in FAULTS:
        was_noticed, by = outcome(suite, fault)
        noticed += was_noticed
        print(f"{'noticed' if was_noticed else 'NOT NOTICED'}: {fault.what}: {by}", flush=True)
    print(f"{noticed} of {len(FAULTS)} faults of the harness noticed")
    return noticed == len(FAULTS)
