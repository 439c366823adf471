// Ctrl-C, once or more often, the request to end and a terminal that closes: exit code 130, whole
// files only, no temporary ones. A reader of the output that goes away: exit code 1, the same.
#include "process_fixture.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;

class Signals : public Process_command {
protected:
    // Frames frame0.png, frame1.png ... of 40 x 20.
    void write_frames(std::size_t count) const {
        auto const frame = test_files::encoded(test_files::pattern(40, 20, CV_8UC1), ".png");
        for (std::size_t number = 0; number < count; ++number) {
            test_files::write(folder_ / ("frame" + std::to_string(number) + ".png"), frame);
        }
    }

    Names process_frames(std::string const& planes, std::string const& jobs) const {
        return Names(
            {POLARIZE_PROGRAM, "process", in_folder("frame*.png"), "-o", results(), "--phase", "0",
             "--bit-depth", "8", "--planes", planes, "--jobs", jobs, "--no-pictures"});
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

// Each frame's line goes into a pipe in which there is room for a few only: however late the signal
// takes effect, the program never comes to the last frame.
TEST_F(Signals, process_stops_between_frames) {
    constexpr std::size_t frames = 600;
    constexpr unsigned most_pages = 30;
    write_frames(frames);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        forget_results();
        program_run::Full_pipe pipe;
        program_run::Running_program program(
            process_frames("s0,s1,s2,azimuth,dolp", "2"), pipe.writing_end());
        while (program.is_running() && !std::filesystem::exists(result("frame0_s0.json"))) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        program.send(signal);
        unsigned pages = 0;
        do {
            pipe.take_a_page();
            ++pages;
        } while (!program.ends_within(std::chrono::seconds(2)) && pages < most_pages);
        ASSERT_FALSE(program.is_running()) << "signal " << signal << " has no effect";
        program_run::Outcome const outcome = program.wait();
        expect_one_line(outcome, 130, "interrupted");
        std::size_t const planes = whole_pairs();
        EXPECT_EQ(planes % 5, 0U);
        EXPECT_GE(planes, 5U);
        EXPECT_LT(planes, 5 * frames);
        std::printf("signal %d: %zu of %zu frames were done\n", signal, planes / 5, frames);
    }
}

// More frames than any machine makes while the test finds out that the first is there. If the test
// is killed, so is the program, before it fills the disk.
Names simulate_endlessly(std::string const& output) {
    return {"/usr/bin/setpriv", "--pdeathsig", "KILL", POLARIZE_PROGRAM, "simulate", "-o", output,
            "--frames",         "1000000"};
}

TEST_F(Signals, further_signals_do_not_keep_temporary_files_from_being_removed) {
    program_run::Running_program program(simulate_endlessly(in_folder("made/many.png")));
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
    ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_GE(sent, 1U);
    // The folder itself stays if the second signal came before the first had its effect.
    auto const made = folder_ / "made";
    EXPECT_TRUE(!std::filesystem::exists(made) || test_files::names_in(made).empty());
    std::printf("%u times three signals\n", sent);
}

TEST_F(Signals, quit_ends_at_once_and_leaves_no_temporary_file) {
    program_run::Running_program program(simulate_endlessly(in_folder("made/many.png")));
    while (program.is_running() && (!std::filesystem::exists(folder_ / "made") ||
                                    test_files::names_in(folder_ / "made").empty())) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGQUIT);
    ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_EQ(outcome.errors, "veldrane-polarize: interrupted; nothing half-written stays\n");
    auto const made = folder_ / "made";
    EXPECT_TRUE(!std::filesystem::exists(made) || test_files::names_in(made).empty());
}

// So many repetitions take minutes.
TEST_F(Signals, repetitions_of_a_frame_are_broken_off) {
    test_files::write(
        folder_ / "large.png",
        test_files::encoded(cv::Mat(2000, 2000, CV_8UC1, cv::Scalar(7)), ".png"));
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "process", in_folder("large.png"), "-o", results(), "--phase", "0",
         "--bit-depth", "8", "--repeat", "100000"});
    while (program.is_running() && !std::filesystem::exists(results())) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // until repetitions have begun
    program.send(SIGINT);
    ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(outcome.errors, "veldrane-polarize: interrupted; nothing half-written stays\n");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

// Its only line waits for room in the pipe; the signal comes meanwhile.
TEST_F(Signals, inspect_that_is_interrupted_says_so_whatever_it_was_doing) {
    program_run::Full_pipe pipe;
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "inspect", in_folder("none.png"), good()}, pipe.writing_end());
    EXPECT_FALSE(program.ends_within(std::chrono::seconds(1))) << "it does not wait at all";
    program.send(SIGINT);
    while (program.is_running()) {
        pipe.take_all();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130);
    EXPECT_EQ(program_run::line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("none.png: cannot be read"), std::string::npos);
    EXPECT_NE(outcome.errors.find("interrupted; nothing"), std::string::npos);
}

// nohup has hangups ignored, and a script SIGQUIT by what it runs in the background.
TEST_F(Signals, a_hangup_or_quit_does_not_end_what_was_started_to_ignore_it) {
    for (auto const& [name, signal] : {std::pair("HUP", SIGHUP), std::pair("QUIT", SIGQUIT)}) {
        std::string const made = std::string("made_") + name;
        program_run::Running_program program(
            {"/bin/sh", "-c",
             std::string("trap '' ") + name +
                 "; exec '" POLARIZE_PROGRAM "' simulate --frames 3 -o '" +
                 in_folder(made + "/many.png") + "'"});
        while (program.is_running() && !std::filesystem::exists(folder_ / made)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        program.send(signal);
        EXPECT_EQ(program.wait().code, 0) << name;
        EXPECT_GE(test_files::names_in(folder_ / made).size(), 3U) << name;
    }
}

// A second signal waits neither for a pipe that nobody empties nor for a thread that writes to it.
TEST_F(Signals, a_second_signal_ends_a_program_that_hangs) {
    write_frames(8);
    program_run::Full_pipe const pipe;
    unsigned removed = 0;
    for (std::string const jobs : {"1", "3"}) {
        forget_results();
        // While one thread hangs, another stages files, if the machine has a second core for it.
        bool const stages_more = jobs != "1" && std::thread::hardware_concurrency() > 1;
        program_run::Running_program program(process_frames("s0", jobs), pipe.writing_end());
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
}

TEST_F(Signals, a_reader_that_goes_away_is_an_error_and_leaves_whole_files) {
    constexpr std::size_t frames = 20;
    write_frames(frames);
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    close(ends[0]);
    program_run::Running_program program(process_frames("s0", "2"), ends[1]);
    close(ends[1]);
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 1);
    std::size_t const done = whole_pairs();
    EXPECT_EQ(done, 1U);
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
        program_run::Outcome const outcome =
            program_run::run_without_room_for_output(process_frames("s0", "1"));
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
    program_run::Outcome const outcome = program_run::run_without_room_for_output(
        {POLARIZE_PROGRAM, "process", in_folder("run*.raw"), "-o", results(), "--phase", "0",
         "--planes", "s0", "--pixel-format", "Mono8", "--width", "40", "--height", "20"});
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
    program_run::Running_program program(simulate_endlessly(in_folder("made/many.png")));
    while (program.is_running() && !std::filesystem::exists(folder_ / "made")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGINT);
    ASSERT_TRUE(program.ends_within(std::chrono::seconds(60)));
    program_run::Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "made"));
}

} // namespace
