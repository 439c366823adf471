#pragma once

#include "quartet/arranged_row.hpp"
#include "quartet/lanes.hpp"
#include "quartet/planes.hpp"
#include "quartet/quartets_of_row.hpp"
#include "quartet/single_quartet.hpp"
#include "quartet/stokes.hpp"
#include "variants/output_set.hpp"

#include <array>
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

/// Stores the last `count` of 16 pixels, an even number. `target` is the place of the first one.
[[gnu::always_inline]] inline void store_last_pixels(
    std::uint16_t* target, __m256i pixels, std::size_t count) {
    if (count == group_columns) {
        store_16_pixels(target, pixels);
        return;
    }
    __m128i rest = _mm256_extracti128_si256(pixels, 1);
    std::uint16_t* end = target + group_columns;
    if ((count & 8) != 0) {
        end -= 8;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(end), rest);
        rest = _mm256_castsi256_si128(pixels);
    }
    if ((count & 4) != 0) {
        end -= 4;
        _mm_storeu_si64(end, _mm_unpackhi_epi64(rest, rest));
        rest = _mm_slli_si128(rest, 8);
    }
    if ((count & 2) != 0) {
        _mm_storeu_si32(end - 2, _mm_shuffle_epi32(rest, 3));
    }
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

/// Computes 16 columns of a row and stores the last `count` of them.
template <typename Set>
[[gnu::always_inline]] inline void generate_group(
    std::size_t row, std::size_t vertical_row, std::size_t column, std::size_t count,
    float const* even_matrix, float const* odd_matrix,
    Polarization_computation_arguments const& arguments, Image_buffer_overlays const& overlays) {
    Group_samples const samples = read_group(
        &overlays.raw_image.at(row, column), &overlays.raw_image.at(vertical_row, column));
    Stokes<Eight_lanes> const even = estimate<Set>(samples.even, even_matrix);
    Stokes<Eight_lanes> const odd = estimate<Set>(samples.odd, odd_matrix);
    if constexpr (Set::want_normalized_stokes) {
        store_last_pairs(
            arguments.normalized_stokes_image + (arguments.width * row + column) * 2, even, odd,
            count);
    }
    for_each_16_bit_plane<Set, Eight_lanes>(
        arguments, overlays, [&](Image_buffer_overlay const& plane, auto value) {
            store_last_pixels(
                &plane.at(row, column), in_column_order(value(even), value(odd)), count);
        });
}

} // namespace quartet

template <typename Set, bool last_row>
void generate_quartets_of_row(
    unsigned long row, unsigned long begin, unsigned long end, std::array<float, 16> const& even,
    std::array<float, 16> const& odd, Polarization_computation_arguments const& arguments,
    Image_buffer_overlays& overlays) {
    // The last group ends at `end`. It begins before `begin` where fewer than 16 columns are left,
    // so that it reads nothing behind the row; rows too narrow for that go one by one.
    if (end < quartet::group_columns) {
        for (unsigned long column = begin; column != end; ++column) {
            generate_single_quartet<false, last_row>(
                Set{}, row, column, column % 2 == 0 ? even : odd, arguments, overlays);
        }
        return;
    }
    std::size_t const vertical_row = last_row ? row - 1 : row + 1;
    while (begin != end) {
        std::size_t const left = end - begin;
        std::size_t const count = left < quartet::group_columns ? left : quartet::group_columns;
        begin += count;
        quartet::generate_group<Set>(
            row, vertical_row, begin - quartet::group_columns, count, even.data(), odd.data(),
            arguments, overlays);
    }
}
