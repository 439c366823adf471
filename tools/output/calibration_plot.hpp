/// @file
/// Measured and fitted means over the angle of the polariser, as a picture.
#pragma once

#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <cstdint>
#include <opencv2/core.hpp>
#include <span>
#include <vector>

namespace polarize_tool {

/// A colour for each position of the cell: circles are measured (per unit of source intensity),
/// lines fitted; below them what is left between the two, enlarged.
cv::Mat calibration_plot(
    veldrane_mrv::polarization::Calibration const& calibration,
    std::span<veldrane_mrv::polarization::Series_point const> series, double source_degree);

/// A PNG that says that it is a plot of a calibration, by which it is told from frames.
std::vector<std::uint8_t> marked_as_plot(std::vector<std::uint8_t> png);

} // namespace polarize_tool
