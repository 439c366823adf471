/// @file
/// The angle of the polariser for each frame of a series, from a table or from the frames' names.
#pragma once

#include "input/frame_finding.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// Angle in degrees and light relative to the other frames.
struct Polariser_setting {
    double angle = 0.0;
    double intensity = 1.0;
};

/// The number behind the last `angle_` in a file's name: 45 for `cal_angle_045.0.png`.
std::optional<double> angle_in_name(std::filesystem::path const& file);

/// For each frame the setting in a table in UTF-8 of values separated by commas, or by semicolons
/// or tabs if the first line is, with or without a byte order mark. Its first line names the
/// columns, in any case: `file` (a name, with or without folders), `angle`, and, if wanted,
/// `intensity` and `frame` (the number in a file of many). Numbers are decimal, with a point, or a
/// comma where it does not separate. Rows for other files do not matter.
/// @throws File_failure naming the line, or the frame that has no row; also for a second row for
///         one name, wherever the files lie
std::vector<Polariser_setting> settings_from_table(
    std::filesystem::path const& table, std::vector<Frame_place> const& frames);

/// The same from the names alone.
/// @throws File_failure for a frame whose name tells no angle
std::vector<Polariser_setting> settings_from_names(std::vector<Frame_place> const& frames);

} // namespace polarize_tool
