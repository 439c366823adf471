/// @file
/// The quality of a calibration in its text.
#pragma once

#include "json_node.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"

#include <string>

namespace veldrane_mrv::polarization {

/// @throws Argument_error with the figure's name if the number is infinite or NaN
double finite(double number, std::string const& figure);

/// @throws Argument_error if a number is infinite or NaN
Json quality_json(Calibration const& calibration, int version);

/// All but the common offset, which follows from the analysers.
/// @throws File_error
Calibration_quality read_quality(Node const& node, std::size_t version);

/// @throws File_error
Calibration_model read_model(Node const& node);

} // namespace veldrane_mrv::polarization
