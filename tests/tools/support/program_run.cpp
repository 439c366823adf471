#include "program_run.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace program_run {
namespace {

constexpr std::size_t page_bytes = 4096; // a pipe gives room in whole pages

std::string text_of(std::filesystem::path const& file) {
    auto const bytes = test_files::read(file);
    return {bytes.begin(), bytes.end()};
}

constexpr char const* terminal_program = "/usr/bin/script";

// One word for a shell, whatever it holds.
std::string quoted(std::string const& word) {
    std::string result = "'";
    for (char const letter : word) {
        result += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return result + "'";
}

} // namespace

Running_program::Running_program(
    std::vector<std::string> const& command, int standard_output, int standard_input)
    : keeps_output_(standard_output < 0) {
    auto const output = folder_ / "out";
    auto const errors = folder_ / "err";
    std::vector<char*> arguments;
    for (std::string const& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (standard_input < 0) {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    } else {
        posix_spawn_file_actions_adddup2(&actions, standard_input, STDIN_FILENO);
    }
    int const create = O_WRONLY | O_CREAT | O_TRUNC;
    if (keeps_output_) {
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), create, 0600);
    } else {
        posix_spawn_file_actions_adddup2(&actions, standard_output, STDOUT_FILENO);
    }
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), create, 0600);
    // Whoever started the tests may ignore signals, as nohup does; the program inherits that.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int const signal : {SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM}) {
        sigaddset(&defaults, signal);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    int const failed = posix_spawn(
        &process_, command.front().c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        throw std::runtime_error("cannot run " + command.front());
    }
}

Running_program::~Running_program() {
    if (is_running()) {
        send(SIGKILL);
        waitpid(process_, &status_, 0);
    }
}

bool Running_program::is_running() {
    has_ended_ = has_ended_ || waitpid(process_, &status_, WNOHANG) == process_;
    return !has_ended_;
}

bool Running_program::ends_within(std::chrono::seconds time) {
    auto const deadline = std::chrono::steady_clock::now() + time;
    while (is_running() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return !is_running();
}

void Running_program::send(int signal) const {
    if (!has_ended_) {
        kill(process_, signal);
    }
}

Outcome Running_program::wait() {
    if (!has_ended_ && waitpid(process_, &status_, 0) != process_) {
        throw std::runtime_error("the program is lost");
    }
    has_ended_ = true;
    return {
        WIFEXITED(status_) ? WEXITSTATUS(status_) : -1,
        keeps_output_ ? text_of(folder_ / "out") : std::string(), text_of(folder_ / "err")};
}

Full_pipe::Full_pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    std::array<char, page_bytes> const filling{};
    while (write(ends_[1], filling.data(), filling.size()) > 0) {
    }
    // The reading end stays as it is; the program's is to wait.
    fcntl(ends_[1], F_SETFL, 0);
}

Full_pipe::~Full_pipe() {
    for (int const end : ends_) {
        close(end);
    }
}

void Full_pipe::take_a_page() {
    std::array<char, page_bytes> taken;
    [[maybe_unused]] ssize_t const size = read(ends_[0], taken.data(), taken.size());
}

void Full_pipe::take_all() {
    std::array<char, page_bytes> taken;
    while (read(ends_[0], taken.data(), taken.size()) > 0) {
    }
}

Outcome run_command(std::vector<std::string> const& command) {
    return Running_program(command).wait();
}

Outcome run(std::vector<std::string> const& arguments) {
    std::vector<std::string> command = {POLARIZE_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_command(command);
}

Outcome run_without_room_for_output(std::vector<std::string> const& command) {
    int const full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    if (full < 0) {
        throw std::runtime_error("cannot open /dev/full");
    }
    Running_program program(command, full);
    close(full);
    return program.wait();
}

std::string terminal_problem() {
    if (!std::filesystem::exists(terminal_program)) {
        return std::string(terminal_program) + " is not installed";
    }
    int const terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    bool const is_open = terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0;
    std::string const problem =
        is_open ? "" : std::string("no pseudo-terminal can be opened: ") + std::strerror(errno);
    close(terminal);
    return problem;
}

Outcome run_in_terminal(std::vector<std::string> const& command) {
    std::string line;
    for (std::string const& word : command) {
        line += quoted(word) + " ";
    }
    // `script` hands the line to $SHELL, which need not be one that reads it so.
    return run_command(
        {"/usr/bin/env", "SHELL=/bin/sh", terminal_program, "-qec", line, "/dev/null"});
}

void expect_one_line(Outcome const& outcome, int code, std::string const& words) {
    EXPECT_EQ(outcome.code, code) << outcome.errors;
    EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
    EXPECT_EQ(outcome.errors.find("veldrane-polarize: "), 0U) << outcome.errors;
    EXPECT_NE(outcome.errors.find(words), std::string::npos) << words << ": " << outcome.errors;
}

std::size_t line_count(std::string const& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace program_run
