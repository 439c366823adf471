#pragma once

#include "quartet/arranged_row.hpp"
#include "quartet/lanes.hpp"
#include "quartet/stokes.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quartet {

/// The pixels that are evaluated together: those of even columns in one vector, those of odd
/// columns in another, so that each vector has one matrix.
inline constexpr std::size_t group_columns = 16;

struct Group_samples {
    Samples<Eight_lanes> even, odd;
};

/// @param own      the group's first sample
/// @param vertical the one below it or, on the last row, above
[[gnu::always_inline]] inline Group_samples read_group(
    std::uint16_t const* own, std::uint16_t const* vertical) {
    Arranged_row const own_row = arrange_row(own);
    Arranged_row const vertical_row = arrange_row(vertical);
    __m256 const own_odd = _mm256_cvtepi32_ps(own_row.odd);
    __m256 const vertical_odd = _mm256_cvtepi32_ps(vertical_row.odd);
    return {
        .even =
            {_mm256_cvtepi32_ps(own_row.even), own_odd, _mm256_cvtepi32_ps(vertical_row.even),
             vertical_odd},
        .odd =
            {own_odd, _mm256_cvtepi32_ps(own_row.next_even), vertical_odd,
             _mm256_cvtepi32_ps(vertical_row.next_even)},
    };
}

/// Converts in the rounding mode in force and keeps the low 16 bits of each pixel.
[[gnu::always_inline]] inline __m256i in_column_order(__m256 even, __m256 odd) {
    return _mm256_blend_epi16(
        _mm256_cvtps_epi32(even), _mm256_slli_epi32(_mm256_cvtps_epi32(odd), 16), 0b10101010);
}

/// Stores the 16 pixels of a row of a plane of 32-bit integers.
[[gnu::always_inline]] inline void store_16_wide_pixels(
    std::int32_t* target, __m256i even, __m256i odd) {
    // Columns   0 1 2 3 | 8 9 10 11   and   4 5 6 7 | 12 13 14 15.
    __m256i const low = _mm256_unpacklo_epi32(even, odd);
    __m256i const high = _mm256_unpackhi_epi32(even, odd);
    auto* const destination = reinterpret_cast<__m256i*>(target);
    _mm256_storeu_si256(destination, _mm256_permute2x128_si256(low, high, 0x20));
    _mm256_storeu_si256(destination + 1, _mm256_permute2x128_si256(low, high, 0x31));
}

/// Stores the last `count` of 16 pixels of the plane of ratios.
[[gnu::always_inline]] inline void store_last_pairs(
    float* target, Stokes<Eight_lanes> const& even, Stokes<Eight_lanes> const& odd,
    std::size_t count) {
    __m256 const even_s1 = _mm256_div_ps(even.s1, even.s0);
    __m256 const even_s2 = _mm256_div_ps(even.s2, even.s0);
    __m256 const odd_s1 = _mm256_div_ps(odd.s1, odd.s0);
    __m256 const odd_s2 = _mm256_div_ps(odd.s2, odd.s0);
    // Pairs of pixels   0  2 | 8 10   and   4  6 | 12 14,   then columns   0  1 |  8  9   and so
    // on.
    __m256d const even_low = _mm256_castps_pd(_mm256_unpacklo_ps(even_s1, even_s2));
    __m256d const even_high = _mm256_castps_pd(_mm256_unpackhi_ps(even_s1, even_s2));
    __m256d const odd_low = _mm256_castps_pd(_mm256_unpacklo_ps(odd_s1, odd_s2));
    __m256d const odd_high = _mm256_castps_pd(_mm256_unpackhi_ps(odd_s1, odd_s2));
    __m256 const columns_0_8 = _mm256_castpd_ps(_mm256_unpacklo_pd(even_low, odd_low));
    __m256 const columns_2_10 = _mm256_castpd_ps(_mm256_unpackhi_pd(even_low, odd_low));
    __m256 const columns_4_12 = _mm256_castpd_ps(_mm256_unpacklo_pd(even_high, odd_high));
    __m256 const columns_6_14 = _mm256_castpd_ps(_mm256_unpackhi_pd(even_high, odd_high));
    __m128 const two_pixels[] = {
        _mm256_castps256_ps128(columns_0_8),    _mm256_castps256_ps128(columns_2_10),
        _mm256_castps256_ps128(columns_4_12),   _mm256_castps256_ps128(columns_6_14),
        _mm256_extractf128_ps(columns_0_8, 1),  _mm256_extractf128_ps(columns_2_10, 1),
        _mm256_extractf128_ps(columns_4_12, 1), _mm256_extractf128_ps(columns_6_14, 1),
    };
    for (std::size_t column = group_columns - count; column != group_columns; column += 2) {
        _mm_storeu_ps(target + 2 * column, two_pixels[column / 2]);
    }
}

} // namespace quartet
