/// @file
/// A JSON file beside each plane that says what its numbers mean.
#pragma once

#include "input/frame_finding.hpp"
#include "input/input_options.hpp"
#include "output/processing.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
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
    /// Of bare samples.
    std::optional<Raw_layout> pixel_format{};
};

/// The text of the sidecar of `plane` in `file`.
std::string sidecar(
    polarization::Plane plane, std::filesystem::path const& file, Array_view const& array,
    Frame_place const& place, Processing const& processing, Origin const& origin);

/// The same once for all planes of all frames of a stack, without the frames that are missing in
/// it.
/// @param files of the planes, in their order
nlohmann::ordered_json stack_description(
    std::vector<std::filesystem::path> const& files, std::vector<Frame_place> const& frames,
    polarization::Size const& size, Processing const& processing, Origin const& origin);

} // namespace polarize_tool
