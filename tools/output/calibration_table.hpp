/// @file
/// A calibration as text for a terminal.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"

#include <string>

namespace polarize_tool {

/// A line for each position of the mosaic's cell, then the quality of the fit. Ends without a line
/// feed.
std::string calibration_table(veldrane_mrv::polarization::Calibration const& calibration);

} // namespace polarize_tool
