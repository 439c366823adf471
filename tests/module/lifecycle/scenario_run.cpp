#include "scenario_run.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace lifecycle {
namespace {

struct Run_counts : testing::Environment {
    std::size_t processes = 0;
    std::size_t lines = 0;
    void TearDown() override {
        std::cout << "scenarios run: " << processes << ", lines of their logs: " << lines << '\n';
    }
};

// GoogleTest deletes it.
auto* const run_counts = new Run_counts;
[[maybe_unused]] auto const* const registered = testing::AddGlobalTestEnvironment(run_counts);

std::vector<std::string> command_of(Scenario const& scenario) {
    std::vector<std::string> command{
        scenario.client == Client::loads_it ? SCENARIO_PROGRAM : LINKED_SCENARIO_PROGRAM};
    std::istringstream steps(scenario.first_steps + " load " + scenario.steps);
    command.insert(command.end(), std::istream_iterator<std::string>(steps), {});
    return command;
}

std::vector<std::string> environment_of(Scenario const& scenario) {
    constexpr std::string_view search_path = "LD_LIBRARY_PATH=";
    std::vector<std::string> result;
    std::string others;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        std::string_view const text = *variable;
        if (text.starts_with(search_path)) {
            others.append(":").append(text.substr(search_path.size()));
        } else {
            result.emplace_back(text);
        }
    }
    result.push_back(
        std::string(search_path) + LOGGING_LIBRARIES + "/" + scenario.logging_library + others);
    return result;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::string read_to_end(int file) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t size = 0; (size = read(file, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
}

std::string without_figures(std::string const& text) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        ++run_counts->lines;
        if (line.starts_with('#')) {
            std::cout << line << '\n';
        } else {
            result += line + '\n';
        }
    }
    return result;
}

} // namespace

void PrintTo(Client client, std::ostream* stream) {
    *stream << (client == Client::loads_it ? "loads the module" : "is linked with the module");
}

std::string log_of(Scenario const& scenario) {
    auto command = command_of(scenario);
    auto environment = environment_of(scenario);
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    pid_t process = 0;
    int const failed = posix_spawn(
        &process, command.front().c_str(), &actions, nullptr, pointers_to(command).data(),
        pointers_to(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string const log = read_to_end(ends[0]);
    close(ends[0]);
    int status = 0;
    if (failed != 0 || waitpid(process, &status, 0) != process) {
        throw std::runtime_error("cannot run " + command.front());
    }
    ++run_counts->processes;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << scenario.steps << " with " << scenario.logging_library << " ended with status "
        << status;
    return without_figures(log);
}

} // namespace lifecycle
