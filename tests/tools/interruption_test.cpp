// Ctrl-C and the request to end: exit code 130, whole files only, no temporary ones.
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
    for (int const signal : {SIGINT, SIGTERM}) {
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
