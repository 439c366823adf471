/// @file
/// From the frames of a polariser series to a calibration, frame by frame.
#pragma once

#include "input/angle_list.hpp"
#include "input/frame_preparation.hpp"
#include "input/pixel_list.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

/// A series and how it is to be measured.
struct Calibration_series {
    std::vector<Frame_place> const& places;
    /// One for each frame.
    std::vector<Polariser_setting> const& settings;
    std::optional<Raw_layout> const& raw;
    /// Without a region: the mosaic is that of whole frames.
    Frame_preparation const& preparation;
    polarization::Mosaic mosaic;
    /// With the region and its dark levels.
    polarization::Estimation_options estimation;
    polarization::Calibration_model model;
    Pixel_list const& bad_pixels;
    std::optional<std::size_t> held_out;
    bool shows_progress;
};

/// Without residuals and bad pixels for the model `position`.
struct Measured_series {
    polarization::Measured_calibration result;
    std::vector<polarization::Series_point> points;
};

/// Mean dark level by position of the cell of whole frames, over the part in which the series is
/// measured.
std::array<double, 4> dark_levels_in(
    polarization::Dark_frame const& dark, std::optional<polarization::Region> const& region);

/// Which frame `wanted` names: by its number from 0 on, by its file's name, `none`, or if nothing
/// is wanted the one that the estimator chooses.
/// @throws Usage_error unless it names one
std::optional<std::size_t> frame_held_out(
    std::string const& wanted, std::vector<Frame_place> const& places,
    std::vector<Polariser_setting> const& settings);

/// Every frame that cannot be used is named, and then there is no calibration: one that silently
/// left out frames would not be what was asked for.
/// @throws File_failure in the name of `output` if there are such frames
/// @throws polarization::Argument_error if the frames do not make a calibration
Measured_series measure_series(
    Calibration_series const& series, std::filesystem::path const& output);

} // namespace polarize_tool
