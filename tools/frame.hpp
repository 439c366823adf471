/// @file
/// A raw frame in memory.
#ifndef VELDRANE_TOOLS_FRAME_HPP
#define VELDRANE_TOOLS_FRAME_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace polarize_tool {

/// Samples row by row without padding.
struct Frame {
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<std::uint16_t> samples;
};

} // namespace polarize_tool

#endif
