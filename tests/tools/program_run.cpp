#include "program_run.hpp"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace program_run {
namespace {

std::string text_of(std::filesystem::path const& file) {
    auto const bytes = test_files::read(file);
    return {bytes.begin(), bytes.end()};
}

} // namespace

Running_program::Running_program(std::vector<std::string> const& command) {
    auto const output = folder_ / "out";
    auto const errors = folder_ / "err";
    std::vector<char*> arguments;
    for (std::string const& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    int const create = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), create, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), create, 0600);
    // Whoever started the tests may ignore signals, as nohup does; the program inherits that.
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int const signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
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
        WIFEXITED(status_) ? WEXITSTATUS(status_) : -1, text_of(folder_ / "out"),
        text_of(folder_ / "err")};
}

Outcome run_command(std::vector<std::string> const& command) {
    return Running_program(command).wait();
}

Outcome run(std::vector<std::string> const& arguments) {
    std::vector<std::string> command = {POLARIZE_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_command(command);
}

std::size_t line_count(std::string const& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace program_run
