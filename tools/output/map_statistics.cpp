#include "output/map_statistics.hpp"

#include "veldrane_mrv/polarization/robust_statistics.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace polarize_tool {
namespace {

using polarization::Calibration_model;
using polarization::Measured_calibration;

polarization::Analyser const& analyser(Measured_calibration const& measured, std::size_t position) {
    return measured.calibration.analysers[position];
}

double number(std::vector<float> const& numbers, std::size_t pixel) {
    return static_cast<double>(numbers[pixel]);
}

double dark_level(Measured_calibration const& measured, std::size_t pixel, std::size_t) {
    return number(measured.calibration.maps->dark_level, pixel);
}

double gain(Measured_calibration const& measured, std::size_t pixel, std::size_t) {
    return number(measured.calibration.maps->gain, pixel);
}

double throughput(Measured_calibration const& measured, std::size_t pixel, std::size_t position) {
    return number(measured.calibration.maps->throughput, pixel) /
           analyser(measured, position).throughput;
}

double diattenuation(
    Measured_calibration const& measured, std::size_t pixel, std::size_t position) {
    return number(measured.calibration.maps->diattenuation, pixel) -
           analyser(measured, position).diattenuation;
}

double orientation(Measured_calibration const& measured, std::size_t pixel, std::size_t position) {
    return std::remainder(
        number(measured.calibration.maps->orientation, pixel) -
            analyser(measured, position).orientation,
        180.0);
}

double residual(Measured_calibration const& measured, std::size_t pixel, std::size_t) {
    return 100 * number(measured.residuals, pixel);
}

constexpr Shown_map map_of_dark_levels{"dark level", "samples", std::nullopt, dark_level};
constexpr Shown_map map_of_residuals{"residual", "% of the mean signal", std::nullopt, residual};

constexpr std::array maps_of_gain{
    map_of_dark_levels, Shown_map{"gain", "on samples less dark level", 1.0, gain},
    map_of_residuals};

constexpr std::array maps_of_pixel{
    map_of_dark_levels, Shown_map{"throughput", "over its position's", 1.0, throughput},
    Shown_map{"diattenuation", "less its position's", 0.0, diattenuation},
    Shown_map{"orientation", "degrees from its position's", 0.0, orientation}, map_of_residuals};

} // namespace

std::span<Shown_map const> shown_maps(Calibration_model model) {
    switch (model) {
    case Calibration_model::position:
        return {};
    case Calibration_model::gain:
        return maps_of_gain;
    case Calibration_model::pixel:
        break;
    }
    return maps_of_pixel;
}

std::vector<float> values_of(Shown_map const& map, Measured_calibration const& measured) {
    polarization::Region const& region = measured.calibration.maps->region;
    std::vector<float> values;
    values.reserve(region.width * region.height);
    for (std::size_t row = 0; row < region.height; ++row) {
        for (std::size_t column = 0; column < region.width; ++column) {
            std::size_t const position =
                polarization::cell_position(region.row + row, region.column + column);
            values.push_back(static_cast<float>(map.value(measured, values.size(), position)));
        }
    }
    return values;
}

Map_statistics statistics_of(std::vector<float> values, Measured_calibration const& measured) {
    auto const& bad = measured.calibration.maps->bad_pixels;
    // From behind, so that a pixel still has its place when its turn comes.
    for (auto pixel = bad.rbegin(); pixel != bad.rend(); ++pixel) {
        values[*pixel] = values.back();
        values.pop_back();
    }
    if (values.empty()) {
        return {};
    }
    double const median = static_cast<double>(polarization::take_median(values));
    std::ranges::for_each(values, [median](float& value) {
        value = static_cast<float>(std::abs(static_cast<double>(value) - median));
    });
    return {
        median, polarization::deviations_per_median *
                    static_cast<double>(polarization::take_median(values))};
}

} // namespace polarize_tool
