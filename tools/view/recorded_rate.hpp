/// @file
/// How fast frames of recordings followed one another.
#pragma once

#include "input/frame_finding.hpp"

#include <optional>
#include <vector>

namespace polarize_tool {

/// Frames a second by the camera's clock, from the usual time between two neighbours in a file:
/// some frames are lost, and no clock runs through two recordings. Nothing if no file tells its
/// times.
std::optional<double> recorded_rate(std::vector<Frame_place> const& frames);

} // namespace polarize_tool
