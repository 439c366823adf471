/// @file
/// A raw frame of the scene, as a sensor with a polariser mosaic would record it.
#ifndef VELDRANE_TOOLS_SIMULATION_HPP
#define VELDRANE_TOOLS_SIMULATION_HPP

#include "frame.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace polarize_tool {

struct Simulation_settings {
    std::size_t width = 2448;
    std::size_t height = 2048;
    int phase = 0;
    int bit_depth = 12;
    std::uint64_t seed = 1;
    bool noise = true;
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

/// The same settings give the same frame and truth, bit for bit. The brightest noise-free sample
/// reaches 80 per cent of the full scale 2^bit_depth - 1; noise never brings one to the full scale.
Simulation simulate(Simulation_settings const& settings);

/// Number `draw` of a sequence of normally distributed numbers (mean 0, variance 1), by its index
/// alone, so that no order of evaluation can change a frame.
double normal_deviate(std::uint64_t seed, std::uint64_t draw);

} // namespace polarize_tool

#endif
