/// @file
/// A calibration from frames of a uniform source behind a linear polariser at known angles.
///
/// For each position of the mosaic's cell the mean sample of a frame is, with the polariser at
/// theta and a source of intensity L behind it,
///
///   I(theta) = L * T / 2 * (1 + D * cos(2 (theta - phi))) = x0 + x1 cos(2 theta) + x2 sin(2 theta)
///
/// which is linear in x; least squares over all frames give it. T * L = 2 x0, D = |(x1, x2)| / x0
/// and phi = atan2(x2, x1) / 2. The series cannot tell L from T: the scale is fixed by a mean
/// throughput of 1 over the four positions, as an ideal sensor has it.
///
/// Every sample of a position enters through the mean alone, so the noise of n samples and N frames
/// falls with the square root of n * N, and one weight serves all pixels of a position.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
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

/// @throws Argument_error if there are fewer than three angles that differ by at least a degree
///        modulo 180, or more than 120 degrees between neighbouring ones; if the frames differ in
///        size; if a fitted orientation is far from the mosaic's, with what would fit instead; if
///        the samples do not follow the polariser
Calibration estimate_calibration(
    std::span<Series_point const> series, Mosaic const& mosaic, Estimation_options const& options);

/// Both steps for frames in memory.
/// @throws Argument_error as above
Calibration estimate_calibration(
    std::span<Uniform_frame const> frames, Mosaic const& mosaic, Estimation_options const& options);

} // namespace veldrane_mrv::polarization
