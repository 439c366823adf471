/// @file
/// The means of a frame of a uniform source behind a linear polariser, which a calibration is
/// estimated from.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <optional>
#include <string>

namespace veldrane_mrv::polarization {

/// A frame of the series.
struct Uniform_frame {
    Frame_view frame;
    /// Transmission axis of the polariser in degrees, zero direction and sense as in the mosaic's
    /// layout.
    double polariser_angle;
    /// Light behind the polariser relative to the other frames, from a monitor for instance.
    double source_intensity = 1;
    /// Name for messages and provenance.
    std::string source{};
};

/// What of a frame enters the fit. A series can be measured frame by frame, so that only one need
/// be in memory.
struct Series_point {
    double polariser_angle;
    double source_intensity = 1;
    /// Indexed by `cell_position`; dark levels are still in them.
    std::array<double, 4> means{};
    Size size{};
    std::string source{};
};

enum class Average {
    mean,
    /// Without the lowest and the highest 5 % of samples: hot pixels, dust.
    trimmed_mean
};

struct Estimation_options {
    /// Significant bits of the samples; decides which are saturated and which frames too dark.
    int bit_depth = 16;
    /// All of the frame if not given. The middle is wise: lenses darken the corners.
    std::optional<Region> region;
    Average average = Average::trimmed_mean;
    /// Degree of polarisation of the light behind the polariser, above 0.
    double source_degree = 1;
    /// Mean samples without light, indexed by `cell_position`, taken off the means; zeros if a dark
    /// frame has been subtracted from the frames before.
    std::optional<std::array<double, 4>> dark_levels;
    /// Largest distance in degrees of a fitted orientation from the mosaic's, above 0 and at most
    /// `farthest_orientation`.
    double largest_misalignment = 15;
    std::string sensor;
};

/// The means of one frame.
/// @throws Argument_error if the region leaves the frame or holds less than one cell, if more than
///        one sample in a thousand is saturated, if the mean above dark is below 1 % of the full
///        scale, or if a number is not usable
Series_point measure(Uniform_frame const& frame, Estimation_options const& options);

} // namespace veldrane_mrv::polarization
