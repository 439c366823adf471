/// @file
/// What pictures with axes have in common.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace polarize_tool {

inline cv::Scalar const ink(60, 50, 45);
inline cv::Scalar const grid(228, 224, 222);
inline cv::Scalar const paper(255, 255, 255);

void write_text(
    cv::Mat& picture, std::string const& text, cv::Point place, cv::Scalar const& colour = ink);

} // namespace polarize_tool
