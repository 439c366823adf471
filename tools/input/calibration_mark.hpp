/// @file
/// How calibrations and their plots are told from frames, among which they may lie.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace polarize_tool {

/// A PNG that says that it is a plot of a calibration.
std::vector<std::uint8_t> marked_as_plot(std::vector<std::uint8_t> png);

/// So many bytes from the start of a file are enough to tell.
inline constexpr std::size_t calibration_mark_reach = 256;

/// Whether a file that begins so is a calibration or a plot that was marked.
bool is_of_calibration(std::string_view start);

} // namespace polarize_tool
