#pragma once

#include <immintrin.h>

namespace quartet {

/// Degree of linear polarisation before the clamp: 0 to 1 as 0 to `maximum_output_value`, or above
/// where noise or weights make (s1, s2) longer than s0. Separate operations, no fused one; the
/// quotient is a product with the approximate reciprocal, good to 1.5 * 2^-12. s0 = 0 gives 0 for
/// any s1 and s2, a subnormal s0 an infinity of its sign or, with s1 = s2 = 0, a NaN.
[[gnu::always_inline]] inline __m128 dolp_value(
    __m128 s0, __m128 s1, __m128 s2, __m128 maximum_output_value) {
    __m128 const squared_length = _mm_add_ss(_mm_mul_ss(s1, s1), _mm_mul_ss(s2, s2));
    __m128 const quotient = _mm_mul_ss(_mm_sqrt_ss(squared_length), _mm_rcp_ss(s0));
    __m128 const s0_is_zero = _mm_cmpeq_ss(s0, _mm_setzero_ps());
    return _mm_mul_ss(_mm_andnot_ps(s0_is_zero, quotient), maximum_output_value);
}

} // namespace quartet
