/// @file
/// Sizes and parts of frames. Columns come before rows, as in "2448 x 2048".
#pragma once

#include <cstddef>
#include <string>

namespace veldrane_mrv::polarization {

struct Size {
    std::size_t width = 0;
    std::size_t height = 0;

    bool operator==(Size const&) const = default;
};

/// Part of a frame, whose first column and row are 0.
struct Region {
    std::size_t column = 0;
    std::size_t row = 0;
    std::size_t width = 0;
    std::size_t height = 0;

    Size size() const { return {width, height}; }

    bool operator==(Region const&) const = default;
};

/// All of a frame.
constexpr Region region_of(Size const& frame) {
    return {0, 0, frame.width, frame.height};
}

/// Whether all of the region lies in the frame and there is a pixel in it.
bool fits(Region const& region, Size const& frame);

/// Such as "2448 x 2048".
std::string to_string(Size const& size);

/// Such as "640 x 480 at column 16, row 8".
std::string to_string(Region const& region);

} // namespace veldrane_mrv::polarization
