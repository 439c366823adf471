/// @file
/// A JSON file beside each plane that says what its numbers mean.
#pragma once

#include "input/frame_finding.hpp"
#include "input/input_options.hpp"
#include "output/processing.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// Where the numbers come from, as far as all frames of a run share it.
struct Origin {
    int shift = 0;
    /// Whose mean was subtracted.
    std::vector<std::filesystem::path> dark_files{};
    std::optional<polarization::Region> region;
    std::filesystem::path calibration_file;
    std::optional<polarization::Calibration> calibration;
    /// Of the calibration's maps, if it has any.
    std::string maps_hash{};
};

/// The text of the sidecar of `plane` in `file`.
std::string sidecar(
    polarization::Plane plane, std::filesystem::path const& file, Array_view const& array,
    Frame_place const& place, Processing const& processing, Origin const& origin);

} // namespace polarize_tool
