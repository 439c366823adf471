/// @file
/// The variants of a reduced build: fourteen kernels in which every two values of every two of the
/// ten parameters meet, and of each the twin for even heights and widths, which alone comes to
/// every instance that serves all parities. Instrumented, all 2016 kernels take a compiler many
/// minutes a file.

#pragma once

#include <array>
#include <cstddef>

namespace reduced {

/// Parameters of a kernel in the order of its flags, behind the phase.
inline constexpr std::size_t parameter_count{10};
using Variant = std::array<unsigned, parameter_count>;

// The places of a variant: phase, same output range, the six planes, parities of the frame.
inline constexpr std::size_t phase_place{0};
inline constexpr std::size_t range_place{1};
inline constexpr std::size_t first_plane_place{2};
inline constexpr std::size_t plane_count{6};
inline constexpr std::size_t height_place{8};
inline constexpr std::size_t width_place{9};

// clang-format off
inline constexpr std::array<Variant, 14> variants_of_all_pairs{{
    // phase
    // | same output range
    // |  |  normalized Stokes, S0, S1, S2, azimuth, DoLP
    // |  |  |                 |  height is even, width is even
    {0, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    {1, 0, 1, 1, 1, 1, 1, 1, 0, 0},
    {2, 0, 1, 1, 1, 1, 1, 1, 1, 0},
    {3, 1, 1, 1, 1, 1, 1, 1, 0, 1},
    {1, 0, 1, 0, 0, 0, 0, 0, 0, 0},
    {2, 1, 0, 1, 0, 0, 0, 0, 0, 1},
    {3, 0, 0, 0, 1, 0, 0, 0, 1, 0},
    {0, 1, 0, 0, 0, 1, 0, 0, 1, 0},
    {1, 0, 0, 0, 0, 0, 1, 0, 0, 1},
    {2, 1, 0, 0, 0, 0, 0, 1, 0, 0},
    {0, 0, 0, 0, 1, 0, 1, 0, 0, 1},
    {1, 1, 0, 1, 0, 1, 0, 0, 1, 1},
    {3, 1, 1, 1, 0, 0, 0, 0, 0, 1},
    // The frame of the lifecycle tests' client.
    {1, 1, 0, 1, 0, 0, 1, 1, 1, 1},
}};
// clang-format on

constexpr bool is_even(Variant const& variant) {
    return variant[height_place] != 0 && variant[width_place] != 0;
}

inline constexpr std::size_t even_variants{3};

constexpr auto with_even_twins() {
    std::array<Variant, 2 * variants_of_all_pairs.size() - even_variants> variants{};
    std::size_t next = 0;
    for (Variant const& variant : variants_of_all_pairs) {
        variants.at(next++) = variant;
        if (!is_even(variant)) {
            Variant& twin = variants.at(next++);
            twin = variant;
            twin[height_place] = twin[width_place] = 1;
        }
    }
    return variants;
}

inline constexpr auto chosen_variants = with_even_twins();
static_assert(is_even(chosen_variants.back()), "twins for all but the even variants");

constexpr unsigned value_count(std::size_t place) {
    return place == phase_place ? 4 : 2;
}

constexpr bool pair_is_chosen(
    std::size_t place, unsigned value, std::size_t other_place, unsigned other_value) {
    for (Variant const& variant : chosen_variants) {
        if (variant[place] == value && variant[other_place] == other_value) {
            return true;
        }
    }
    return false;
}

constexpr bool every_pair_is_chosen() {
    for (std::size_t place = 0; place < parameter_count; ++place) {
        for (std::size_t other = place + 1; other < parameter_count; ++other) {
            for (unsigned value = 0; value < value_count(place); ++value) {
                for (unsigned other_value = 0; other_value < value_count(other); ++other_value) {
                    if (!pair_is_chosen(place, value, other, other_value)) {
                        return false;
                    }
                }
            }
        }
    }
    return true;
}

static_assert(every_pair_is_chosen(), "two values of two parameters never meet");

} // namespace reduced
