/// @file
/// How the program ends where it cannot go on.
#pragma once

namespace polarize_tool {

/// Whatever the program was doing, if it cannot go on, not even to say so in a line of its own, it
/// removes its temporary files and ends with a line and the exit code of a failed input.
void end_cleanly_on_terminate();

} // namespace polarize_tool
