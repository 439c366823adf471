/// @file
/// A sensor whose pixels differ, with bad ones among them.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"

#include <cstdint>

namespace client_test {

/// Random dark levels up to a twentieth of the range of 12 bits, gains from 0.7 to 1.3 or analysers
/// near the mosaic's, and every 37th pixel or so a bad one.
veldrane_mrv::polarization::Calibration sensor_with_maps(
    veldrane_mrv::polarization::Calibration_model model,
    veldrane_mrv::polarization::Size const& size, std::uint64_t seed);

} // namespace client_test
