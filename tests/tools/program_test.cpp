// The program as a whole: help, version, and the bar that only a terminal sees.
#include "process_fixture.hpp"

#include <gtest/gtest.h>

namespace {

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
    for (std::string const option : {"--help", "--help-all", "--version", "inspect --help"}) {
        Outcome const outcome = program_run::run_command(
            {"/bin/sh", "-c", std::string(POLARIZE_PROGRAM) + " " + option + " >/dev/full"});
        EXPECT_EQ(outcome.code, 1) << option;
        EXPECT_EQ(program_run::line_count(outcome.errors), 1U) << outcome.errors;
        EXPECT_NE(outcome.errors.find("standard output: cannot be written: "), std::string::npos)
            << outcome.errors;
    }
}

class Progress_bar : public Process_command {};

// `script` gives the program a terminal and keeps what it shows.
TEST_F(Progress_bar, is_for_terminals_only) {
    std::string const script = "/usr/bin/script";
    test_files::write(folder_ / "run.raw", std::vector<std::uint8_t>(std::size_t{400} * 640 * 512));
    std::string const arguments =
        " process '" + in_folder("run.raw") + "' -o '" + results() +
        "' --phase 0 --pixel-format Mono8 --width 640 --height 512 --planes s0 --overwrite";
    Outcome const piped =
        program_run::run_command({"/bin/sh", "-c", std::string(POLARIZE_PROGRAM) + arguments});
    EXPECT_EQ(piped.code, 0);
    EXPECT_EQ(piped.errors, "");
    EXPECT_EQ(piped.output.find("["), std::string::npos);
    if (!std::filesystem::exists(script)) {
        GTEST_SKIP() << script << " is not installed";
    }
    for (bool const is_quiet : {false, true}) {
        Outcome const shown = program_run::run_command(
            {script, "-qec", std::string(POLARIZE_PROGRAM) + arguments + (is_quiet ? " -q" : ""),
             "/dev/null"});
        EXPECT_EQ(shown.code, 0);
        EXPECT_EQ(shown.output.find("/400 frames, ") != std::string::npos, !is_quiet);
    }
}

} // namespace
