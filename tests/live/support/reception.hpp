/// @file
/// Frames as Aravis hands them on, without any part of this project between.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace reception {

namespace polarization = veldrane_mrv::polarization;

struct Received {
    bool is_complete = false;
    std::uint64_t number = 0;
    std::uint64_t nanoseconds = 0; // by the camera's clock
    polarization::Region region;
    std::string pixel_format;
    std::vector<std::byte> data;
};

struct Wish {
    std::size_t frames = 1;
    /// As the camera has them if not given.
    std::string pixel_format{};
    polarization::Region region{};
    std::size_t packet_size = 9000;
};

/// In the order of their arrival, incomplete ones included; fewer if none comes for a second.
/// @throws std::runtime_error if there is no camera of that name
std::vector<Received> receive(std::string const& camera, Wish const& wish);

} // namespace reception
