/// @file
/// Any bytes as an image file. A reader may refuse them with a line for the user; everything else,
/// a frame without all its samples included, ends the process.

#include "failure.hpp"
#include "frame_reading.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// A file without a name, in memory.
class Memory_file {
public:
    Memory_file() : descriptor_{memfd_create("frame", MFD_CLOEXEC)} {}
    ~Memory_file() { close(descriptor_); }
    Memory_file(Memory_file const&) = delete;
    Memory_file& operator=(Memory_file const&) = delete;

    bool write(std::uint8_t const* data, std::size_t size) const {
        return ftruncate(descriptor_, 0) == 0 &&
               pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size);
    }

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

void require(bool condition, char const* what) {
    if (!condition) {
        std::fprintf(stderr, "frame_reading_fuzz: %s\n", what);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Memory_file const file;
    require(file.write(data, size), "the input cannot be written to a file in memory");
    try {
        polarize_tool::Frame const frame = polarize_tool::read_frame(file.path());
        require(frame.width != 0 && frame.height != 0, "an empty frame was read");
        require(frame.samples.size() == frame.width * frame.height, "samples are missing");
    } catch (polarize_tool::File_failure const&) {
        return 0;
    }
    return 0;
}
