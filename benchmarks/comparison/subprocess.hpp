#pragma once

#include <string>
#include <vector>

struct Finished_process {
    int exit_status; ///< -1 if it could not be started or was ended by a signal
    std::string output, errors;

    /// Of what it said on standard error, or of what kept it from starting.
    std::string last_error_line() const;
};

/// Runs a program, looked for in PATH, with these words as they stand: no shell reads them.
Finished_process run_process(std::vector<std::string> const& words);
