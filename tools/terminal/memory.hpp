/// @file
/// What to do where memory is short.
#pragma once

#include <exception>

namespace polarize_tool {

/// std::bad_alloc, what a container throws for more than there can be, or what OpenCV throws in
/// their place.
bool is_lack_of_memory(std::exception const& error);

/// Libraries in C say that they failed, but not whether the file or the memory was to blame. What
/// they call to take memory leaves a trace.
class Memory_watch {
public:
    Memory_watch();
    /// For a failure of what was called since.
    /// @throws std::bad_alloc if memory was refused meanwhile
    void throw_if_refused() const;
};

} // namespace polarize_tool
