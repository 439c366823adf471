/// @file
/// Ctrl-C, the system's request to end and a terminal that closes: work stops between two frames,
/// and nothing half-written stays.
#ifndef VELDRANE_TOOLS_INTERRUPTION_HPP
#define VELDRANE_TOOLS_INTERRUPTION_HPP

#include <atomic>
#include <exception>

namespace polarize_tool {

/// Unwinds to main(), through the destructors that remove temporary files.
class Interrupted : public std::exception {
public:
    char const* what() const noexcept override { return "interrupted; nothing half-written stays"; }
};

/// From now on SIGINT, SIGTERM and SIGHUP only set the flag, however often they come; under nohup
/// SIGHUP stays ignored. SIGPIPE and SIGXFSZ become errors of the write that caused them.
void catch_interruptions();

/// Set by the signals, never cleared.
std::atomic<bool> const& interruption_flag();

/// @throws Interrupted if a signal has come
void throw_if_interrupted();

} // namespace polarize_tool

#endif
