/// @file
/// What the targets that read files have in common: the input as a file, and what ends a process.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <span>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

inline void require(bool condition, char const* what) {
    if (!condition) {
        std::fprintf(stderr, "fuzz target: %s\n", what);
        std::abort();
    }
}

/// A file without a name, in memory.
class Memory_file {
public:
    Memory_file() : descriptor_{memfd_create("input", MFD_CLOEXEC)} {}
    ~Memory_file() { close(descriptor_); }
    Memory_file(Memory_file const&) = delete;
    Memory_file& operator=(Memory_file const&) = delete;

    void write(std::span<std::uint8_t const> bytes) const {
        require(
            ftruncate(descriptor_, 0) == 0 && pwrite(descriptor_, bytes.data(), bytes.size(), 0) ==
                                                  static_cast<ssize_t>(bytes.size()),
            "the input cannot be written to a file in memory");
    }

    void write(std::string const& text) const {
        write({reinterpret_cast<std::uint8_t const*>(text.data()), text.size()});
    }

    std::filesystem::path path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

} // namespace fuzz
