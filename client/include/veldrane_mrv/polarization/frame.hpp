/// @file
/// A raw frame that owns its memory.
#pragma once

#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldrane_mrv::polarization {

/// Samples row by row without padding, in host byte order; width * height of them.
struct Frame {
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<std::uint16_t> samples;

    Size size() const { return {width, height}; }

    /// Valid until the samples are changed or die.
    /// @throws Argument_error if an invariant of the view would not hold
    Frame_view view() const { return {samples, height, width}; }
};

} // namespace veldrane_mrv::polarization
