/// @file
/// A sensor whose analysers are not ideal, looking at light that is known.
#pragma once

#include "veldrane_mrv/polarization/calibration_estimate.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <vector>

namespace client_test {

/// Stokes quantities in sample units.
struct Light {
    double s0;
    double s1;
    double s2;
};

/// `angle` in degrees.
Light polarised_light(double s0, double degree, double angle);

struct Simulated_sensor {
    veldrane_mrv::polarization::Mosaic mosaic;
    std::array<veldrane_mrv::polarization::Analyser, 4> analysers;
    int bit_depth = 12;

    /// Throughputs within 5 % of 1, their mean being 1, diattenuations of 0.85 to 0.99 and
    /// orientations within 3 degrees of the mosaic's.
    static Simulated_sensor imperfect(
        veldrane_mrv::polarization::Mosaic const& mosaic, std::uint64_t seed);

    double signal(std::size_t position, Light const& light) const;

    /// Rounded and cut off at the full scale. With `electrons_per_unit` the sample carries the shot
    /// noise of its electrons; without, none.
    std::uint16_t sample(
        std::size_t position, Light const& light, double electrons_per_unit,
        std::mt19937_64& random) const;
};

/// Frames of a uniform source behind a polariser that turns by `step` degrees from 0 to below 180.
class Simulated_series {
public:
    static constexpr std::size_t height = 64;
    static constexpr std::size_t width = 96;

    Simulated_series(
        Simulated_sensor const& sensor, double source_level, double step,
        double electrons_per_unit = 0, std::uint64_t seed = 1);

    std::vector<veldrane_mrv::polarization::Uniform_frame> const& frames() const { return frames_; }
    std::vector<veldrane_mrv::polarization::Uniform_frame>& frames() { return frames_; }
    std::vector<std::uint16_t>& samples(std::size_t frame) { return samples_[frame]; }

private:
    // A deque, since the frames point into its elements.
    std::deque<std::vector<std::uint16_t>> samples_;
    std::vector<veldrane_mrv::polarization::Uniform_frame> frames_;
};

} // namespace client_test
