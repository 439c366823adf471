/// @file
/// Measured and fitted means over the angle of the polariser, as a picture.
#pragma once

#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <opencv2/core.hpp>
#include <span>

namespace polarize_tool {

/// A colour for each position of the cell: circles are measured (per unit of source intensity),
/// lines fitted; below them what is left between the two, enlarged.
cv::Mat calibration_plot(
    veldrane_mrv::polarization::Calibration const& calibration,
    std::span<veldrane_mrv::polarization::Series_point const> series, double source_degree);

} // namespace polarize_tool
