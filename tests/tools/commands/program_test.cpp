// The program as a whole: help, version, and the bar that only a terminal sees.
#include "process_fixture.hpp"
#include "terminal/failure.hpp"

#include <gtest/gtest.h>
#include <new>
#include <system_error>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using program_run::run;

TEST(Program, help_of_every_subcommand_shows_an_example) {
    for (char const* const command : {"process", "simulate", "calibrate", "inspect", "report"}) {
        Outcome const outcome = run({command, "--help"});
        EXPECT_EQ(outcome.code, 0);
        EXPECT_EQ(outcome.errors, "");
        EXPECT_NE(outcome.output.find("Example"), std::string::npos) << command;
        EXPECT_NE(
            outcome.output.find(std::string("  veldrane-polarize ") + command), std::string::npos)
            << command;
    }
    EXPECT_NE(run({"process", "--help"}).output.find("nothing clips"), std::string::npos);
    EXPECT_EQ(run({"--help-all"}).code, 0);
}

TEST(Program, version_tells_the_build_of_the_processor) {
    Outcome const outcome = run({"--version"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output.find("veldrane-polarize "), 0U);
    EXPECT_NE(outcome.output.find("processor: Version = "), std::string::npos) << outcome.output;
}

TEST(Program, help_and_version_that_cannot_be_written_fail) {
    std::vector<Names> const cases = {
        {"--help"}, {"--help-all"}, {"--version"}, {"inspect", "--help"}};
    for (Names const& options : cases) {
        Names command = {POLARIZE_PROGRAM};
        command.insert(command.end(), options.begin(), options.end());
        Outcome const outcome = program_run::run_without_room_for_output(command);
        expect_one_line(outcome, 1, "standard output: cannot be written: ");
    }
}

TEST(Program, errors_of_the_language_are_told_in_own_words) {
    using polarize_tool::reason_of;
    std::string const memory = "too large for the memory of this machine; use a smaller frame";
    EXPECT_EQ(reason_of(std::bad_alloc()), memory);
    EXPECT_EQ(reason_of(std::length_error("vector::_M_default_append")), memory);
    EXPECT_EQ(
        reason_of(std::filesystem::filesystem_error(
            "cannot copy", std::make_error_code(std::errc::permission_denied))),
        "the system refuses: Permission denied");
    EXPECT_EQ(reason_of(polarize_tool::File_failure("a.png", "is odd")), "a.png: is odd");
}

class Progress_bar : public Process_command {};

TEST_F(Progress_bar, is_for_terminals_only) {
    test_files::write(folder_ / "run.raw", std::vector<std::uint8_t>(std::size_t{40} * 160 * 128));
    Names command(
        {POLARIZE_PROGRAM, "process", in_folder("run.raw"), "-o", results(), "--phase", "0",
         "--pixel-format", "Mono8", "--width", "160", "--height", "128", "--planes", "s0",
         "--overwrite"});
    Outcome const piped = program_run::run_command(command);
    EXPECT_EQ(piped.code, 0);
    EXPECT_EQ(piped.errors, "");
    EXPECT_EQ(piped.output.find("["), std::string::npos);
    std::string const problem = program_run::terminal_problem();
    if (!problem.empty()) {
        GTEST_SKIP() << problem;
    }
    for (bool const is_quiet : {false, true}) {
        if (is_quiet) {
            command.push_back("-q");
        }
        Outcome const shown = program_run::run_in_terminal(command);
        EXPECT_EQ(shown.code, 0);
        EXPECT_EQ(shown.output.find("/40 frames, ") != std::string::npos, !is_quiet);
    }
}

// However quick the run, the bar shows when the last frame is over, with all that failed counted.
TEST_F(Progress_bar, counts_failed_frames) {
    std::string const problem = program_run::terminal_problem();
    if (!problem.empty()) {
        GTEST_SKIP() << problem;
    }
    test_files::write(folder_ / "run.raw", std::vector<std::uint8_t>(std::size_t{5} * 40 * 20));
    Outcome const outcome = program_run::run_in_terminal(
        {POLARIZE_PROGRAM, "process", in_folder("run.raw"), "-o", results(), "--phase", "0",
         "--pixel-format", "Mono8", "--width", "40", "--height", "20", "--region", "0,0,40,21"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.output.find("] 5/5 frames, 0 Mpixel/s"), std::string::npos)
        << outcome.output.substr(0, 300);
}

} // namespace
