/// @file
/// What no maps of a sensor can be.
#pragma once

#include "contradiction.hpp"

#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include <optional>

namespace veldrane_mrv::polarization {

/// In what the text says of the maps: size of the sensor, region, bit depth, bad pixels. Keys such
/// as "maps/region".
std::optional<Contradiction> find_description_fault(Calibration_maps const& maps);

/// In the numbers of the maps, of a description without faults. The key is the map's name, and the
/// problem tells row and column.
std::optional<Contradiction> find_number_fault(
    Calibration_model model, Calibration_maps const& maps);

} // namespace veldrane_mrv::polarization
