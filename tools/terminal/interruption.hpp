/// @file
/// Ctrl-C, the system's request to end and a terminal that closes: work stops between two frames,
/// and nothing half-written stays.
#pragma once

#include <atomic>
#include <exception>

namespace polarize_tool {

/// Unwinds to main(), through the destructors that remove temporary files.
class Interrupted : public std::exception {
public:
    char const* what() const noexcept override;
};

/// Whether something stays now if the program is interrupted, with which another run can go on.
void leave_unfinished(bool something);

/// What is said then of files that stay if the program ends at once, such as a recording under way.
/// @param line lives until it is replaced; null if nothing of the kind stays
void tell_what_stays(char const* line);

/// Set by `request_interruption`, never cleared.
std::atomic<bool> const& interruption_flag();

void request_interruption();

/// @throws Interrupted if the flag is set
void throw_if_interrupted();

} // namespace polarize_tool
