/// @file
/// Raw frames as a sensor with a polariser mosaic would record them.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/frame.hpp"
#include "veldrane_mrv/polarization/noise_model.hpp"
#include "veldrane_mrv/polarization/scene.hpp"
#include "veldrane_mrv/polarization/sensor_pixels.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace veldrane_mrv::polarization {

/// One for each position in the mosaic's cell.
using Analysers = std::array<Analyser, 4>;

struct Simulation_settings {
    std::size_t width = 2448;
    std::size_t height = 2048;
    int phase = 0;
    int bit_depth = 12;
    std::uint64_t seed = 1;
    bool noise = true;
    /// Ideal ones if not given.
    std::optional<Analysers> analysers{};
    /// What differs from pixel to pixel, in place of `analysers`; of the frame's size.
    std::shared_ptr<Sensor_pixels const> pixels{};
    /// Above 0; 10500 electrons at the full scale if not given.
    std::optional<double> electrons_per_count{};
    /// Standard deviation in electrons.
    double read_noise = 2.4;
};

/// The noise-free light at every pixel, row by row, in sample units: S0 is half the sum of the four
/// samples of a uniform cell. Angles are in degrees in [0, 180), degrees of polarisation in 0..1.
struct Truth {
    std::vector<float> s0;
    std::vector<float> s1;
    std::vector<float> s2;
    std::vector<float> angle;
    std::vector<float> degree;
};

struct Simulation {
    Frame frame;
    Truth truth;
};

/// Light at every pixel, row by row, in sample units.
using Light = std::vector<Stokes>;

/// Called once a row or every few thousand pixels; what it throws ends the work.
using Stop_check = std::function<void()>;

/// The scene. The brightest noise-free sample of ideal analysers reaches 80 per cent of the full
/// scale 2^bit_depth - 1.
Light scene_light(Simulation_settings const& settings, Stop_check const& check_stop = nullptr);

/// A uniform source behind a polariser with its axis at `angle` degrees; an ideal analyser along it
/// passes 80 per cent of the full scale.
Light uniform_light(Simulation_settings const& settings, double angle);

/// Unpolarised, the same everywhere: an ideal analyser passes `level` of the full scale. Of level 0
/// dark frames are made.
Light flat_light(Simulation_settings const& settings, double level);

/// What the sensor records of it. Only hot pixels reach the full scale. Frames of other numbers
/// differ by their noise.
/// @throws Argument_error if `pixels` are not of the settings' size and bit depth
Frame record(
    Light const& light, Simulation_settings const& settings, std::uint64_t number = 0,
    Stop_check const& check_stop = nullptr);

/// By which `record` scatters samples, but for the rounding.
Noise_model noise_of(Simulation_settings const& settings);

Truth truth_of(Light const& light, Stop_check const& check_stop = nullptr);

/// One frame of the scene and its truth. The same settings give the same, bit for bit.
Simulation simulate(Simulation_settings const& settings);

/// How far analysers may be from ideal ones.
struct Analyser_spread {
    double throughput = 0.05;
    double lowest_diattenuation = 0.85;
    double highest_diattenuation = 0.99;
    double orientation = 3.0; // degrees
    std::uint64_t seed = 1;
};

/// Evenly distributed within the spread, with a mean throughput of 1.
Analysers imperfect_analysers(int phase, Analyser_spread const& spread);

/// Number `draw` of a sequence of normally distributed numbers (mean 0, variance 1), by its index
/// alone, so that no order of evaluation can change a frame.
double normal_deviate(std::uint64_t seed, std::uint64_t draw);

} // namespace veldrane_mrv::polarization
