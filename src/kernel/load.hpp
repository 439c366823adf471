#pragma once

#include "quartet/arranged_row.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace block {

/// The rows that a block reads.
struct Arranged_rows {
    Arranged_row row[3];
};

/// @param samples the block's first sample in the row pair's first row
/// @param width   row stride
[[gnu::always_inline]] inline Arranged_rows load_block(
    std::uint16_t const* samples, std::size_t width) {
    return {{arrange_row(samples), arrange_row(samples + width), arrange_row(samples + 2 * width)}};
}

/// Which pixels an output vector holds, and in how many bits: eight of even columns or eight of odd
/// ones in 32 bits, or all sixteen in 16 bits.
enum class Pixels { even, odd, all };

/// The vector of the source row and column that an index names.
template <typename Indices, unsigned index, Pixels pixels>
[[gnu::always_inline]] inline __m256i sample(Arranged_rows const& samples) {
    Arranged_row const& row = samples.row[Indices::source_row(index)];
    constexpr bool is_even = Indices::is_even(index);
    // Of an even pixel the even column is its own, of an odd pixel the next one.
    if constexpr (is_even && pixels == Pixels::all) {
        return _mm256_blend_epi16(row.columns, row.next_columns, 0b10101010);
    } else if constexpr (pixels == Pixels::all) {
        return _mm256_blend_epi16(row.next_columns, row.columns, 0b10101010);
    } else if constexpr (is_even && pixels == Pixels::even) {
        return row.even;
    } else if constexpr (is_even) {
        return row.next_even;
    } else {
        return row.odd;
    }
}

/// One operand of an output vector, as an index list names it for the block's first and last eight
/// pixels. These stand in the lower and the upper 128 bits of every kind of vector. Where a list
/// has two different samples for them, which only phase 0 does, the halves are joined.
template <typename Indices, unsigned index_low, unsigned index_high, Pixels pixels>
[[gnu::always_inline]] inline __m256i operand(Arranged_rows const& samples) {
    static_assert(Indices::is_of_low_half(index_low), "a low place names a vector of the low half");
    static_assert(!Indices::is_of_low_half(index_high), "a high place names one of the high half");
    __m256i const low = sample<Indices, index_low, pixels>(samples);
    if constexpr (Indices::are_alike(index_low, index_high)) {
        return low;
    } else {
        __m256i const high = sample<Indices, index_high, pixels>(samples);
        return _mm256_blend_epi32(high, low, 0b00001111);
    }
}

} // namespace block
