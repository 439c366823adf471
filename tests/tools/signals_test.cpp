// Ctrl-C, once or more often, the request to end and a terminal that closes: exit code 130, whole
// files only, no temporary ones. A reader of the output that goes away: exit code 1, the same.
#include "process_fixture.hpp"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;

class Signals : public Process_command {
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

    // Frames frame0.png, frame1.png ... of 40 x 20.
    void write_frames(std::size_t count) const {
        auto const frame = test_files::encoded(test_files::pattern(40, 20, CV_8UC1), ".png");
        for (std::size_t number = 0; number < count; ++number) {
            test_files::write(folder_ / ("frame" + std::to_string(number) + ".png"), frame);
        }
    }

    std::string process_s0_of_frames() const {
        return std::string("'" POLARIZE_PROGRAM "' process '") + in_folder("frame*.png") +
               "' -o '" + results() + "' --phase 0 --bit-depth 8 --planes s0 --no-pictures";
    }

    // Whole pairs of a plane and its JSON file of frames of 40 x 20, and nothing else.
    std::size_t whole_pairs() const {
        if (!std::filesystem::exists(results())) {
            return 0;
        }
        Names const names = test_files::names_in(results());
        std::size_t pairs = 0;
        for (std::string const& name : names) {
            if (name.ends_with(".tif")) {
                EXPECT_EQ(test_files::read_tiff(result(name)).samples.size(), 40U * 20U) << name;
                auto const bytes =
                    test_files::read(result(name.substr(0, name.size() - 4) + ".json"));
                EXPECT_TRUE(std::string(bytes.begin(), bytes.end()).ends_with("\n}\n")) << name;
                ++pairs;
            }
        }
        EXPECT_EQ(names.size(), 2 * pairs);
        return pairs;
    }

    bool has_temporary_file() const {
        if (!std::filesystem::exists(results())) {
            return false;
        }
        Names const names = test_files::names_in(results());
        return std::any_of(names.begin(), names.end(), [](std::string const& name) {
            return name.find(".part-") != std::string::npos;
        });
    }
};

TEST_F(Signals, process_stops_between_frames) {
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

TEST_F(Signals, further_signals_do_not_keep_temporary_files_from_being_removed) {
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

TEST_F(Signals, a_hangup_does_not_end_what_nohup_started) {
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

// A second signal waits neither for a pipe that nobody empties nor for a thread that writes to it.
TEST_F(Signals, a_second_signal_ends_a_program_that_hangs) {
    write_frames(8);
    std::string const pipe = in_folder("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    int const end = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(end, 0);
    std::vector<char> const filling(4096);
    while (write(end, filling.data(), filling.size()) > 0) {
    }
    unsigned removed = 0;
    for (std::string const jobs : {"1", "3"}) {
        forget_results();
        // While one thread hangs, another stages files, if the machine has a second core for it.
        bool const stages_more = jobs != "1" && std::thread::hardware_concurrency() > 1;
        program_run::Running_program program(
            {"/bin/sh", "-c",
             "exec " + process_s0_of_frames() + " --jobs " + jobs + " >'" + pipe + "'"});
        while (program.is_running() && !(std::filesystem::exists(result("frame0_s0.json")) &&
                                         (!stages_more || has_temporary_file()))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        program.send(SIGINT);
        EXPECT_FALSE(program.ends_within(std::chrono::seconds(1))) << "it does not hang at all";
        removed += has_temporary_file() ? 1U : 0U;
        program.send(SIGTERM);
        ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
        program_run::Outcome const outcome = program.wait();
        EXPECT_EQ(outcome.code, 130) << outcome.errors;
        EXPECT_EQ(outcome.errors, "veldrane-polarize: interrupted; nothing half-written stays\n");
        EXPECT_EQ(whole_pairs(), 1U) << jobs << " jobs";
    }
    std::printf("%u of 2 runs had temporary files\n", removed);
    close(end);
}

TEST_F(Signals, a_reader_that_goes_away_is_an_error_and_leaves_whole_files) {
    constexpr std::size_t frames = 200;
    write_frames(frames);
    program_run::Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "{ " + process_s0_of_frames() + "; echo $? >" + in_folder("code") + "; } | true"});
    auto const code = test_files::read(folder_ / "code");
    EXPECT_EQ(std::string(code.begin(), code.end()), "1\n");
    std::size_t const done = whole_pairs();
    EXPECT_GE(done, 1U);
    EXPECT_EQ(
        outcome.errors, "veldrane-polarize: standard output: cannot be written: Broken pipe; " +
                            std::to_string(done) + " of " + std::to_string(frames) +
                            " frames are done\n");
    std::printf("%zu of %zu frames\n", done, frames);
}

TEST_F(Signals, a_frame_whose_line_cannot_be_written_is_done_all_the_same) {
    for (std::size_t const frames : {1U, 3U}) {
        forget_results();
        write_frames(frames);
        program_run::Outcome const outcome = program_run::run_command(
            {"/bin/sh", "-c", process_s0_of_frames() + " --jobs 1 >/dev/full"});
        EXPECT_EQ(outcome.code, 1);
        std::string const count = "1 of " + std::to_string(frames) + " frames are done";
        EXPECT_EQ(
            outcome.errors, "veldrane-polarize: standard output: cannot be written: "
                            "No space left on device; " +
                                count + "\n");
        EXPECT_EQ(whole_pairs(), 1U);
    }
}

// Frames of a recording have no lines: the last line, the sum, is the first that cannot be written.
TEST_F(Signals, failures_are_listed_even_if_standard_output_takes_nothing) {
    test_files::write(folder_ / "run0.raw", std::vector<std::uint8_t>(std::size_t{3} * 40 * 20));
    test_files::write(folder_ / "run1.raw", std::vector<std::uint8_t>(41));
    program_run::Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "'" POLARIZE_PROGRAM "' process '" + in_folder("run*.raw") + "' -o '" + results() +
             "' --phase 0 --planes s0 --pixel-format Mono8 --width 40 --height 20 >/dev/full"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(program_run::line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_EQ(outcome.errors.find("veldrane-polarize: " + in_folder("run1.raw") + ": "), 0U)
        << outcome.errors;
    EXPECT_NE(
        outcome.errors.find("No space left on device; 3 of 3 frames are done\n"), std::string::npos)
        << outcome.errors;
    EXPECT_EQ(whole_pairs(), 3U);
}

TEST_F(Signals, simulate_leaves_nothing) {
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "simulate", "-o", in_folder("made/many.png"), "--frames", "500"});
    while (program.is_running() && !std::filesystem::exists(folder_ / "made")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGINT);
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "made"));
}

} // namespace
