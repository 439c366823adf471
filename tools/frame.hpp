/// @file
/// A raw frame in memory.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// Samples row by row without padding.
struct Frame {
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<std::uint16_t> samples;

    polarization::Frame_view view() const { return {samples, height, width}; }
};

} // namespace polarize_tool
