/// @file
/// A calibration as text for a terminal.
#pragma once

#include "veldrane_mrv/polarization/photon_transfer.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <string>

namespace polarize_tool {

/// A line for each position of the mosaic's cell, then the quality of the fit. Ends without a line
/// feed.
std::string calibration_table(veldrane_mrv::polarization::Calibration const& calibration);

/// Of a calibration with maps: how many pixels are bad and why, median and spread of each map, and
/// how well each model explains the frame held out. Ends without a line feed.
std::string map_table(veldrane_mrv::polarization::Measured_calibration const& measured);

/// A line without its feed.
std::string noise_line(veldrane_mrv::polarization::Photon_transfer const& transfer);

} // namespace polarize_tool
