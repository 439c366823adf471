/// @file
/// Pictures as the contents of PNG files.
#pragma once

#include "veldrane_mrv/polarization/pictures.hpp"

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// PNG of 8 or 16 bits, grey or in OpenCV's order of colours.
std::vector<std::uint8_t> encode_png(cv::Mat const& picture);
std::vector<std::uint8_t> encode_png(polarization::Colour_picture const& picture);

/// A copy in OpenCV's order of colours.
cv::Mat matrix_of(polarization::Colour_picture const& picture);

} // namespace polarize_tool
