/// @file
/// The log that a scenario leaves behind: what it did, and every call that the module made.

#pragma once

namespace lifecycle {

/// Adds one line, without its line feed. It goes to standard output at once, unbuffered and without
/// allocation: lines are written while the process exits and while allocations are made to fail.
[[gnu::format(printf, 1, 2)]] void note(char const* format, ...);

/// Ends the process after one line on standard error, when a scenario cannot be run at all.
[[noreturn]] void give_up(char const* what, char const* detail);

} // namespace lifecycle
