// veldrane-polarize process --skip-existing: frames that are done are passed over and counted, and
// no others.
#include "process_fixture.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <thread>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;

class Process_resuming : public Process_command {
protected:
    void SetUp() override {
        Process_command::SetUp();
        for (char const* const name : {"a.png", "b.png", "c.png", "d.png"}) {
            std::filesystem::copy_file(good(), folder_ / name);
        }
    }

    Outcome resumed(Names const& more = {}) const {
        Names options = {"--planes", "s0,dolp", "--skip-existing"};
        options.insert(options.end(), more.begin(), more.end());
        return process({in_folder("[a-d].png")}, options);
    }

    std::size_t files() const { return test_files::names_in(results()).size(); }
};

TEST_F(Process_resuming, frames_are_done_if_all_their_files_are_there) {
    ASSERT_EQ(resumed().code, 0);
    std::size_t const all = files();
    EXPECT_EQ(all, 4U * 5U);
    test_files::write(result("a_s0.tif"), "kept");
    test_files::write(result("b_s0.tif"), "replaced");
    std::filesystem::remove(result("b_dolp.json"));
    test_files::write(result("c_s0.tif"), "replaced");
    std::filesystem::remove(result("c_degree.png"));
    test_files::write(result("d_dolp.tif"), "");
    Outcome const outcome = resumed();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("3 of 3 frames in "), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find(", 1 more were done already"), std::string::npos)
        << outcome.output;
    EXPECT_EQ(test_files::read(result("a_s0.tif")).size(), 4U);
    for (char const* const name : {"b_s0.tif", "c_s0.tif", "d_dolp.tif"}) {
        EXPECT_EQ(test_files::read_tiff(result(name)).width, 40U) << name;
    }
    EXPECT_EQ(files(), all);
    Outcome const nothing = resumed();
    EXPECT_EQ(nothing.code, 0);
    EXPECT_EQ(nothing.output, "4 of 4 frames were done already, results in " + results() + "\n");
    EXPECT_EQ(resumed({"--quiet"}).output, "");
}

// Other options write other files: those decide.
TEST_F(Process_resuming, what_this_run_would_write_decides) {
    ASSERT_EQ(resumed({"--no-pictures"}).code, 0);
    Outcome const with_pictures = resumed();
    EXPECT_EQ(with_pictures.code, 0);
    EXPECT_NE(with_pictures.output.find("4 of 4 frames in "), std::string::npos)
        << with_pictures.output;
    Outcome const other_format = resumed({"--format", "npy"});
    EXPECT_NE(other_format.output.find("4 of 4 frames in "), std::string::npos)
        << other_format.output;
}

TEST_F(Process_resuming, a_run_that_was_killed_goes_on) {
    program_run::Full_pipe const pipe;
    program_run::Running_program program(
        {POLARIZE_PROGRAM, "process", in_folder("[a-d].png"), "-o", results(), "--phase", "0",
         "--bit-depth", "8", "--planes", "s0,dolp"},
        pipe.writing_end());
    while (program.is_running() && !std::filesystem::exists(result("a_degree.png"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    program.send(SIGKILL);
    EXPECT_EQ(program.wait().code, -1);
    Outcome const outcome = resumed();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("3 of 3 frames in "), std::string::npos) << outcome.output;
}

TEST_F(Process_resuming, one_cannot_both_pass_over_and_replace) {
    Outcome const outcome = resumed({"--overwrite"});
    expect_one_line(outcome, 2, "--skip-existing");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

} // namespace
