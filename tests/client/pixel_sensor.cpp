#include "pixel_sensor.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace client_test {

using namespace veldrane_mrv::polarization;

Pixel_sensor::Pixel_sensor(
    Mosaic const& of_sensor, Size const& size, int bit_depth, Spread const& spread)
    : mosaic{of_sensor}, truth{size, region_of(size), bit_depth} {
    std::mt19937_64 random{20};
    std::normal_distribution<double> normal;
    for (std::size_t row = 0; row < size.height; ++row) {
        for (std::size_t column = 0; column < size.width; ++column) {
            double const turn = spread.orientation * std::clamp(normal(random), -4.0, 4.0);
            truth.orientation.push_back(
                static_cast<float>(std::fmod(mosaic.angle(row, column) + turn + 180, 180)));
            truth.throughput.push_back(static_cast<float>(1 + spread.throughput * normal(random)));
            truth.diattenuation.push_back(
                static_cast<float>(std::min(0.93 + spread.diattenuation * normal(random), 1.0)));
            truth.dark_level.push_back(
                static_cast<float>(std::max(20 + spread.dark_level * normal(random), 0.0)));
        }
    }
}

std::vector<std::uint16_t> Pixel_sensor::frame(
    double source_level, double angle, double electrons_per_unit, std::uint64_t seed) const {
    std::mt19937_64 random{seed};
    std::normal_distribution<double> normal;
    double const full_scale = (1 << truth.bit_depth) - 1;
    std::vector<std::uint16_t> samples;
    for (std::size_t pixel = 0; pixel < truth.throughput.size(); ++pixel) {
        double const twice =
            (angle - static_cast<double>(truth.orientation[pixel])) * std::numbers::pi / 90;
        double const signal =
            source_level * static_cast<double>(truth.throughput[pixel]) / 2 *
            (1 + static_cast<double>(truth.diattenuation[pixel]) * std::cos(twice));
        double const noise =
            electrons_per_unit > 0 ? std::sqrt(signal / electrons_per_unit) * normal(random) : 0.0;
        double const sample = signal + static_cast<double>(truth.dark_level[pixel]) + noise;
        samples.push_back(
            static_cast<std::uint16_t>(std::clamp(std::floor(sample + 0.5), 0.0, full_scale)));
    }
    return samples;
}

std::vector<std::uint16_t> cut(
    std::vector<std::uint16_t> const& frame, Size const& size, Region const& region) {
    std::vector<std::uint16_t> part;
    for (std::size_t row = region.row; row < region.row + region.height; ++row) {
        auto const first =
            frame.begin() + static_cast<std::ptrdiff_t>(row * size.width + region.column);
        part.insert(part.end(), first, first + static_cast<std::ptrdiff_t>(region.width));
    }
    return part;
}

} // namespace client_test
