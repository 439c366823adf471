#include "comparison/subprocess.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

/// What a process writes goes to memory: a pipe would fill up while the other one is read.
class Memory_file {
public:
    Memory_file() : file_(memfd_create("output", MFD_CLOEXEC)) {
        if (file_ < 0) {
            throw std::runtime_error(std::string("no memory file: ") + std::strerror(errno));
        }
    }
    Memory_file(Memory_file const&) = delete;
    Memory_file& operator=(Memory_file const&) = delete;
    ~Memory_file() { close(file_); }

    int number() const { return file_; }

    std::string text() const {
        std::string all;
        char part[4096];
        ssize_t count;
        while ((count = pread(file_, part, sizeof(part), static_cast<off_t>(all.size()))) > 0) {
            all.append(part, static_cast<std::size_t>(count));
        }
        return all;
    }

private:
    int file_;
};

} // namespace

std::string Finished_process::last_error_line() const {
    std::size_t const end = errors.find_last_not_of("\n ");
    if (end == std::string::npos) {
        return "it says nothing";
    }
    std::size_t const line = errors.rfind('\n', end);
    return errors.substr(line == std::string::npos ? 0 : line + 1, end - line);
}

Finished_process run_process(std::vector<std::string> const& words) {
    Memory_file const output, errors;
    std::vector<char*> arguments;
    for (std::string const& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.number(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors.number(), STDERR_FILENO);
    pid_t process;
    int const failure =
        posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        return {-1, "", std::strerror(failure)};
    }
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output.text(), errors.text()};
}
