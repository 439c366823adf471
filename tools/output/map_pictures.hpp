/// @file
/// Calibration maps as a picture.
#pragma once

#include "output/map_statistics.hpp"

#include <opencv2/core.hpp>
#include <string>

namespace polarize_tool {

/// For each of `shown_maps` the map in colours, their scale and the histogram, one below the other.
/// Maps of numbers that are usually the same are blue where a pixel is below that and red where it
/// is above; of the others black is the least. What is off the scale has the colour of its end.
cv::Mat map_pictures(polarization::Measured_calibration const& measured);

/// A number on a scale with two digits of `step`, the distance of its ticks, above 0: neighbours
/// stay apart however far from 0 they are.
std::string tick_text(double value, double step);

} // namespace polarize_tool
