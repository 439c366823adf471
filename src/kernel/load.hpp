#pragma once

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace block {

/// One source row of a block, arranged for both halves.
struct Arranged_row {
    __m256 even_low, odd_low, even_high, odd_high;
};

/// The block's twelve vectors under the indices of Vector_data_indices_avx2.
struct Sample_vectors {
    __m256 vector[12];
};

/// Eight samples to float, exact for every sample.
[[gnu::always_inline]] inline __m256 widen(std::uint16_t const* samples) {
    __m128i const packed = _mm_loadu_si128(reinterpret_cast<__m128i const*>(samples));
    return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(packed));
}

/// The odd one of the columns x and x + 1, for the eight pixels x of a half:
///     w0 w1 w2 w3 w4 w5 w6 w7   ->   w1 w1 w3 w3 w5 w5 w7 w7
[[gnu::always_inline]] inline __m256 arrange_odd(__m256 half) {
    return _mm256_movehdup_ps(half);
}

/// The even one. Its last column belongs to the next eight samples:
///     in each group of four  w0 w2 w2 w0 | w4 w6 w6 w4
///     crossing               w4 w5 w6 w7 | n0 n1 n2 n3
///     reversed               w7 w6 w5 w4 | n3 n2 n1 n0
///     lanes 3 and 7 of it    w0 w2 w2 w4 | w4 w6 w6 n0
[[gnu::always_inline]] inline __m256 arrange_even(__m256 half, __m256 next) {
    __m256 const in_group = _mm256_permute_ps(half, _MM_SHUFFLE(0, 2, 2, 0));
    __m256 const crossing = _mm256_permute2f128_ps(half, next, 0x21);
    __m256 const reversed = _mm256_permute_ps(crossing, _MM_SHUFFLE(0, 1, 2, 3));
    return _mm256_blend_ps(in_group, reversed, 0b10001000);
}

/// Arranges the 17 samples that the block's 16 columns need of one row. The row is read eight
/// samples at a time, up to seven past the last one needed; a block is never nearer to the row's
/// end than 32 samples, so the reads stay inside it.
[[gnu::always_inline]] inline Arranged_row load_row(std::uint16_t const* samples) {
    __m256 const low = widen(samples);
    __m256 const mid = widen(samples + 8);
    __m256 const high = widen(samples + 16);
    return {
        .even_low = arrange_even(low, mid),
        .odd_low = arrange_odd(low),
        .even_high = arrange_even(mid, high),
        .odd_high = arrange_odd(mid),
    };
}

/// @param samples the block's first sample in the row pair's first row
/// @param width   row stride
[[gnu::always_inline]] inline Sample_vectors load_block(
    std::uint16_t const* samples, std::size_t width) {
    Arranged_row const r0 = load_row(samples);
    Arranged_row const r1 = load_row(samples + width);
    Arranged_row const r2 = load_row(samples + 2 * width);
    return {
        r0.odd_low,   r1.even_low, r0.even_low, r1.odd_low, r0.odd_high,  r1.even_high,
        r0.even_high, r1.odd_high, r2.even_low, r2.odd_low, r2.even_high, r2.odd_high,
    };
}

} // namespace block
