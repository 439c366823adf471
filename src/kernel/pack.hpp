#pragma once

#include "kernel/maths.hpp"

#include <immintrin.h>

namespace block {

/// Clamps and converts the 16 pixels of one row of a 16-bit plane and puts them in column order.
/// minps returns its second operand for a NaN, which so becomes the limit; the conversion rounds in
/// the mode in force; the saturating pack is the lower clamp. It works in 128-bit halves, and in
/// each the pixels of even and odd columns then take turns:
///     even 0 2 4 6  odd 1 3 5 7   ->   0 1 2 3 4 5 6 7
[[gnu::always_inline]] inline __m256i pack_pixels(__m256 even, __m256 odd, __m256 limit) {
    __m256i const packed = _mm256_packus_epi32(
        _mm256_cvtps_epi32(_mm256_min_ps(even, limit)),
        _mm256_cvtps_epi32(_mm256_min_ps(odd, limit)));
    __m256i const take_turns = _mm256_setr_epi8(
        0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15, //
        0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    return _mm256_shuffle_epi8(packed, take_turns);
}

/// The eight of a row's sixteen pixels whose ratios are stored, in their order:
///     even pixels  0 2 4 6 | 8 10 12 14
///     odd pixels   1 3 5 7 | 9 11 13 15   ->   0 1 4 5 | 10 11 14 15
[[gnu::always_inline]] inline __m256 stored_pixels(Pair of) {
    __m256 const low = _mm256_blend_ps(of.even, _mm256_moveldup_ps(of.odd), 0b10101010);
    __m256 const high = _mm256_blend_ps(_mm256_movehdup_ps(of.even), of.odd, 0b10101010);
    return _mm256_blend_ps(low, high, 0b11110000);
}

/// Stores the ratios of one row of a block as pairs. Callers know the plane in this packed form;
/// the other eight pixels are not stored.
[[gnu::always_inline]] inline void store_normalized_pairs(float* target, __m256 s1, __m256 s2) {
    __m256 const first = _mm256_unpacklo_ps(s1, s2);
    __m256 const second = _mm256_unpackhi_ps(s1, s2);
    _mm_storeu_ps(target, _mm256_castps256_ps128(first));
    _mm_storeu_ps(target + 4, _mm256_castps256_ps128(second));
    _mm_storeu_ps(target + 8, _mm256_extractf128_ps(first, 1));
    _mm_storeu_ps(target + 12, _mm256_extractf128_ps(second, 1));
}

} // namespace block
