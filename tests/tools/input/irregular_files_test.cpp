// Pipes, folders, sockets and links that lead nowhere, where a file is meant: as inputs they are
// refused at once, as results they stay what they are.
#include "input/frame_finding.hpp"
#include "process_fixture.hpp"
#include "terminal/failure.hpp"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;

class Irregular_files : public Process_command {
protected:
    void make_pipe(std::string const& name) const {
        ASSERT_EQ(mkfifo((folder_ / name).c_str(), 0600), 0);
    }

    // Whoever waits for a pipe's other end is ended.
    static Outcome run_for_a_minute(Names const& arguments) {
        Names command = {POLARIZE_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        program_run::Running_program program(command);
        EXPECT_TRUE(program.ends_within(std::chrono::seconds(60))) << arguments.front();
        if (program.is_running()) {
            program.send(SIGKILL);
        }
        return program.wait();
    }

    static Names with(Names arguments, Names const& more) {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
};

TEST_F(Irregular_files, no_input_is_waited_for) {
    make_pipe("pipe.png");
    std::filesystem::create_symlink("nowhere", folder_ / "link.png");
    Names const mosaic = {"--phase", "0", "--bit-depth", "8"};
    Names const to_results = with({"-o", results()}, mosaic);
    Names const raw = {"--pixel-format", "Mono8", "--width", "40", "--height", "20"};
    unsigned refused = 0;
    for (auto const& [name, words] :
         {std::pair<std::string, std::string>(
              "pipe.png", "pipe.png: cannot be read: it is no regular file but a pipe"),
          std::pair<std::string, std::string>(
              "link.png", "link.png: cannot be read: No such file or directory: it is a link to "
                          "nowhere, which is not there")}) {
        std::string const file = in_folder(name);
        for (Names const& arguments :
             {Names{"inspect", file}, with({"inspect", file}, raw),
              with({"process", file}, to_results),
              with({"process", good(), "--dark", file}, to_results),
              with(
                  {"process", good(), "-o", results(), "--bit-depth", "8", "--calibration"},
                  {file}),
              with({"report", file}, to_results),
              with({"report", good(), "--dark", file}, to_results),
              with({"calibrate", good(), "--angles", file}, to_results),
              with({"calibrate", good(), "--dark", good(), "--noise", file}, to_results),
              with({"calibrate", good(), "--model", "gain", "--bad-pixels", file}, to_results)}) {
            expect_one_line(run_for_a_minute(arguments), 1, words);
            ++refused;
        }
    }
    EXPECT_FALSE(std::filesystem::exists(results()));
    std::printf("%u refusals\n", refused);
}

TEST_F(Irregular_files, in_a_folder_of_frames_they_are_named) {
    std::filesystem::create_directories(folder_ / "run" / "deeper.png");
    std::filesystem::copy_file(good(), folder_ / "run" / "good.png");
    make_pipe("run/pipe.png");
    std::filesystem::create_symlink("nowhere", folder_ / "run" / "link.png");
    Outcome const outcome = run_for_a_minute({"inspect", in_folder("run")});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("pipe.png: cannot be read"), std::string::npos);
    EXPECT_NE(outcome.errors.find("link.png: cannot be read"), std::string::npos);
    EXPECT_NE(outcome.output.find("good.png: 40 x 20"), std::string::npos) << outcome.output;
}

// Between finding a frame and reading it a pipe may have come in its place. This one has a writer
// and some bytes: whoever reads it does not hang, but takes it for a file.
TEST_F(Irregular_files, what_is_open_decides_and_not_what_was_there_before) {
    using namespace polarize_tool;
    make_pipe("pipe.tif");
    auto const file = folder_ / "pipe.tif";
    int const both_ends = open(file.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(both_ends, 0);
    std::array<char, 64> const bytes{};
    ASSERT_EQ(write(both_ends, bytes.data(), bytes.size()), 64);
    auto const problem = [](auto const& action) {
        try {
            action();
        } catch (File_failure const& failure) {
            return std::string(failure.what());
        }
        return std::string("nothing");
    };
    std::string const words =
        file.string() + ": cannot be read: it is no regular file but a pipe; name image files";
    EXPECT_EQ(problem([&] { polarization::open_frames(file); }), words);
    Frame_slot slot;
    for (Frame_place const& place : {Frame_place{file, 1, 4}, Frame_place{file, 0, 1}}) {
        EXPECT_EQ(problem([&] { Frame_list({place}, std::nullopt).read(0, slot); }), words);
    }
    close(both_ends);
}

TEST_F(Irregular_files, no_result_takes_their_place) {
    std::filesystem::create_directory(folder_ / "places");
    make_pipe("places/pipe_s0.png");
    make_pipe("places/pipe.json");
    make_pipe("places/pipe_angle_000.0.png");
    test_files::write(folder_ / "target", "mine");
    for (char const* const ending : {"_s0.png", ".json", "_angle_000.0.png"}) {
        std::filesystem::create_symlink(
            folder_ / "target", folder_ / (std::string("places/link") + ending));
    }
    int const socket_number = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {AF_UNIX, {}};
    std::string const socket_name = in_folder("places/socket_s0.png");
    bool const has_socket =
        socket_name.size() < sizeof address.sun_path &&
        socket_name.copy(address.sun_path, sizeof address.sun_path - 1) > 0 &&
        bind(socket_number, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
    auto const names = test_files::names_in(folder_ / "places");
    Names const mosaic = {"--phase", "0", "--bit-depth", "8"};
    Names const series = {
        "simulate",
        "-o",
        in_folder("cal.png"),
        "--polarizer-series",
        "0:165:15",
        "--width",
        "64",
        "--height",
        "64",
        "--bit-depth",
        "8"};
    ASSERT_EQ(program_run::run(series).code, 0);
    unsigned refused = 0;
    for (auto const& [start, kind] :
         {std::pair<std::string, std::string>("pipe", "no regular file but a pipe; "),
          std::pair<std::string, std::string>("link", "a link to " + in_folder("target") + "; "),
          std::pair<std::string, std::string>("socket", "no regular file but a socket; ")}) {
        if (start == "socket" && !has_socket) {
            continue;
        }
        std::string const place = in_folder("places/" + start);
        std::filesystem::copy_file(good(), folder_ / (start + ".png"));
        std::vector<Names> commands = {
            with(
                {"process", in_folder(start + ".png"), "-o", in_folder("places"), "--planes", "s0",
                 "--format", "png", "--no-pictures"},
                mosaic),
            with({"report", good(), "-o", place + "_s0.png"}, mosaic),
            {"simulate", "-o", place + "_s0.png"}};
        if (start != "socket") {
            Names const calibrate = with({"calibrate", in_folder("cal_angle_*.png")}, mosaic);
            commands.push_back(
                with(calibrate, {"-o", place + ".json", "--plot", in_folder("plot.png")}));
            commands.push_back(
                with(calibrate, {"-o", in_folder("out.json"), "--plot", place + "_s0.png"}));
            commands.push_back({"simulate", "-o", place + ".png", "--polarizer-series", "0:15:15"});
        }
        for (Names const& command : commands) {
            for (Names const& more : {Names{}, Names{"--overwrite"}}) {
                Outcome const outcome = run_for_a_minute(with(command, more));
                expect_one_line(outcome, 1, ": cannot be written: it is " + kind);
                EXPECT_EQ(test_files::names_in(folder_ / "places"), names) << command.front();
                ++refused;
            }
        }
        EXPECT_TRUE(
            start == "link" ? std::filesystem::is_symlink(place + "_s0.png")
                            : !std::filesystem::is_regular_file(place + "_s0.png"));
    }
    close(socket_number);
    EXPECT_EQ(test_files::read(folder_ / "target").size(), 4U);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "out.json"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "plot.png"));
    std::printf("%u refusals\n", refused);
}

} // namespace
