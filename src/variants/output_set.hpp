#pragma once

#include <array>

/// The seven flags that every template of the pixel code takes, as named booleans, and what follows
/// from them. The flags come as `std::integral_constant<bool, ...>` types, in this order.
template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp>
struct Output_set {
    static constexpr bool same_output_range = Same_output_range::value;
    static constexpr bool want_normalized_stokes = Want_normalized_stokes::value;
    static constexpr bool want_s0 = Want_s0::value;
    static constexpr bool want_s1 = Want_s1::value;
    static constexpr bool want_s2 = Want_s2::value;
    static constexpr bool want_azimuth = Want_azimuth::value;
    static constexpr bool want_dolp = Want_dolp::value;

    static constexpr bool want_stokes_plane = want_s0 || want_s1 || want_s2;
    static constexpr bool want_16_bit_plane = want_stokes_plane || want_azimuth || want_dolp;
    static constexpr bool want_any_plane = want_16_bit_plane || want_normalized_stokes;

    static constexpr bool needs_s0 = want_normalized_stokes || want_s0 || want_dolp;
    static constexpr bool needs_s1 = want_normalized_stokes || want_s1 || want_azimuth || want_dolp;
    static constexpr bool needs_s2 = want_normalized_stokes || want_s2 || want_azimuth || want_dolp;

    static constexpr bool rescale = !same_output_range && want_stokes_plane;
};

/// The flags of a kernel or a border, which begin with the seven of its output set, taken apart.
template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, typename... Behind>
struct Split_flags {
    using Set = Output_set<
        Same_output_range, Want_normalized_stokes, Want_s0, Want_s1, Want_s2, Want_azimuth,
        Want_dolp>;
    static constexpr std::array<bool, sizeof...(Behind)> behind{Behind::value...};
};

/// Whether a combination of flags requests a plane at all.
template <typename... Flag>
inline constexpr bool requests_a_plane = Split_flags<Flag...>::Set::want_any_plane;
