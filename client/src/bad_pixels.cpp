#include "bad_pixels.hpp"

#include "veldrane_mrv/polarization/robust_statistics.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

constexpr float deviations_of_the_bad = 8;
// Of rounding to whole samples, 1 / sqrt(12): with less, frames without noise would have outliers.
constexpr float least_deviation = 0.2887F;

constexpr double least_throughput_ratio = 0.5;
constexpr double largest_throughput_ratio = 1.5;
constexpr double least_diattenuation_ratio = 0.2;
constexpr double largest_diattenuation_ratio = 1.2;

// Median and its absolute deviation do not feel the pixels that they judge.
float largest_usual(std::span<float const> values) {
    std::vector<float> copy(values.begin(), values.end());
    float const median = take_median(copy);
    std::ranges::for_each(copy, [median](float& value) { value = std::abs(value - median); });
    return median +
           deviations_of_the_bad *
               std::max(
                   static_cast<float>(deviations_per_median) * take_median(copy), least_deviation);
}

bool has_usual_throughput(Eigen::Vector3d const& pixel, Eigen::Vector3d const& position) {
    double const ratio = pixel(0) / position(0);
    return ratio > least_throughput_ratio && ratio <= largest_throughput_ratio;
}

bool has_usual_analyser(Eigen::Vector3d const& pixel, Eigen::Vector3d const& position) {
    double const cosine = pixel.tail<2>().dot(position.tail<2>());
    double const sine = pixel(2) * position(1) - pixel(1) * position(2);
    double const ratio =
        pixel.tail<2>().norm() / pixel(0) / (position.tail<2>().norm() / position(0));
    return ratio >= least_diattenuation_ratio && ratio <= largest_diattenuation_ratio &&
           std::abs(sine) <= std::tan(farthest_orientation * std::numbers::pi / 90) * cosine;
}

} // namespace

Position_rows rows_of(std::array<Analyser, 4> const& analysers) {
    Position_rows rows;
    std::ranges::transform(analysers, rows.begin(), [](Analyser const& analyser) {
        return Eigen::Vector3d{
            design_row(analyser.orientation, analyser.throughput / 2, analyser.diattenuation)};
    });
    return rows;
}

Bad_pixels find_bad_pixels(
    Pixel_fits const& fits, Position_rows const& positions, std::span<float const> dark_levels,
    std::span<Pixel_mark const> marks, std::size_t width) {
    float const largest_dark_level = largest_usual(dark_levels);
    float const largest_residual = largest_usual(fits.residuals);
    Bad_pixels bad{std::vector<std::uint8_t>(marks.size()), {}};
    for (std::size_t pixel = 0; pixel < marks.size(); ++pixel) {
        Eigen::Vector3d const& position = positions[cell_position(pixel / width, pixel % width)];
        Eigen::Vector3d const row = fits.row(pixel);
        std::size_t* const reason =
            marks[pixel] == Pixel_mark::known          ? &bad.counts.known
            : dark_levels[pixel] > largest_dark_level  ? &bad.counts.hot
            : marks[pixel] == Pixel_mark::saturated    ? &bad.counts.saturated
            : !has_usual_throughput(row, position)     ? &bad.counts.weak_or_strong
            : !has_usual_analyser(row, position)       ? &bad.counts.other_analyser
            : fits.residuals[pixel] > largest_residual ? &bad.counts.noisy
                                                       : nullptr;
        if (reason) {
            ++*reason;
            bad.mask[pixel] = 1;
        }
    }
    return bad;
}

} // namespace veldrane_mrv::polarization
