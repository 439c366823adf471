#include "simulated_sensor.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace client_test {

using namespace veldrane_mrv::polarization;

Light polarised_light(double s0, double degree, double angle) {
    double const twice = angle * std::numbers::pi / 90;
    return {s0, s0 * degree * std::cos(twice), s0 * degree * std::sin(twice)};
}

Simulated_sensor Simulated_sensor::imperfect(Mosaic const& mosaic, std::uint64_t seed) {
    std::mt19937_64 random{seed};
    std::uniform_real_distribution<double> throughput{0.95, 1.05};
    std::uniform_real_distribution<double> diattenuation{0.85, 0.99};
    std::uniform_real_distribution<double> turn{-3, 3};
    Simulated_sensor sensor{mosaic, {}};
    double mean = 0;
    for (std::size_t position = 0; position < 4; ++position) {
        Analyser& analyser = sensor.analysers[position];
        analyser.throughput = throughput(random);
        analyser.diattenuation = diattenuation(random);
        analyser.orientation = mosaic.layout()[position] + turn(random);
        mean += analyser.throughput / 4;
    }
    for (Analyser& analyser : sensor.analysers) {
        analyser.throughput /= mean;
    }
    return sensor;
}

double Simulated_sensor::signal(std::size_t position, Light const& light) const {
    Analyser const& analyser = analysers[position];
    double const twice = analyser.orientation * std::numbers::pi / 90;
    return analyser.throughput / 2 *
               (light.s0 + analyser.diattenuation *
                               (light.s1 * std::cos(twice) + light.s2 * std::sin(twice))) +
           analyser.dark_level.value_or(0);
}

std::uint16_t Simulated_sensor::sample(
    std::size_t position, Light const& light, double electrons_per_unit,
    std::mt19937_64& random) const {
    double value = signal(position, light);
    if (electrons_per_unit > 0) {
        std::normal_distribution<double> noise{0, std::sqrt(value / electrons_per_unit)};
        value += noise(random);
    }
    double const full_scale = (1 << bit_depth) - 1;
    return static_cast<std::uint16_t>(std::clamp(std::floor(value + 0.5), 0.0, full_scale));
}

Simulated_series::Simulated_series(
    Simulated_sensor const& sensor, double source_level, double step, double electrons_per_unit,
    std::uint64_t seed) {
    std::mt19937_64 random{seed};
    for (double angle = 0; angle < 180; angle += step) {
        Light const light = polarised_light(source_level, 1, angle);
        std::vector<std::uint16_t>& samples = samples_.emplace_back();
        for (std::size_t row = 0; row < height; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                samples.push_back(
                    sensor.sample(cell_position(row, column), light, electrons_per_unit, random));
            }
        }
        frames_.push_back(
            {Frame_view{samples, height, width}, angle, 1, "at " + std::to_string(angle)});
    }
}

} // namespace client_test
