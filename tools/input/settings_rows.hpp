/// @file
/// How planes are made, for the reader of a page.
#pragma once

#include "input/frame_preparation.hpp"
#include "input/transform_settings.hpp"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace polarize_tool {

/// Label and value, in the order of the page. Plain text.
using Rows = std::vector<std::pair<std::string, std::string>>;

/// From the region to the full scale.
/// @param calibration_file empty without a calibration
/// @param of_dark what is said if a dark level is taken off
Rows settings_rows(
    Frame_preparation const& preparation, Transform_settings const& transform,
    polarization::Mode mode, std::filesystem::path const& calibration_file,
    std::string const& of_dark = "subtracted");

} // namespace polarize_tool
