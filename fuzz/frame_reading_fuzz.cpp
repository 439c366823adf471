/// @file
/// Any bytes as an image file. A reader may refuse them with a line for the user; everything else,
/// a frame without all its samples included, ends the process.

#include "memory_file.hpp"

#include "veldrane_mrv/polarization/frame_source.hpp"

namespace polarization = veldrane_mrv::polarization;

using fuzz::Memory_file;
using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Memory_file const file;
    file.write({data, size});
    try {
        polarization::Frame const frame = polarization::read_frame(file.path());
        require(frame.width != 0 && frame.height != 0, "an empty frame was read");
        require(frame.samples.size() == frame.width * frame.height, "samples are missing");
    } catch (polarization::File_failure const&) {
        return 0;
    }
    return 0;
}
