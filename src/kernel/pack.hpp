#pragma once

#include <cstdint>
#include <immintrin.h>

namespace block {

/// Stores 16 pixels of one row of a 16-bit plane. The saturating pack is the lower clamp: a
/// negative value becomes 0. It works in 128-bit halves, so the quarters come out in the order
///     low 0-3, high 0-3, low 4-7, high 4-7
/// and the 64-bit permutation (0, 2, 1, 3) puts them right. minps returns its second operand for a
/// NaN, which so becomes the limit.
[[gnu::always_inline]] inline void store_pixels(
    std::uint16_t* target, __m256 low, __m256 high, __m256 limit) {
    __m256i const packed = _mm256_packus_epi32(
        _mm256_cvtps_epi32(_mm256_min_ps(low, limit)),
        _mm256_cvtps_epi32(_mm256_min_ps(high, limit)));
    __m256i const ordered = _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
    auto* const destination = reinterpret_cast<__m128i*>(target);
    _mm_storeu_si128(destination, _mm256_castsi256_si128(ordered));
    _mm_storeu_si128(destination + 1, _mm256_extracti128_si256(ordered, 1));
}

/// Stores the normalised pairs of one row of a block: eight of its sixteen pixels, two floats each,
///     pixels 0 1 4 5 of the low half, pixels 2 3 6 7 of the high half.
/// Callers know the plane in this packed form; the other eight pixels are not stored.
[[gnu::always_inline]] inline void store_normalized_pairs(
    float* target, __m256 s1_low, __m256 s2_low, __m256 s1_high, __m256 s2_high) {
    _mm256_storeu_ps(target, _mm256_unpacklo_ps(s1_low, s2_low));
    _mm256_storeu_ps(target + 8, _mm256_unpackhi_ps(s1_high, s2_high));
}

} // namespace block
