// Too little memory or too few threads: what can be done is done, the rest is a line each, and no
// temporary file stays.
#include "terminal/memory.hpp"

#include "commands/ending.hpp"
#include "output/staged_files.hpp"
#include "process_fixture.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <opencv2/core.hpp>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;

constexpr long kilobytes_of_a_step = 8L << 10;

class Memory : public Process_command {
protected:
    void SetUp() override {
        if (process_fixture::built_with_sanitizer) {
            GTEST_SKIP() << "the program has a sanitizer";
        }
        Process_command::SetUp();
    }

    // The program with an address space of so many KB.
    static Outcome run_within(long kilobytes, Names const& arguments) {
        Names command = {
            "/bin/sh", "-c", "ulimit -v \"$0\" && exec \"$@\"", std::to_string(kilobytes),
            POLARIZE_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return program_run::run_command(command);
    }

    // What it takes to load the program, libraries and all.
    static long least_kilobytes() {
        constexpr long most = 4L << 20; // a program that never starts is no reason to wait
        long kilobytes = kilobytes_of_a_step;
        while (kilobytes < most && run_within(kilobytes, {"--version"}).code != 0) {
            kilobytes += kilobytes_of_a_step;
        }
        EXPECT_LT(kilobytes, most);
        return kilobytes;
    }

    // The arguments to process so many frames, dark ones, which are small files.
    Names process_frames(int count, int side, char const* jobs) const {
        auto const frame = test_files::encoded(cv::Mat::zeros(side, side, CV_16UC1), ".png");
        Names arguments = {"process",  "-o",      results(),      "--phase",     "0",
                           "--jobs",   jobs,      "--quiet",      "--bit-depth", "12",
                           "--planes", "azimuth", "--no-pictures"};
        for (int number = 0; number < count; ++number) {
            std::string const name = in_folder("frame" + std::to_string(number) + ".png");
            test_files::write(name, frame);
            arguments.push_back(name);
        }
        return arguments;
    }

    std::size_t results_there() const {
        return std::filesystem::exists(results()) ? test_files::names_in(results()).size() : 0;
    }
};

TEST_F(Memory, too_little_is_a_line_for_each_frame_and_leaves_nothing) {
    long const least = least_kilobytes();
    Names const arguments = process_frames(3, 1400, "3");
    int refused = 0;
    for (long steps = 1; steps < 10; ++steps) {
        forget_results();
        Outcome const outcome = run_within(least + steps * kilobytes_of_a_step, arguments);
        SCOPED_TRACE(testing::Message() << steps << " steps: " << outcome.errors);
        ASSERT_TRUE(outcome.code == 0 || outcome.code == 1) << outcome.code;
        std::size_t const lines = line_count(outcome.errors);
        std::size_t of_memory = 0;
        for (std::size_t at = 0; (at = outcome.errors.find("memory", at)) != std::string::npos;
             ++at) {
            ++of_memory;
        }
        EXPECT_EQ(of_memory, lines);
        EXPECT_EQ(outcome.code, lines == 0 ? 0 : 1);
        EXPECT_EQ(outcome.errors.find("damaged"), std::string::npos);
        // A plane and its JSON file of each frame that is done.
        bool const has_ended_early = outcome.errors.find("or threads") != std::string::npos;
        EXPECT_TRUE(
            has_ended_early ? results_there() % 2 == 0 : results_there() == 2 * (3 - lines));
        refused += outcome.code;
    }
    std::cout << refused << " of 9 runs refused\n";
    EXPECT_GT(refused, 0);
}

TEST_F(Memory, frames_that_fit_in_one_by_one_are_done) {
    constexpr long room = 160L << 10; // for three or four of them
    Outcome const outcome = run_within(least_kilobytes() + room, process_frames(16, 2048, "16"));
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(results_there(), 32U);
}

TEST_F(Memory, without_further_threads_those_there_are_do_the_work) {
    Names command = {"/usr/bin/env", "LD_PRELOAD=" FEW_THREADS, "THREADS_LEFT=0", POLARIZE_PROGRAM};
    Names const arguments = process_frames(12, 64, "32");
    command.insert(command.end(), arguments.begin(), arguments.end());
    for (char const* const left : {"THREADS_LEFT=0", "THREADS_LEFT=1", "THREADS_LEFT=2"}) {
        forget_results();
        command[2] = left;
        Outcome const outcome = program_run::run_command(command);
        EXPECT_EQ(outcome.code, 0) << left << ": " << outcome.errors;
        EXPECT_EQ(outcome.errors, "");
        EXPECT_EQ(results_there(), 24U);
    }
}

// Its line goes where standard error went at the start of the tests.
TEST_F(Memory, an_end_that_nothing_can_prevent_is_tidy) {
    EXPECT_EXIT(
        {
            polarize_tool::end_cleanly_on_terminate();
            polarize_tool::Staged_files files;
            files.add(folder_ / "result", std::string("text"));
            std::terminate();
        },
        testing::ExitedWithCode(1), "");
    EXPECT_EXIT(
        {
            polarize_tool::end_cleanly_on_terminate();
            polarize_tool::Staged_files files;
            files.add(folder_ / "result", std::string("text"));
            std::abort();
        },
        testing::ExitedWithCode(1), "");
    EXPECT_EQ(test_files::names_in(folder_.path()), Names{"good.png"});
}

TEST(Lack_of_memory, is_known_by_either_exception) {
    EXPECT_TRUE(polarize_tool::is_lack_of_memory(std::bad_alloc()));
    EXPECT_TRUE(polarize_tool::is_lack_of_memory(
        cv::Exception(cv::Error::StsNoMem, "no memory", "place", "file", 1)));
    cv::Exception const other(cv::Error::StsBadArg, "argument", "place", "file", 1);
    EXPECT_FALSE(polarize_tool::is_lack_of_memory(other));
}

} // namespace
