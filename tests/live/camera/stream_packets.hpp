/// @file
/// Packets of the GigE Vision stream protocol, with block numbers of 16 bits.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace simulated_camera {

namespace polarization = veldrane_mrv::polarization;

enum class Content : std::uint8_t { leader = 1, trailer = 2, data = 3 };

inline constexpr std::size_t header_bytes = 8;
/// Of IP and UDP, which the camera's packet size counts too.
inline constexpr std::size_t network_header_bytes = 28;

using Header = std::array<std::byte, header_bytes>;
using Leader = std::array<std::byte, header_bytes + 36>;
using Trailer = std::array<std::byte, header_bytes + 8>;

struct Image {
    std::uint16_t number = 1;
    std::uint64_t nanoseconds = 0; // by the camera's clock
    std::uint32_t pixel_format = 0;
    polarization::Region region;
};

/// `packet` counts from 0, the leader's.
Header data_header(Image const& image, std::uint32_t packet);
Leader leader_of(Image const& image);
Trailer trailer_of(Image const& image, std::uint32_t packet);

} // namespace simulated_camera
