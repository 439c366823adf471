/// @file
/// Pictures as the contents of PNG files.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace polarize_tool {

/// PNG of 8 or 16 bits, grey or in OpenCV's order of colours.
std::vector<std::uint8_t> encode_png(cv::Mat const& picture);

} // namespace polarize_tool
