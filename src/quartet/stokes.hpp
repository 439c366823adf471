#pragma once

#include "quartet/constants.hpp"

namespace quartet {

/// A pixel's own sample and its neighbours.
template <typename Lanes>
struct Samples {
    typename Lanes::Vector own, horizontal, vertical, diagonal;
};

/// The estimates of a quartet. Only what the output set needs is set.
template <typename Lanes>
struct Stokes {
    typename Lanes::Vector s0, s1, s2;
};

/// One row of a matrix applied to a quartet, `weight(j)` being that of sample j: a rounded product
/// of the second sample, then fused additions of the first, third and fourth. The order decides the
/// last bits.
template <typename Lanes, typename Weight>
[[gnu::always_inline]] inline typename Lanes::Vector weighted_sum(
    Samples<Lanes> const& samples, Weight weight) {
    auto sum = Lanes::multiply(samples.horizontal, weight(1));
    sum = Lanes::fused_multiply_add(samples.own, weight(0), sum);
    sum = Lanes::fused_multiply_add(samples.vertical, weight(2), sum);
    return Lanes::fused_multiply_add(samples.diagonal, weight(3), sum);
}

/// S0, S1 and S2 from rows 0, 1 and 2; a row that no output needs is not read. The halving of S0 is
/// a multiplication of its own, not a part of the weights.
template <typename Set, typename Lanes>
[[gnu::always_inline]] inline Stokes<Lanes> estimate(
    Samples<Lanes> const& samples, float const* matrix) {
    auto const row = [&](float const* weights) __attribute__((always_inline)) {
        return weighted_sum<Lanes>(
            samples, [weights](unsigned sample)
                         __attribute__((always_inline)) { return Lanes::load(weights + sample); });
    };
    Stokes<Lanes> stokes{};
    if constexpr (Set::needs_s0) {
        stokes.s0 = Lanes::multiply(Lanes::constant(constants::s0_factor), row(matrix));
    }
    if constexpr (Set::needs_s1) {
        stokes.s1 = row(matrix + 4);
    }
    if constexpr (Set::needs_s2) {
        stokes.s2 = row(matrix + 8);
    }
    return stokes;
}

/// What `s0_image`, `s1_image` or `s2_image` gets before the clamp: (M * s) / Q, a true division,
/// where the three have a scale of their own.
template <typename Set, typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector stokes_plane_value(
    Vector s, Vector maximum_output_value, float const& maximum_input_value) {
    if constexpr (Set::rescale) {
        return Lanes::divide(
            Lanes::multiply(maximum_output_value, s), Lanes::load(&maximum_input_value));
    } else {
        return s;
    }
}

/// The clamp of every 16-bit plane: a NaN becomes the limit and -0 becomes +0.
template <typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector clamp(Vector value, Vector limit) {
    return Lanes::larger(Lanes::smaller(value, limit), Lanes::zero());
}

} // namespace quartet
