// veldrane-polarize process - and -o -: frames from a pipe and planes into one are those of files,
// byte for byte; whichever side stalls, closes or brings garbage, the end is one line.
#include "process_fixture.hpp"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using program_run::Running_program;

constexpr std::size_t width = 47;
constexpr std::size_t height = 21;
constexpr std::size_t frame_bytes = height * ((width * 12 + 7) / 8);

class Process_pipes : public Process_command {
protected:
    void SetUp() override {
        Process_command::SetUp();
        std::string bytes;
        for (std::size_t place = 0; place < 5 * frame_bytes; ++place) {
            bytes += static_cast<char>(place * 89 + place / 251);
        }
        recording_ = bytes;
        test_files::write(run_raw(), bytes);
    }

    std::string run_raw() const { return in_folder("run.raw"); }

    Names command(std::string const& input, std::string const& output, Names const& more) const {
        Names words = {
            POLARIZE_PROGRAM,
            "process",
            input,
            "-o",
            output,
            "--phase",
            "1",
            "--pixel-format",
            "Mono12p",
            "--width",
            std::to_string(width),
            "--height",
            std::to_string(height)};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    // What a shell makes of `pipeline`, in which $0 is the program with `words`.
    Outcome piped(std::string const& before, Names const& words, std::string const& behind) const {
        Names shell = {
            "/bin/bash", "-c", "set -o pipefail; " + before + " | \"$@\" " + behind, "pipeline"};
        shell.insert(shell.end(), words.begin(), words.end());
        return program_run::run_command(shell);
    }

    std::vector<std::uint8_t> planes_of_files(Names const& planes) const {
        std::vector<std::uint8_t> all;
        for (std::size_t frame = 0; frame < 5; ++frame) {
            for (std::string const& plane : planes) {
                auto const bytes = test_files::read(
                    result("run_00000" + std::to_string(frame) + "_" + plane + ".raw"));
                EXPECT_FALSE(bytes.empty());
                all.insert(all.end(), bytes.begin(), bytes.end());
            }
        }
        return all;
    }

    std::string recording_;
};

// A program whose standard input and output are pipes of the test.
class Program_between_pipes {
public:
    explicit Program_between_pipes(Names const& command) {
        EXPECT_EQ(pipe2(input_.data(), O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(output_.data(), O_CLOEXEC), 0);
        std::signal(SIGPIPE, SIG_IGN);
        program_.emplace(command, output_[1], input_[0]);
        close(std::exchange(input_[0], -1));
        close(std::exchange(output_[1], -1));
    }
    ~Program_between_pipes() {
        end_input();
        close_output();
    }

    void put(std::string const& bytes) const {
        EXPECT_EQ(write(input_[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::size_t take(std::size_t count) const {
        std::vector<char> bytes(count);
        std::size_t taken = 0;
        while (taken < count) {
            ssize_t const part = read(output_[0], bytes.data() + taken, count - taken);
            if (part <= 0) {
                break;
            }
            taken += static_cast<std::size_t>(part);
        }
        return taken;
    }
    void end_input() { close(std::exchange(input_[1], -1)); }
    void close_output() { close(std::exchange(output_[0], -1)); }
    Running_program& program() { return *program_; }

private:
    std::array<int, 2> input_{-1, -1};
    std::array<int, 2> output_{-1, -1};
    std::optional<Running_program> program_;
};

constexpr std::size_t plane_bytes = 2 * width * height;

TEST_F(Process_pipes, planes_are_those_of_files_whatever_is_a_pipe) {
    Names const planes = {"s0", "azimuth", "dolp", "normalized_stokes", "validity"};
    // In an order of their own on the command line.
    Names const options = {"--planes", "validity,dolp,azimuth,normalized_stokes,s0"};
    Names to_files = options;
    to_files.insert(to_files.end(), {"--format", "raw"});
    ASSERT_EQ(program_run::run_command(command(run_raw(), results(), to_files)).code, 0);
    auto const expected = planes_of_files(planes);
    for (std::string const jobs : {"1", "3"}) {
        Names words = options;
        words.insert(words.end(), {"--jobs", jobs});
        std::string const out = in_folder("out" + jobs);
        Outcome const both = piped("cat " + run_raw(), command("-", "-", words), "| cat > " + out);
        EXPECT_EQ(both.code, 0) << both.errors;
        EXPECT_NE(both.errors.find("5 of 5 frames"), std::string::npos) << both.errors;
        EXPECT_EQ(test_files::read(out), expected);
        Outcome const from_file =
            piped("true", command(run_raw(), "-", words), "> " + out + " 2> /dev/null");
        EXPECT_EQ(from_file.code, 0);
        EXPECT_EQ(test_files::read(out), expected);
        words.insert(words.end(), {"--format", "raw"});
        std::string const folder = in_folder("stream" + jobs);
        EXPECT_EQ(piped("cat " + run_raw(), command("-", folder, words), "").code, 0);
        for (std::string const& plane : planes) {
            EXPECT_EQ(
                test_files::read(folder + "/stdin_000003_" + plane + ".raw"),
                test_files::read(result("run_000003_" + plane + ".raw")));
        }
    }
}

TEST_F(Process_pipes, a_frame_is_out_while_its_writer_stalls) {
    for (std::string const jobs : {"1", "2"}) {
        Program_between_pipes pipes(command("-", "-", {"--planes", "dolp", "--jobs", jobs}));
        for (std::size_t frame = 0; frame < 3; ++frame) {
            pipes.put(recording_.substr(frame * frame_bytes, frame_bytes));
            EXPECT_EQ(pipes.take(plane_bytes), plane_bytes);
        }
        pipes.end_input();
        EXPECT_EQ(pipes.take(1), 0U);
        EXPECT_EQ(pipes.program().wait().code, 0);
    }
}

TEST_F(Process_pipes, a_signal_ends_a_run_whose_pipes_stall) {
    Program_between_pipes waits_for_frames(command("-", "-", {"--planes", "dolp"}));
    waits_for_frames.put(recording_.substr(0, frame_bytes + 100));
    EXPECT_EQ(waits_for_frames.take(plane_bytes), plane_bytes);
    waits_for_frames.program().send(SIGINT);
    Outcome const outcome = waits_for_frames.program().wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    EXPECT_NE(outcome.errors.find("interrupted"), std::string::npos);

    // More than any pipe of the program's holds, and nobody takes it.
    std::string many;
    for (int times = 0; times < 25; ++times) {
        many += recording_;
    }
    test_files::write(folder_ / "many.raw", many);
    Program_between_pipes waits_for_reader(command(in_folder("many.raw"), "-", {"-q"}));
    EXPECT_EQ(waits_for_reader.take(plane_bytes), plane_bytes);
    waits_for_reader.program().send(SIGTERM);
    expect_one_line(waits_for_reader.program().wait(), 130, "interrupted");
}

TEST_F(Process_pipes, a_reader_that_goes_away_is_a_line) {
    Program_between_pipes pipes(command("-", "-", {"--planes", "dolp"}));
    pipes.put(recording_.substr(0, frame_bytes));
    EXPECT_EQ(pipes.take(plane_bytes), plane_bytes);
    pipes.close_output();
    pipes.put(recording_.substr(frame_bytes, frame_bytes)); // and the input stays open
    expect_one_line(
        pipes.program().wait(), 1,
        "standard output: cannot be written: Broken pipe; 1 frame is done");
}

TEST_F(Process_pipes, a_stream_that_breaks_off_gives_its_whole_frames) {
    Names const options = {"--planes", "dolp", "-q"};
    std::string const two_and_a_part =
        "head -c " + std::to_string(2 * frame_bytes + 10) + " " + run_raw();
    Outcome const outcome = piped(two_and_a_part, command("-", results(), options), "");
    expect_one_line(
        outcome, 1,
        "standard input: ends within frame 2, after 10 of its " + std::to_string(frame_bytes) +
            " bytes; ");
    EXPECT_EQ(test_files::names_in(results()).size(), 4U);
    forget_results();
    expect_one_line(
        piped("true", command("-", results(), options), ""), 1, "standard input: is empty");
    expect_one_line(
        piped("cat " + good(), command("-", results(), options), ""), 1,
        "standard input: begins like a PNG image");
    expect_one_line(
        piped("cat " + run_raw(), command("-", results(), {"-q", "--start", "9"}), ""), 2,
        "leave no frame");
    EXPECT_FALSE(std::filesystem::exists(results()));
}

TEST_F(Process_pipes, frames_are_selected_and_numbered_as_in_a_file) {
    ASSERT_EQ(
        piped(
            "cat " + run_raw(),
            command("-", results(), {"--planes", "s0", "--start", "1", "--step", "2"}), "")
            .code,
        0);
    EXPECT_EQ(
        test_files::names_in(results()), (Names{
                                             "stdin_000001_s0.json", "stdin_000001_s0.tif",
                                             "stdin_000003_s0.json", "stdin_000003_s0.tif"}));
}

// A frame that fails leaves no gap: what is out are the frames before it.
TEST_F(Process_pipes, planes_end_where_a_frame_fails) {
    std::filesystem::copy_file(good(), folder_ / "a.png");
    test_files::write(folder_ / "b.png", "no picture");
    std::filesystem::copy_file(good(), folder_ / "c.png");
    Names const words = {
        POLARIZE_PROGRAM,
        "process",
        in_folder("[abc].png"),
        "-o",
        "-",
        "--phase",
        "1",
        "--bit-depth",
        "8",
        "--planes",
        "s0",
        "-q"};
    Outcome const outcome = program_run::run_command(words);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.output.size(), 2U * 40U * 20U);
    EXPECT_NE(outcome.errors.find("b.png: not a PNG"), std::string::npos) << outcome.errors;
    EXPECT_NE(outcome.errors.find("standard output: ends before"), std::string::npos);
    EXPECT_NE(outcome.errors.find("1 of 3 frames"), std::string::npos);
}

// Bare numbers do not tell where one size ends and the next begins.
TEST_F(Process_pipes, planes_end_where_the_size_of_frames_changes) {
    std::filesystem::copy_file(good(), folder_ / "a.png");
    test_files::write(folder_ / "b.pgm", "P5 20 40 255\n" + std::string(20 * 40, 'x'));
    std::filesystem::copy_file(good(), folder_ / "c.png");
    for (std::string const jobs : {"1", "3"}) {
        Outcome const outcome = program_run::run_command(
            {POLARIZE_PROGRAM, "process", in_folder("[abc].p*"), "-o", "-", "--phase", "1",
             "--bit-depth", "8", "--planes", "s0", "-q", "--jobs", jobs});
        EXPECT_EQ(outcome.output.size(), 2U * 40U * 20U);
        expect_one_line(
            outcome, 1,
            "b.pgm, which has 20 x 40 pixels and the frames before it 40 x 20; process it in a "
            "call of its own; 1 of 3 frames");
    }
}

TEST_F(Process_pipes, what_cannot_be_is_refused) {
    auto const expect = [](Names const& words, std::string const& line) {
        expect_one_line(program_run::run_command(words), 2, line);
    };
    expect(
        {POLARIZE_PROGRAM, "process", "-", "-o", results(), "--phase", "1"},
        "describe them by --pixel-format");
    expect({POLARIZE_PROGRAM, "inspect", "-"}, "- stands for standard input");
    expect(
        {POLARIZE_PROGRAM, "report", "-", "-o", in_folder("page.html"), "--phase", "1",
         "--bit-depth", "8"},
        "- stands for standard input");
    Names two = command("-", results(), {});
    two.insert(two.begin() + 2, run_raw());
    expect(two, "give it alone");
    expect(command(run_raw(), results(), {"--dark", "-"}), "- stands for standard input");
    expect(command("-", results(), {"--skip-existing"}), "--skip-existing passes over frames");
    expect(command("-", "-", {"--format", "npy"}), "--format is npy, but -o - writes bare numbers");
    expect(command("-", results(), {"--stack"}), "--stack takes its room");
    expect(command(run_raw(), "-", {"--stack"}), "--stack is about files");
    expect(command("-", "-", {"--overwrite"}), "--overwrite is about files");
    expect(command("-", "-", {"--pictures"}), "--pictures is about files");
}

TEST_F(Process_pipes, a_terminal_is_refused) {
    if (std::string const problem = program_run::terminal_problem(); !problem.empty()) {
        GTEST_SKIP() << problem;
    }
    Outcome const out = program_run::run_in_terminal(command(run_raw(), "-", {}));
    EXPECT_NE(
        out.output.find("-o - writes numbers to standard output, which is a terminal"),
        std::string::npos)
        << out.output;
    EXPECT_EQ(out.code, 2);
}

} // namespace
