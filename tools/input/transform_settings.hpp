/// @file
/// From the command line to what the transform needs to know about mosaic, scale and weights.
#pragma once

#include "input/frame_preparation.hpp"
#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <filesystem>
#include <optional>

namespace polarize_tool {

struct Transform_settings {
    /// For the first pixel of the region, which becomes that of the frame.
    polarization::Settings settings;
    /// As the file has it, for the whole sensor; empty for ideal analysers.
    std::optional<polarization::Calibration> calibration;
};

/// @param calibration_file empty for ideal analysers; else it tells the mosaic, and `mosaic` may
///        only repeat it
/// @throws Usage_error, and what polarization::load_calibration throws
Transform_settings transform_settings(
    Mosaic_options const& mosaic, std::filesystem::path const& calibration_file,
    std::optional<unsigned> full_scale, Frame_preparation const& preparation);

} // namespace polarize_tool
