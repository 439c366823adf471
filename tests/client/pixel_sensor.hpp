/// @file
/// A sensor whose pixels all differ, before a polariser that turns.
#pragma once

#include "veldrane_mrv/polarization/calibration_maps.hpp"
#include "veldrane_mrv/polarization/calibration_measure.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace client_test {

/// Relative standard deviations, the orientation's in degrees, the dark level's in samples.
struct Spread {
    double throughput = 0.02;
    double diattenuation = 0.03;
    double orientation = 1;
    double dark_level = 2;
};

struct Pixel_sensor {
    veldrane_mrv::polarization::Mosaic mosaic;
    /// Of the whole sensor, with all maps but `gain`.
    veldrane_mrv::polarization::Calibration_maps truth;

    Pixel_sensor(
        veldrane_mrv::polarization::Mosaic const& mosaic,
        veldrane_mrv::polarization::Size const& size, int bit_depth, Spread const& spread = {});

    /// Rounded and cut off at the full scale. With `electrons_per_unit` samples carry shot noise.
    std::vector<std::uint16_t> frame(
        double source_level, double angle, double electrons_per_unit = 0,
        std::uint64_t seed = 0) const;
};

/// The part of a frame.
std::vector<std::uint16_t> cut(
    std::vector<std::uint16_t> const& frame, veldrane_mrv::polarization::Size const& size,
    veldrane_mrv::polarization::Region const& region);

} // namespace client_test
