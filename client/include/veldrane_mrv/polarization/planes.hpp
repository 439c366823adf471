/// @file
/// The planes that a frame can be turned into, and sets of them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace veldrane_mrv::polarization {

enum class Plane : unsigned { s0, s1, s2, azimuth, dolp, normalized_stokes, validity, uncertainty };

enum class Element_type { uint16, int32, float32, uint8 };

/// "uint16", "int32", "float32" or "uint8", as NumPy has it.
constexpr std::string_view name_of(Element_type type) {
    constexpr std::array<std::string_view, 4> names{"uint16", "int32", "float32", "uint8"};
    return names[static_cast<unsigned>(type)];
}

template <class Element>
inline constexpr Element_type element_type_of = Element_type::uint16;
template <>
inline constexpr Element_type element_type_of<std::int32_t> = Element_type::int32;
template <>
inline constexpr Element_type element_type_of<float> = Element_type::float32;
template <>
inline constexpr Element_type element_type_of<std::uint8_t> = Element_type::uint8;

/// What a plane is, as stored. In physical units the 16-bit planes are of float32.
struct Plane_description {
    Plane plane;
    /// As `parse_planes` takes it.
    std::string_view name;
    Element_type element;
    /// With its sign; `element` again where there is no other.
    Element_type signed_element;
    std::size_t elements_per_pixel;
    /// Fast mode stores the elements at their pixels' places only in frames of two rows or fewer
    /// than 32 columns.
    bool is_packed;
    /// Of the quantity: "sample", "degree" or "1".
    std::string_view unit;
    std::string_view title;
    /// The title, or more of it.
    std::string_view meaning;
    /// What stands for a quantity without a value; empty where every pixel has one.
    std::string_view undefined;
};

/// The only place that says so. In the order of the enumerators.
inline constexpr std::array<Plane_description, 8> plane_table{{
    {Plane::s0, "s0", Element_type::uint16, Element_type::uint16, 1, false, "sample",
     "total intensity", "total intensity, half the sum of the four samples of a cell", ""},
    {Plane::s1, "s1", Element_type::uint16, Element_type::int32, 1, false, "sample",
     "linear Stokes quantity S1, I(0) - I(90)", "I(0) - I(90), linear Stokes quantity", ""},
    {Plane::s2, "s2", Element_type::uint16, Element_type::int32, 1, false, "sample",
     "linear Stokes quantity S2, I(45) - I(135)", "I(45) - I(135), linear Stokes quantity", ""},
    {Plane::azimuth, "azimuth", Element_type::uint16, Element_type::uint16, 1, false, "degree",
     "angle of linear polarisation", "angle of linear polarisation",
     "the number of the angle 0 where S1 and S2 are 0"},
    {Plane::dolp, "dolp", Element_type::uint16, Element_type::uint16, 1, false, "1",
     "degree of linear polarisation", "degree of linear polarisation", "0 where S0 is 0"},
    {Plane::normalized_stokes, "normalized_stokes", Element_type::float32, Element_type::float32, 2,
     true, "1", "S1 / S0 and S2 / S0", "S1 / S0 and S2 / S0, two numbers a pixel",
     "NaN where a Stokes quantity of 0 is divided by an S0 of 0, an infinity where another one is"},
    {Plane::validity, "validity", Element_type::uint8, Element_type::uint8, 1, false, "1",
     "validity", "sum of 1 saturated, 2 below dark, 4 bad pixel, 8 weak; 0 is valid", ""},
    {Plane::uncertainty, "uncertainty", Element_type::float32, Element_type::float32, 3, false, "1",
     "standard deviations of S0, degree and angle",
     "standard deviations of S0 in samples, of the degree and of the angle in degrees, three "
     "numbers a pixel",
     "that of the degree is NaN where S0 is not above 0"},
}};

inline constexpr std::array every_plane = [] {
    std::array<Plane, plane_table.size()> planes{};
    std::ranges::transform(plane_table, planes.begin(), &Plane_description::plane);
    return planes;
}();

constexpr Plane_description const& description_of(Plane plane) {
    return plane_table[static_cast<unsigned>(plane)];
}

constexpr std::string_view name_of(Plane plane) {
    return description_of(plane).name;
}

constexpr std::size_t elements_per_pixel(Plane plane) {
    return description_of(plane).elements_per_pixel;
}

/// Something for each plane that depends on the type of its elements, such as a vector.
template <template <class...> class Of>
struct Per_plane {
    Of<std::uint16_t> s0;
    Of<std::uint16_t> s1;
    Of<std::uint16_t> s2;
    Of<std::uint16_t> azimuth;
    Of<std::uint16_t> dolp;
    Of<float> normalized_stokes;
    Of<std::uint8_t> validity;
    Of<float> uncertainty;
};

/// Calls `action(constant, members...)` with the plane as a constant and with the member of its
/// name of each set: of a `Per_plane`, or of `Plane_views`.
template <class Action, class... Sets>
constexpr decltype(auto) visit_plane(Plane plane, Action&& action, Sets&&... sets) {
    switch (plane) {
    case Plane::s0:
        return action(std::integral_constant<Plane, Plane::s0>{}, sets.s0...);
    case Plane::s1:
        return action(std::integral_constant<Plane, Plane::s1>{}, sets.s1...);
    case Plane::s2:
        return action(std::integral_constant<Plane, Plane::s2>{}, sets.s2...);
    case Plane::azimuth:
        return action(std::integral_constant<Plane, Plane::azimuth>{}, sets.azimuth...);
    case Plane::dolp:
        return action(std::integral_constant<Plane, Plane::dolp>{}, sets.dolp...);
    case Plane::normalized_stokes:
        return action(
            std::integral_constant<Plane, Plane::normalized_stokes>{}, sets.normalized_stokes...);
    case Plane::validity:
        return action(std::integral_constant<Plane, Plane::validity>{}, sets.validity...);
    case Plane::uncertainty:
        break;
    }
    return action(std::integral_constant<Plane, Plane::uncertainty>{}, sets.uncertainty...);
}

template <class Action, class... Sets>
constexpr void for_each_plane(Action&& action, Sets&&... sets) {
    for (Plane const plane : every_plane) {
        visit_plane(plane, action, sets...);
    }
}

class Plane_set {
public:
    constexpr Plane_set() = default;
    constexpr Plane_set(std::initializer_list<Plane> planes) {
        for (Plane const plane : planes) {
            insert(plane);
        }
    }

    /// The six that the processor stores.
    static constexpr Plane_set all() {
        return {Plane::s0,      Plane::s1,   Plane::s2,
                Plane::azimuth, Plane::dolp, Plane::normalized_stokes};
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

/// Reads a list such as "azimuth,dolp"; "all" stands for the six that the processor stores. A plane
/// may be named twice.
/// @throws Argument_error for an empty list and for a name that is none, with the names that are
Plane_set parse_planes(std::string_view list);

/// The set as `parse_planes` reads it.
std::string to_string(Plane_set const& planes);

} // namespace veldrane_mrv::polarization
