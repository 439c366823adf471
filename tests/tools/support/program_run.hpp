/// @file
/// Runs the built program as a user would.
#pragma once

#include "test_files.hpp"

#include <array>
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

/// A program with an empty standard input unless one is given, from its start to `wait`.
class Running_program {
public:
    /// `command` starts with the program's path. Standard output is kept, or goes where the open
    /// file of that number is.
    explicit Running_program(
        std::vector<std::string> const& command, int standard_output = -1, int standard_input = -1);
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
    bool keeps_output_;
    pid_t process_ = 0;
    int status_ = 0;
    bool has_ended_ = false;
};

/// A pipe that is full: whoever writes to it waits, until something is taken out.
class Full_pipe {
public:
    Full_pipe();
    ~Full_pipe();
    Full_pipe(Full_pipe const&) = delete;
    Full_pipe& operator=(Full_pipe const&) = delete;

    int writing_end() const { return ends_[1]; }
    void take_a_page();
    void take_all();

private:
    std::array<int, 2> ends_ = {-1, -1};
};

/// veldrane-polarize with `arguments`.
Outcome run(std::vector<std::string> const& arguments);

/// Any program; `command` starts with its path.
Outcome run_command(std::vector<std::string> const& command);

/// Any program, with a standard output that has no room for a single byte.
Outcome run_without_room_for_output(std::vector<std::string> const& command);

/// Why no program can be run in a terminal here; empty if it can.
std::string terminal_problem();

/// Any program in a terminal: `output` is all that the terminal shows. Only where there is no
/// `terminal_problem`.
Outcome run_in_terminal(std::vector<std::string> const& command);

/// Expects that exit code and one line of the program's on standard error, with `words` in it.
void expect_one_line(Outcome const& outcome, int code, std::string const& words = {});

/// Lines of a text that ends with a line feed, or is empty.
std::size_t line_count(std::string const& text);

} // namespace program_run
