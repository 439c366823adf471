/// @file
/// Sensors drawn at random, pixel by pixel.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstdint>

namespace veldrane_mrv::polarization {

/// How pixels differ. Spreads are standard deviations of normally distributed figures. As preset:
/// about what sensors with polarisers on the chip are like.
struct Pixel_spread {
    /// Relative to the throughput of the pixel's position, 0 to 0.2.
    double gain_spread = 0.02;
    /// Degrees from the orientation of the pixel's position, 0 to 5.
    double orientation_spread = 1;
    /// 0 to 0.2; diattenuations are cut off at 0.1 and 1.
    double diattenuation_spread = 0.03;
    /// Above 0.1 to 1; the mean of all positions, unless the settings have analysers.
    double mean_diattenuation = 0.95;
    /// Mean and spread of samples without light, 0 to a quarter of the full scale; levels below 0
    /// are 0.
    double dark_level = 16;
    double dark_spread = 2;
    /// Shares of pixels that give the full scale, or their dark level, whatever the light;
    /// 0 to 0.1.
    double hot_pixels = 0;
    double dead_pixels = 0;
    std::uint64_t seed = 1;
};

/// A sensor of the settings' size, phase and bit depth, around their analysers or ideal ones: what
/// is true of it, as a calibration of the model `pixel`. A pixel's figures depend on the seed and
/// on its place on the sensor alone, so that a smaller sensor is the upper left part of a larger
/// one.
/// @throws Argument_error if a figure of the spread is out of its range
Calibration imperfect_pixels(
    Simulation_settings const& settings, Pixel_spread const& spread,
    Stop_check const& check_stop = nullptr);

} // namespace veldrane_mrv::polarization
