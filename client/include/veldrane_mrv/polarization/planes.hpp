/// @file
/// The six planes that a frame can be turned into, and sets of them.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

/// All but `normalized_stokes` hold one unsigned 16-bit element a pixel, that one two floats.
enum class Plane : unsigned { s0, s1, s2, azimuth, dolp, normalized_stokes };

inline constexpr std::array every_plane{Plane::s0,      Plane::s1,   Plane::s2,
                                        Plane::azimuth, Plane::dolp, Plane::normalized_stokes};

/// "s0", "s1", "s2", "azimuth", "dolp" or "normalized_stokes": the names that `parse_planes` takes.
constexpr std::string_view name_of(Plane plane) {
    constexpr std::array<std::string_view, every_plane.size()> names{
        "s0", "s1", "s2", "azimuth", "dolp", "normalized_stokes"};
    return names[static_cast<unsigned>(plane)];
}

/// Elements of a plane for each pixel: 2 for `normalized_stokes`, else 1.
constexpr std::size_t elements_per_pixel(Plane plane) {
    return plane == Plane::normalized_stokes ? 2 : 1;
}

class Plane_set {
public:
    constexpr Plane_set() = default;
    constexpr Plane_set(std::initializer_list<Plane> planes) {
        for (Plane const plane : planes) {
            insert(plane);
        }
    }

    static constexpr Plane_set all() {
        Plane_set set;
        set.bits_ = (1U << every_plane.size()) - 1;
        return set;
    }

    constexpr bool contains(Plane plane) const { return (bits_ & bit(plane)) != 0; }
    constexpr bool empty() const { return bits_ == 0; }
    constexpr void insert(Plane plane) { bits_ |= bit(plane); }
    constexpr void erase(Plane plane) { bits_ &= ~bit(plane); }

    /// The planes of the set in the order of the enumerators.
    std::vector<Plane> list() const;

    constexpr bool operator==(Plane_set const&) const = default;

private:
    static constexpr unsigned bit(Plane plane) { return 1U << static_cast<unsigned>(plane); }

    unsigned bits_ = 0;
};

/// Reads a list such as "azimuth,dolp"; "all" stands for the six. A plane may be named twice.
/// @throws Argument_error for an empty list and for a name that is none, with the names that are
Plane_set parse_planes(std::string_view list);

/// The set as `parse_planes` reads it.
std::string to_string(Plane_set const& planes);

} // namespace veldrane_mrv::polarization
