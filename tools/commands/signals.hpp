/// @file
/// The program's signals.
#pragma once

namespace polarize_tool {

/// From now on the first SIGINT, SIGTERM or SIGHUP requests the interruption. A second one, half a
/// second later or more, and the first SIGQUIT, removes what is staged and ends the program at
/// once, wherever it may hang: a pipe that nobody reads, a disk that has gone away. SIGHUP and
/// SIGQUIT stay ignored if they were, as under nohup. SIGPIPE and SIGXFSZ become errors of the
/// write that caused them.
void catch_interruptions();

} // namespace polarize_tool
