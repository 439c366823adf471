#include "series_fit.hpp"

#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

constexpr double least_distinct_degrees = 1;

constexpr std::size_t most_outlying_frames = 16;

// With one frame more than parameters every frame has the same share of the misfit.
constexpr std::size_t least_frames_that_tell = parameters_per_position + 2;

struct Worst {
    std::size_t index;
    double residual;
};

// The frame that is farthest from what the others let expect: its residual over its freedom, 1 less
// its leverage, is its distance from the fit without it.
Worst worst_of(Series_equations const& equations, std::vector<Eigen::Index> const& frames) {
    Eigen::MatrixX3d const design = equations.design(frames, Eigen::all);
    Eigen::MatrixX4d const means = equations.means(frames, Eigen::all);
    Eigen::ColPivHouseholderQR<Eigen::MatrixX3d> const decomposition{design};
    Eigen::Matrix<double, 3, 4> const solution = decomposition.solve(means);
    Eigen::MatrixX4d const residuals = means - design * solution;
    Eigen::MatrixX3d const basis =
        decomposition.householderQ() * Eigen::MatrixX3d::Identity(design.rows(), 3);
    double const mean_signal = solution.row(0).mean();
    Worst worst{0, 0};
    for (std::size_t index = 0; index < frames.size(); ++index) {
        auto const row = static_cast<Eigen::Index>(index);
        double const freedom = 1 - basis.row(row).squaredNorm();
        double const residual = residuals.row(row).norm() / 2 / freedom / mean_signal;
        if (freedom >= least_freedom && residual > worst.residual) {
            worst = {index, residual};
        }
    }
    return worst;
}

} // namespace

std::vector<double> gaps_of(std::vector<double> angles) {
    std::ranges::transform(
        angles, angles.begin(), [](double angle) { return within_half_turn(angle); });
    std::ranges::sort(angles);
    std::vector<double> gaps;
    for (std::size_t next = 0; next < angles.size(); ++next) {
        gaps.push_back(
            next == 0 ? angles.front() + 180 - angles.back() : angles[next] - angles[next - 1]);
    }
    return gaps;
}

std::size_t distinct_angles(std::span<double const> gaps) {
    // A full circle of small steps has as many gaps of a degree as there are degrees between them.
    double travelled = 0;
    std::size_t distinct = 0;
    for (double const gap : gaps) {
        travelled += gap;
        if (travelled >= least_distinct_degrees) {
            ++distinct;
            travelled = 0;
        }
    }
    return distinct;
}

bool tell_analysers(std::span<double const> angles) {
    std::vector<double> const gaps = gaps_of({angles.begin(), angles.end()});
    return distinct_angles(gaps) >= parameters_per_position &&
           std::ranges::max(gaps) <= largest_gap;
}

Series_equations equations_of(
    std::span<Series_point const> series, Estimation_options const& options) {
    auto const count = static_cast<Eigen::Index>(series.size());
    Series_equations equations{Eigen::MatrixX3d(count, 3), Eigen::MatrixX4d(count, 4)};
    for (Eigen::Index row = 0; row < count; ++row) {
        Series_point const& point = series[static_cast<std::size_t>(row)];
        double const twice = point.polariser_angle * std::numbers::pi / 90;
        equations.design.row(row) << 1, options.source_degree * std::cos(twice),
            options.source_degree * std::sin(twice);
        equations.design.row(row) *= point.source_intensity;
        for (std::size_t position = 0; position < point.means.size(); ++position) {
            double const dark = options.dark_levels ? options.dark_levels->at(position) : 0.0;
            equations.means(row, static_cast<Eigen::Index>(position)) =
                point.means[position] - dark;
        }
    }
    return equations;
}

std::vector<Outlying_frame> find_outlying_frames(
    std::span<Series_point const> series, Series_equations const& equations) {
    std::vector<Eigen::Index> frames(series.size());
    std::iota(frames.begin(), frames.end(), 0);
    std::vector<Outlying_frame> found;
    std::size_t const most = std::min(series.size() / 4, most_outlying_frames);
    while (found.size() < most && frames.size() >= least_frames_that_tell) {
        Worst const worst = worst_of(equations, frames);
        if (worst.residual <= large_residual) {
            break;
        }
        auto const frame = static_cast<std::size_t>(frames[worst.index]);
        Series_point const& point = series[frame];
        found.push_back(
            {point.source.empty() ? "frame " + std::to_string(frame) : point.source,
             point.polariser_angle, worst.residual});
        frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(worst.index));
    }
    std::ranges::stable_sort(found, std::greater{}, &Outlying_frame::residual);
    return found;
}

} // namespace veldrane_mrv::polarization
