#pragma once

#include <immintrin.h>

/// Decisions on data without a branch. A mask is a comparison's result, all ones or all zeros.
namespace quartet {

[[gnu::always_inline]] inline __m128 magnitude(__m128 x) {
    return _mm_andnot_ps(_mm_set_ss(-0.0F), x);
}

/// Sets the sign bit of a positive number where the mask is set.
[[gnu::always_inline]] inline __m128 negate_where(__m128 mask, __m128 positive) {
    return _mm_or_ps(_mm_and_ps(mask, _mm_set_ss(-0.0F)), positive);
}

/// Joins two masked values by an addition: the one that is not selected is +0. A selected -0
/// becomes +0 (outside round-down), which no later step tells apart.
[[gnu::always_inline]] inline __m128 select_by_sum(
    __m128 mask, __m128 where_set, __m128 elsewhere) {
    return _mm_add_ss(_mm_and_ps(mask, where_set), _mm_andnot_ps(mask, elsewhere));
}

} // namespace quartet
