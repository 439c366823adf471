/// @file
/// What to make of a library in C that has failed.
#pragma once

#include <cerrno>
#include <new>

namespace veldrane_mrv::polarization {

/// Libraries in C say that they failed, but not whether the file or the memory was to blame. What
/// they call to take memory leaves a trace.
class Memory_watch {
public:
    Memory_watch() { errno = 0; }
    /// For a failure of what was called since.
    /// @throws std::bad_alloc if memory was refused meanwhile
    void throw_if_refused() const {
        if (errno == ENOMEM) {
            throw std::bad_alloc();
        }
    }
};

} // namespace veldrane_mrv::polarization
