/// @file
/// What the simulated camera sees: frames of the scene whose polarisation is known, each with its
/// own noise, so that no two are alike.
#pragma once

#include "veldrane_mrv/polarization/frame.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstddef>
#include <vector>

namespace simulated_camera {

namespace polarization = veldrane_mrv::polarization;

struct Sensor {
    polarization::Size size{640, 480};
    int phase = 0;
    /// Different ones; the camera sends them round and round.
    std::size_t frames = 4;
};

/// For the light at every pixel and its truth: `scene_light`, `truth_of`.
polarization::Simulation_settings settings_of(Sensor const& sensor, unsigned bit_depth);

/// All different frames, of the whole sensor.
std::vector<polarization::Frame> exposures(Sensor const& sensor, unsigned bit_depth);

/// What the camera sends of a frame: rows without padding in the layout of `format`.
std::vector<std::byte> payload_of(
    polarization::Frame const& frame, polarization::Region const& region,
    polarization::Pixel_format format);

} // namespace simulated_camera
