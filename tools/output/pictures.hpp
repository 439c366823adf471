/// @file
/// Pictures for the eye, made from the azimuth and the degree plane.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <span>

namespace polarize_tool {

/// The level 0 to 255 at which an sRGB display gives off `linear` of its most light; limited to 0
/// and 1.
std::uint8_t display_level(double linear);

/// Two planes of one frame on the scale 0 to `full_scale`.
struct Picture_source {
    std::span<std::uint16_t const> azimuth;
    std::span<std::uint16_t const> degree;
    std::size_t width;
    std::size_t height;
    unsigned full_scale;
};

/// The angle as hue, dimmed by the degree of polarisation. Angles 0 and 180 have one hue; all hues
/// of one degree look equally bright, so that brightness tells the degree alone.
cv::Mat angle_degree_picture(Picture_source const& source);

/// The degree on a perceptually uniform scale of colours, from 0 (black) to 1 (pale yellow). Needs
/// no azimuth.
cv::Mat degree_picture(Picture_source const& source);

} // namespace polarize_tool
