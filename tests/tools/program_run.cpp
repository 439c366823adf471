#include "program_run.hpp"

#include "test_files.hpp"

#include <algorithm>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace program_run {
namespace {

std::string text_of(std::filesystem::path const& file) {
    auto const bytes = test_files::read(file);
    return {bytes.begin(), bytes.end()};
}

} // namespace

Outcome run_command(std::vector<std::string> const& command) {
    test_files::Folder const folder;
    auto const output = folder / "out";
    auto const errors = folder / "err";
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
    pid_t process = 0;
    int const failed = posix_spawn(
        &process, command.front().c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (failed != 0 || waitpid(process, &status, 0) != process) {
        throw std::runtime_error("cannot run " + command.front());
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(output), text_of(errors)};
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
