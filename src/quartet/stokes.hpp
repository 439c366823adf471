#pragma once

#include "quartet/constants.hpp"
#include "quartet/image_buffer_overlays.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quartet {

/// A pixel's own sample and its neighbours, as lane 0 of four registers.
struct Samples {
    __m128 own, horizontal, vertical, diagonal;
};

/// Reads a quartet. The flags move a neighbour to the other side of the pixel:
///
///     neither    last_column    last_row    both
///      o h          h o           v d        d v
///      v d          d v           o h        h o
template <bool last_column, bool last_row>
[[gnu::always_inline]] inline Samples read_samples(
    Image_buffer_overlay const& raw_image, std::size_t row, std::size_t column) {
    std::size_t const beside = last_column ? column - 1 : column + 1;
    std::size_t const below = last_row ? row - 1 : row + 1;
    auto const sample = [&raw_image](std::size_t r, std::size_t c) {
        return _mm_cvtsi32_ss(_mm_setzero_ps(), raw_image.at(r, c));
    };
    return {sample(row, column), sample(row, beside), sample(below, column), sample(below, beside)};
}

/// One row of a matrix applied to a quartet: a rounded product of the second sample, then fused
/// additions of the first, third and fourth. The order decides the last bits.
[[gnu::always_inline]] inline __m128 weighted_sum(Samples const& samples, float const* weights) {
    __m128 sum = _mm_mul_ss(samples.horizontal, _mm_load_ss(weights + 1));
    sum = _mm_fmadd_ss(samples.own, _mm_load_ss(weights + 0), sum);
    sum = _mm_fmadd_ss(samples.vertical, _mm_load_ss(weights + 2), sum);
    return _mm_fmadd_ss(samples.diagonal, _mm_load_ss(weights + 3), sum);
}

/// S0 from row 0. The halving is a multiplication of its own, not a part of the weights.
[[gnu::always_inline]] inline __m128 s0(Samples const& samples, float const* matrix) {
    return _mm_mul_ss(_mm_set_ss(constants::s0_factor), weighted_sum(samples, matrix));
}

[[gnu::always_inline]] inline __m128 s1(Samples const& samples, float const* matrix) {
    return weighted_sum(samples, matrix + 4);
}

[[gnu::always_inline]] inline __m128 s2(Samples const& samples, float const* matrix) {
    return weighted_sum(samples, matrix + 8);
}

} // namespace quartet
