/// @file
/// Runs the built program as a user would.
#ifndef VELDRANE_TESTS_TOOLS_PROGRAM_RUN_HPP
#define VELDRANE_TESTS_TOOLS_PROGRAM_RUN_HPP

#include "test_files.hpp"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace program_run {

struct Outcome {
    int code; // -1 if the program did not exit by itself
    std::string output;
    std::string errors;
};

/// A program with an empty standard input, from its start to `wait`.
class Running_program {
public:
    /// `command` starts with the program's path.
    explicit Running_program(std::vector<std::string> const& command);
    /// Ends the program if nobody has waited for it.
    ~Running_program();
    Running_program(Running_program const&) = delete;
    Running_program& operator=(Running_program const&) = delete;

    bool is_running();
    /// False if the program still runs after that time.
    bool ends_within(std::chrono::seconds time);
    void send(int signal) const;
    Outcome wait();

private:
    test_files::Folder folder_;
    pid_t process_ = 0;
    int status_ = 0;
    bool has_ended_ = false;
};

/// veldrane-polarize with `arguments`.
Outcome run(std::vector<std::string> const& arguments);

/// Any program; `command` starts with its path.
Outcome run_command(std::vector<std::string> const& command);

/// Lines of a text that ends with a line feed, or is empty.
std::size_t line_count(std::string const& text);

} // namespace program_run

#endif
