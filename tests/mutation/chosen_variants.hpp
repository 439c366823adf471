/// @file
/// The variants that a library for one mutant holds: few enough to compile it in seconds, and
/// every line of the pixel code in several of them.

#pragma once

namespace mutation {

inline constexpr unsigned every_plane{63};

/// An output set as bits, in the order of the flags: float plane 1, S0 2, S1 4, S2 8, azimuth 16,
/// DoLP 32. Chosen are the full set, each plane alone, which shows what a plane needs for itself,
/// and three mixed ones.
constexpr bool is_chosen_set(unsigned set) {
    switch (set) {
    case 0:
    case 1:
    case 2:
    case 4:
    case 8:
    case 16:
    case 32:
    case 4 + 8:
    case 2 + 32:
    case 1 + 16 + 32:
    case every_plane:
        return true;
    default:
        return false;
    }
}

/// The full set has all four parities, the others those of equal height and width parity.
constexpr bool is_chosen(unsigned set, bool height_is_even, bool width_is_even) {
    return set == 0 || set == every_plane ||
           (is_chosen_set(set) && height_is_even == width_is_even);
}

/// Phases differ only in their index lists, which the full set uses in full.
constexpr bool is_chosen_in_phase(
    unsigned phase, unsigned set, bool height_is_even, bool width_is_even) {
    return phase == 0 ? is_chosen(set, height_is_even, width_is_even)
                      : set == 0 || set == every_plane;
}

} // namespace mutation
