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
#include "veldrane_mrv/polarization/calibration_measure.hpp"

#include <span>

namespace veldrane_mrv::polarization {

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
