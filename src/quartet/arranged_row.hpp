#pragma once

#include <cstdint>
#include <immintrin.h>

/// Samples of 16 columns of one row, from an even column c on, and of the column behind them, as
/// 32-bit integers. The pixels of even and of odd columns stand in vectors of their own, since
/// neighbours share their odd column (columns counted from c):
///
///     lane               0   1   2   3 |  4   5   6   7
///     even pixels        0   2   4   6 |  8  10  12  14
///     odd pixels         1   3   5   7 |  9  11  13  15
///
///     even       column  0   2   4   6 |  8  10  12  14     of even pixels
///     next_even  column  2   4   6   8 | 10  12  14  16     of odd pixels
///     odd        column  1   3   5   7 |  9  11  13  15     of both
///
/// No sample has to leave the 32 bits in which it is loaded: masks and shifts take the place of
/// shuffles, of which processors do fewer at a time.
///
/// `columns` and `next_columns` are the 16-bit samples as they were read, columns 0-15 and 1-16.
struct Arranged_row {
    __m256i even, next_even, odd;
    __m256i columns, next_columns;
};

[[gnu::always_inline]] inline Arranged_row arrange_row(std::uint16_t const* samples) {
    auto const load = [](std::uint16_t const* first) __attribute__((always_inline)) {
        return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(first));
    };
    __m256i const columns = load(samples);
    __m256i const next_columns = load(samples + 1);
    return {
        .even = _mm256_and_si256(columns, _mm256_set1_epi32(0xFFFF)),
        .next_even = _mm256_srli_epi32(next_columns, 16),
        .odd = _mm256_srli_epi32(columns, 16),
        .columns = columns,
        .next_columns = next_columns,
    };
}

/// Stores the 16 pixels of a row of a 16-bit plane.
[[gnu::always_inline]] inline void store_16_pixels(std::uint16_t* target, __m256i pixels) {
    auto* const destination = reinterpret_cast<__m128i*>(target);
    _mm_storeu_si128(destination, _mm256_castsi256_si128(pixels));
    _mm_storeu_si128(destination + 1, _mm256_extracti128_si256(pixels, 1));
}
