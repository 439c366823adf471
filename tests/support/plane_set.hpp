/// @file
/// The six output planes and the choice among them that a call makes.

#pragma once

#include <array>
#include <cstddef>

namespace support {

enum class Plane : unsigned { normalized_stokes, s0, s1, s2, azimuth, dolp };

inline constexpr std::array every_plane{Plane::normalized_stokes, Plane::s0,  Plane::s1, Plane::s2,
                                        Plane::azimuth,           Plane::dolp};

constexpr char const* name_of(Plane plane) {
    constexpr std::array names{"normalized_stokes_image", "s0_image",  "s1_image", "s2_image",
                               "azimuth_image",           "dolp_image"};
    return names[static_cast<unsigned>(plane)];
}

/// Bytes of one pixel in a plane: two floats, or one 16-bit element.
constexpr std::size_t bytes_per_pixel(Plane plane) {
    return plane == Plane::normalized_stokes ? 8 : 2;
}

/// A subset of the planes: bit p of `bits` stands for the plane whose enumerator is p, so that the
/// 64 subsets are the numbers 0 to 63.
struct Plane_set {
    unsigned bits;

    constexpr bool has(Plane plane) const {
        return (bits >> static_cast<unsigned>(plane) & 1U) != 0;
    }
};

inline constexpr unsigned plane_set_count{64};
inline constexpr Plane_set all_planes{plane_set_count - 1};

constexpr Plane_set only(Plane plane) {
    return {1U << static_cast<unsigned>(plane)};
}

} // namespace support
