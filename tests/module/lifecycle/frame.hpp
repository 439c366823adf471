/// @file
/// One frame through the transform, the same in every call.

#pragma once

#include "observed_module.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace lifecycle {

/// Six rows of 40: a vector block, its tail and both borders.
struct Frame_planes {
    static constexpr std::size_t height = 6;
    static constexpr std::size_t width = 40;
    using Plane = std::array<std::uint16_t, height * width>;

    Plane s0;
    Plane azimuth;
    Plane dolp;

    bool operator==(Frame_planes const&) const = default;
};

/// Not reached by any S0 of the frame, so it marks what was not written.
constexpr std::uint16_t not_written = 0xABCD;

/// Runs the transform into `planes`, which need not hold anything, and returns its result.
int compute(Module const& module, Frame_planes& planes);

} // namespace lifecycle
