#include "watched_pixels.hpp"

#include "series_fit.hpp"

#include "veldrane_mrv/polarization/robust_statistics.hpp"

#include <algorithm>
#include <cmath>

namespace veldrane_mrv::polarization {
namespace {

constexpr std::size_t most_places = 1024;
// Of a large prime: strides of a frame's width would stay in a column.
constexpr std::size_t stride = 2654435761;
// Of one wrong frame among seven the others take over a third.
constexpr std::size_t least_frames = 7;
constexpr double odd_ratio = 2.5;

} // namespace

Watched_pixels::Watched_pixels(std::size_t pixels) {
    for (std::size_t place = 0; place < std::min(pixels, most_places); ++place) {
        places_.push_back(place * stride % pixels);
    }
}

void Watched_pixels::add(
    std::span<std::uint16_t const> samples, std::span<float const> dark_levels,
    Eigen::Vector3d const& design) {
    designs_.push_back(design);
    for (std::size_t const place : places_) {
        signals_.push_back(static_cast<float>(samples[place]) - dark_levels[place]);
    }
}

std::optional<Odd_frame> Watched_pixels::odd_frame() const {
    if (designs_.size() < least_frames) {
        return std::nullopt;
    }
    auto const frames = static_cast<Eigen::Index>(designs_.size());
    Eigen::MatrixX3d design(frames, 3);
    for (Eigen::Index frame = 0; frame < frames; ++frame) {
        design.row(frame) = designs_[static_cast<std::size_t>(frame)];
    }
    Eigen::MatrixXd const signals =
        Eigen::Map<Eigen::MatrixXf const>(
            signals_.data(), static_cast<Eigen::Index>(places_.size()), frames)
            .cast<double>()
            .transpose();
    Eigen::ColPivHouseholderQR<Eigen::MatrixX3d> const decomposition{design};
    Eigen::MatrixXd const solution = decomposition.solve(signals);
    Eigen::MatrixXd const residuals = signals - design * solution;
    Eigen::MatrixX3d const basis =
        decomposition.householderQ() * Eigen::MatrixX3d::Identity(frames, 3);
    double const mean_signal = solution.row(0).mean();
    std::vector<double> distances;
    for (Eigen::Index frame = 0; frame < frames; ++frame) {
        // Noise alone leaves every frame the same distance, over the root of its freedom.
        double const freedom = std::max(1 - basis.row(frame).squaredNorm(), least_freedom);
        Eigen::VectorXd const absolute = residuals.row(frame).cwiseAbs();
        std::vector<double> reordered(absolute.begin(), absolute.end());
        distances.push_back(
            deviations_per_median * take_median(reordered) / std::sqrt(freedom) / mean_signal);
    }
    auto const farthest = std::ranges::max_element(distances);
    std::vector<double> reordered = distances;
    double const usual = take_median(reordered);
    if (*farthest > large_residual && *farthest >= odd_ratio * usual) {
        return Odd_frame{static_cast<std::size_t>(farthest - distances.begin()), *farthest, usual};
    }
    return std::nullopt;
}

} // namespace veldrane_mrv::polarization
