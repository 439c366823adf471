/// @file
/// From the command line to what the transform needs to know about mosaic, scale and weights.
#pragma once

#include "input/frame_preparation.hpp"
#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace polarize_tool {

struct Transform_settings {
    /// For the first pixel of the region, which becomes that of the frame.
    polarization::Settings settings;
    /// As the file has it, for the whole sensor; empty for ideal analysers.
    std::optional<polarization::Calibration> calibration;
};

/// @param calibration_file empty for ideal analysers; else it tells the mosaic, and `mosaic` may
///        only repeat it
/// @param zero_direction as for polarization::turned
/// @throws Usage_error, and what polarization::load_calibration throws
Transform_settings transform_settings(
    Mosaic_options const& mosaic, std::filesystem::path const& calibration_file,
    std::optional<unsigned> full_scale, Frame_preparation const& preparation,
    double zero_direction = 0);

/// Before the frame is cut: whether its pixels are those that the calibration has maps of.
/// @param has_region frames are whole ones, of which a region is cut out
/// @throws File_failure
void check_sensor(
    polarization::Size const& frame, std::string const& name,
    polarization::Calibration const& calibration, std::filesystem::path const& calibration_file,
    bool has_region);

} // namespace polarize_tool
