/// @file
/// Runs the built program as a user would.
#ifndef VELDRANE_TESTS_TOOLS_PROGRAM_RUN_HPP
#define VELDRANE_TESTS_TOOLS_PROGRAM_RUN_HPP

#include <string>
#include <vector>

namespace program_run {

struct Outcome {
    int code; // -1 if the program did not exit by itself
    std::string output;
    std::string errors;
};

/// veldrane-polarize with `arguments`; an empty standard input.
Outcome run(std::vector<std::string> const& arguments);

/// Any program; `command` starts with its path.
Outcome run_command(std::vector<std::string> const& command);

/// Lines of a text that ends with a line feed, or is empty.
std::size_t line_count(std::string const& text);

} // namespace program_run

#endif
