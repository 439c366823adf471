#pragma once

#include "quartet/group.hpp"
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
