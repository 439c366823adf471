// Ctrl-C, once or more often, the request to end and a terminal that closes: exit code 130, whole
// files only, no temporary ones. A reader of the output that goes away: exit code 1, the same.
#include "process_fixture.hpp"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;

class Interruption : public Process_command {
protected:
    // Whole sets of results, whatever their number.
    std::size_t whole_frames() const {
        Names const names = test_files::names_in(results());
        std::size_t planes = 0;
        for (std::string const& name : names) {
            EXPECT_EQ(name.find(".part-"), std::string::npos) << name;
            if (name.ends_with(".tif")) {
                ++planes;
                EXPECT_EQ(test_files::read_tiff(result(name)).samples.size(), 640U * 512U);
            }
        }
        EXPECT_EQ(planes % 5, 0U);
        EXPECT_EQ(names.size(), 2 * planes);
        return planes / 5;
    }
};

TEST_F(Interruption, process_stops_between_frames) {
    constexpr std::size_t frames = 3000;
    {
        // A sparse file: zeros are as good as samples here.
        test_files::write(folder_ / "run.raw", std::string());
        std::filesystem::resize_file(folder_ / "run.raw", frames * 640 * 512);
    }
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        forget_results();
        program_run::Running_program program(
            {POLARIZE_PROGRAM, "process", in_folder("run.raw"), "-o", results(), "--phase", "0",
             "--pixel-format", "Mono8", "--width", "640", "--height", "512", "--planes",
             "s0,s1,s2,azimuth,dolp"});
        while (program.is_running() && !std::filesystem::exists(result("run_000003_dolp.tif"))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        program.send(signal);
        program_run::Outcome const outcome = program.wait();
        EXPECT_EQ(outcome.code, 130) << outcome.errors;
        EXPECT_EQ(program_run::line_count(outcome.errors), 1U) << outcome.errors;
        EXPECT_NE(outcome.errors.find("interrupted"), std::string::npos);
        std::size_t const done = whole_frames();
        EXPECT_GE(done, 1U);
        EXPECT_LT(done, frames);
        std::printf("signal %d: %zu of %zu frames were done\n", signal, done, frames);
    }
}

TEST_F(Interruption, further_signals_do_not_keep_temporary_files_from_being_removed) {
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "simulate", "-o", in_folder("made/many.png"), "--frames", "500"});
    // A temporary file is there: frames appear together, at the end.
    while (program.is_running() && (!std::filesystem::exists(folder_ / "made") ||
                                    test_files::names_in(folder_ / "made").empty())) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    unsigned sent = 0;
    for (; program.is_running() && sent < 100000; ++sent) {
        for (int const signal : {SIGINT, SIGHUP, SIGTERM}) {
            program.send(signal);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_GE(sent, 1U);
    EXPECT_TRUE(test_files::names_in(folder_ / "made").empty());
    std::printf("%u times three signals\n", sent);
}

TEST_F(Interruption, a_hangup_does_not_end_what_nohup_started) {
    program_run::Running_program program(
        {"/bin/sh", "-c",
         "trap '' HUP; exec " POLARIZE_PROGRAM " simulate --frames 3 -o " +
             in_folder("made/many.png")});
    while (program.is_running() && !std::filesystem::exists(folder_ / "made")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGHUP);
    EXPECT_EQ(program.wait().code, 0);
    EXPECT_GE(test_files::names_in(folder_ / "made").size(), 3U);
}

TEST_F(Interruption, a_reader_that_goes_away_is_an_error_and_leaves_whole_files) {
    constexpr std::size_t frames = 200;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        test_files::write(
            folder_ / ("frame" + std::to_string(frame) + ".png"),
            test_files::encoded(test_files::pattern(40, 20, CV_8UC1), ".png"));
    }
    program_run::Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "{ " POLARIZE_PROGRAM " process '" + folder_.path().string() + "/frame*.png' -o " +
             results() + " --phase 0 --bit-depth 8 --planes s0 --no-pictures; echo $? >" +
             in_folder("code") + "; } | true"});
    auto const code = test_files::read(folder_ / "code");
    EXPECT_EQ(std::string(code.begin(), code.end()), "1\n");
    EXPECT_NE(
        outcome.errors.find("standard output: cannot be written: Broken pipe"), std::string::npos)
        << outcome.errors;
    for (std::string const& name : test_files::names_in(results())) {
        EXPECT_EQ(name.find(".part-"), std::string::npos) << name;
    }
    std::printf(
        "%zu of %zu sets of files, %zu lines\n", test_files::names_in(results()).size() / 2, frames,
        program_run::line_count(outcome.errors));
}

TEST_F(Interruption, simulate_leaves_nothing) {
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "simulate", "-o", in_folder("made/many.png"), "--frames", "500"});
    while (program.is_running() && !std::filesystem::exists(folder_ / "made")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGINT);
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_TRUE(test_files::names_in(folder_ / "made").empty());
}

} // namespace
