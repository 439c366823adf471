#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include "map_faults.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {
namespace {

constexpr std::size_t columns_per_group = 16;
constexpr std::size_t weights_per_matrix = 12;
constexpr int gain_bits = 15;
constexpr double largest_number = 65535;
constexpr double largest_step = 32767;

using Weights = Eigen::Matrix<double, 3, 4>;

// The part of the maps that a region of the sensor is.
Region part_of(Calibration const& calibration, Region const& region) {
    if (!calibration.maps) {
        throw Argument_error{
            "the calibration's model", std::string{name_of(calibration.model)},
            "give a calibration with maps, of the model gain or pixel"};
    }
    auto const fault = [&] {
        auto const found = find_description_fault(*calibration.maps);
        return found ? found : find_number_fault(calibration.model, *calibration.maps);
    }();
    if (fault) {
        throw Argument_error{
            "the calibration's " + fault->key, fault->problem,
            "give maps as a measured calibration has"};
    }
    Region const& covered = calibration.maps->region;
    bool const starts_inside = region.row >= covered.row && region.column >= covered.column;
    Region const part{
        region.column - covered.column, region.row - covered.row, region.width, region.height};
    if (!starts_inside || !fits(part, covered.size())) {
        throw Argument_error{
            "the region", to_string(region),
            "give one inside that of the calibration, " + to_string(covered)};
    }
    return part;
}

// Turned like the frame: the calibration's positions are those of the whole sensor.
Matrices matrices_at(Calibration const& calibration, Region const& region, double zero_direction) {
    return turned(of_region(calibration.matrices, region.row, region.column), zero_direction);
}

std::uint16_t rounded(double value) {
    return static_cast<std::uint16_t>(std::clamp(std::round(value), 0.0, largest_number));
}

// What the light's S0, S1 and S2 are weighed by in a sample.
Eigen::RowVector3d response(Calibration_maps const& maps, std::size_t pixel) {
    double const twice = static_cast<double>(maps.orientation[pixel]) * std::numbers::pi / 90;
    double const half = static_cast<double>(maps.throughput[pixel]) / 2;
    double const polarised = half * static_cast<double>(maps.diattenuation[pixel]);
    return {half, polarised * std::cos(twice), polarised * std::sin(twice)};
}

// The pseudo-inverse by the normal equations, which lose nothing here: instrument matrices of
// sensors are conditioned well, and the result is rounded to steps of 2^-15. NaN where it has none.
Weights weights_of(Eigen::Matrix<double, 4, 3> const& responses) {
    Weights weights = (responses.transpose() * responses).inverse() * responses.transpose();
    weights.row(0) *= 2;
    return weights;
}

Weights turned_weights(Weights const& weights, double zero_direction) {
    double const twice = std::remainder(zero_direction, 180) * std::numbers::pi / 90;
    Eigen::Matrix2d rotation;
    rotation << std::cos(twice), std::sin(twice), -std::sin(twice), std::cos(twice);
    Weights result = weights;
    result.bottomRows<2>() = rotation * weights.bottomRows<2>();
    return result;
}

using Steps = std::array<std::int16_t, weights_per_matrix>;

// From the position's weights to the pixel's; none if one is too far away, or is no number.
std::optional<Steps> steps_between(std::array<float, 16> const& position, Weights const& weights) {
    Steps steps{};
    for (std::size_t weight = 0; weight < weights_per_matrix; ++weight) {
        double const difference =
            weights(static_cast<Eigen::Index>(weight / 4), static_cast<Eigen::Index>(weight % 4)) -
            static_cast<double>(position[weight]);
        double const count =
            std::round(difference / static_cast<double>(Sensor_tables::weight_step));
        if (!(std::abs(count) <= largest_step)) {
            return std::nullopt;
        }
        steps[weight] = static_cast<std::int16_t>(count);
    }
    return steps;
}

// Where the first of a pixel's weights stands; the next ones follow at distances of 8.
std::size_t place_of_weights(std::size_t padded_index) {
    std::size_t const lane = padded_index % columns_per_group / 2;
    std::size_t const parity = padded_index % 2;
    return (padded_index / columns_per_group * 2 + parity) * weights_per_matrix * 8 + lane;
}

} // namespace

Sensor_tables::Sensor_tables(
    Calibration const& calibration, Region const& region, double zero_direction)
    : size_{region.size()}, bit_depth_{}, matrices_{} {
    Region const part = part_of(calibration, region);
    Calibration_maps const& maps = *calibration.maps;
    bit_depth_ = maps.bit_depth;
    matrices_ = matrices_at(calibration, region, zero_direction);
    is_bad_.resize(size_.width * size_.height);
    for (std::uint32_t const pixel : maps.bad_pixels) {
        std::size_t const row = pixel / maps.region.width - part.row;
        std::size_t const column = pixel % maps.region.width - part.column;
        // What lies before the part has wrapped around.
        if (row < size_.height && column < size_.width) {
            is_bad_[row * size_.width + column] = 1;
        }
    }
    take_corrections(maps, part);
    if (calibration.model == Calibration_model::pixel) {
        take_weights(maps, part, zero_direction);
    }
}

void Sensor_tables::take_corrections(Calibration_maps const& maps, Region const& part) {
    dark_levels_.resize(padded_width() * size_.height);
    if (!maps.gain.empty()) {
        gains_.resize(dark_levels_.size());
    }
    for (std::size_t row = 0; row < size_.height; ++row) {
        std::size_t const first = (part.row + row) * maps.region.width + part.column;
        for (std::size_t column = 0; column < size_.width; ++column) {
            double const dark = static_cast<double>(maps.dark_level[first + column]);
            dark_levels_[index(row, column)] = rounded(std::ldexp(dark, fraction_bits()));
            if (!maps.gain.empty()) {
                double const gain =
                    std::ldexp(static_cast<double>(maps.gain[first + column]), gain_bits);
                gains_[index(row, column)] = rounded(gain);
                if (gain > largest_number) {
                    is_bad_[row * size_.width + column] = 1;
                }
            }
        }
    }
}

void Sensor_tables::take_weights(
    Calibration_maps const& maps, Region const& part, double zero_direction) {
    weights_.resize(padded_width() * size_.height * weights_per_matrix);
    // Responses of a row of pixels and of the one that its vertical neighbours are in.
    using Row = std::vector<Eigen::RowVector3d>;
    Row rows[2] = {Row(size_.width), Row(size_.width)};
    auto const fill = [&](std::size_t row) {
        std::size_t const first = (part.row + row) * maps.region.width + part.column;
        for (std::size_t column = 0; column < size_.width; ++column) {
            rows[row % 2][column] = response(maps, first + column);
        }
    };
    fill(0);
    for (std::size_t row = 0; row < size_.height; ++row) {
        if (row + 1 < size_.height) {
            fill(row + 1);
        }
        Row const& own = rows[row % 2];
        Row const& vertical = rows[(row + 1) % 2];
        for (std::size_t column = 0; column < size_.width; ++column) {
            std::size_t const beside = column + 1 == size_.width ? column - 1 : column + 1;
            Eigen::Matrix<double, 4, 3> responses;
            responses << own[column], own[beside], vertical[column], vertical[beside];
            Weights const weights = turned_weights(weights_of(responses), zero_direction);
            auto const steps =
                steps_between(matrices_.by_position[cell_position(row, column)], weights);
            if (!steps) {
                is_bad_[row * size_.width + column] = 1;
            }
            std::size_t const place = place_of_weights(index(row, column));
            for (std::size_t weight = 0; weight < weights_per_matrix; ++weight) {
                weights_[place + 8 * weight] = steps ? (*steps)[weight] : std::int16_t{0};
            }
        }
    }
}

bool Sensor_tables::is_below_dark(std::size_t row, std::size_t column, std::uint16_t sample) const {
    unsigned const largest = (1U << bit_depth_) - 1;
    return std::min<unsigned>(sample, largest) << fraction_bits() <
           dark_levels_[index(row, column)];
}

std::uint16_t Sensor_tables::corrected(
    std::size_t row, std::size_t column, std::uint16_t sample) const {
    unsigned const largest = (1U << bit_depth_) - 1;
    unsigned const value = std::min<unsigned>(sample, largest) << fraction_bits();
    unsigned const dark = dark_levels_[index(row, column)];
    unsigned const rest = value < dark ? 0 : value - dark;
    if (gains_.empty()) {
        return static_cast<std::uint16_t>(rest);
    }
    constexpr std::uint64_t half = 1U << (gain_bits - 1);
    std::uint64_t const product = std::uint64_t{rest} * gains_[index(row, column)] + half;
    return static_cast<std::uint16_t>(std::min<std::uint64_t>(product >> gain_bits, 65535));
}

bool Sensor_tables::is_bad(std::size_t row, std::size_t column) const {
    return is_bad_[row * size_.width + column] != 0;
}

std::array<float, 16> Sensor_tables::matrix(std::size_t row, std::size_t column) const {
    std::array<float, 16> weights = matrices_.by_position[cell_position(row, column)];
    if (!weights_.empty()) {
        std::size_t const place = place_of_weights(index(row, column));
        for (std::size_t weight = 0; weight < weights_per_matrix; ++weight) {
            weights[weight] = std::fma(
                static_cast<float>(weights_[place + 8 * weight]), weight_step, weights[weight]);
        }
    }
    return weights;
}

} // namespace veldrane_mrv::polarization
