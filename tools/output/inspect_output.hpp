/// @file
/// An inspection as text for people and as JSON for programs.
#pragma once

#include "veldrane_mrv/polarization/inspection.hpp"

#include <optional>
#include <string>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// Lines without a line feed at the end.
std::string inspection_text(
    std::string const& name, polarization::Inspection const& inspection,
    std::optional<polarization::Phase_answer> const& answer);

/// One JSON object on one line.
std::string inspection_json(
    std::string const& name, polarization::Inspection const& inspection,
    std::optional<polarization::Phase_answer> const& answer);

/// What a frame without a known polariser tells about the phase, and how to find out more.
std::string phase_advice();

/// Remarks that a user should act upon: saturation, left-aligned samples, an unlikely mosaic.
std::vector<std::string> inspection_warnings(polarization::Inspection const& inspection);

/// A number with so many decimals.
std::string decimal(double value, int decimals);

} // namespace polarize_tool
