/// @file
/// A series as the linear problem that its calibration solves.
#pragma once

#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <Eigen/Dense>

#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

inline constexpr std::size_t parameters_per_position = 3;

/// Above it a residual is worth a word; a degree of the polariser's angle makes 2.5 %.
inline constexpr double large_residual = 0.01;

/// Of a frame that hardly any other frame speaks for or against.
inline constexpr double least_freedom = 0.05;

/// In degrees; with more between neighbouring angles the fit says little about those between.
inline constexpr double largest_gap = 120;

/// Gaps in degrees between neighbours on the circle of 180 degrees, which sum to 180.
std::vector<double> gaps_of(std::vector<double> angles);

/// Neighbours closer than a degree count as one.
std::size_t distinct_angles(std::span<double const> gaps);

/// Whether a series of these angles is enough for a fit.
bool tell_analysers(std::span<double const> angles);

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
