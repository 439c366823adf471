/// @file
/// A series as the linear problem that its calibration solves.
#pragma once

#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <Eigen/Dense>

#include <vector>

namespace veldrane_mrv::polarization {

inline constexpr std::size_t parameters_per_position = 3;

/// Above it a residual is worth a word; a degree of the polariser's angle makes 2.5 %.
inline constexpr double large_residual = 0.01;

/// Rows are frames.
struct Series_equations {
    Eigen::MatrixX3d design;
    /// Columns are positions; dark levels are taken off.
    Eigen::MatrixX4d means;
};

Series_equations equations_of(
    std::span<Series_point const> series, Estimation_options const& options);

/// The frames with a residual above `large_residual` that the fit is better without.
std::vector<Outlying_frame> find_outlying_frames(
    std::span<Series_point const> series, Series_equations const& equations);

} // namespace veldrane_mrv::polarization
