#pragma once

#include <immintrin.h>

/// The arithmetic of weighted pixels is written once, against one of these two sets of operations:
/// lane 0 of a register for a single quartet, all lanes for eight quartets of a row. Every
/// operation has the same bits in both. For the approximate reciprocal processors owe that to
/// nobody, and all give it; the tests compare both on the processor at hand.
namespace quartet {

struct One_lane {
    using Vector = __m128;

    [[gnu::always_inline]] static Vector zero() { return _mm_setzero_ps(); }
    [[gnu::always_inline]] static Vector constant(float value) { return _mm_set_ss(value); }
    [[gnu::always_inline]] static Vector load(float const* value) { return _mm_load_ss(value); }

    [[gnu::always_inline]] static Vector add(Vector x, Vector y) { return _mm_add_ss(x, y); }
    [[gnu::always_inline]] static Vector subtract(Vector x, Vector y) { return _mm_sub_ss(x, y); }
    [[gnu::always_inline]] static Vector multiply(Vector x, Vector y) { return _mm_mul_ss(x, y); }
    [[gnu::always_inline]] static Vector divide(Vector x, Vector y) { return _mm_div_ss(x, y); }
    [[gnu::always_inline]] static Vector fused_multiply_add(Vector x, Vector y, Vector z) {
        return _mm_fmadd_ss(x, y, z);
    }
    [[gnu::always_inline]] static Vector square_root(Vector x) { return _mm_sqrt_ss(x); }
    [[gnu::always_inline]] static Vector approximate_reciprocal(Vector x) { return _mm_rcp_ss(x); }

    /// The second operand for a NaN and for equal zeros.
    [[gnu::always_inline]] static Vector smaller(Vector x, Vector y) { return _mm_min_ss(x, y); }
    [[gnu::always_inline]] static Vector larger(Vector x, Vector y) { return _mm_max_ss(x, y); }

    [[gnu::always_inline]] static Vector equal(Vector x, Vector y) { return _mm_cmpeq_ss(x, y); }
    [[gnu::always_inline]] static Vector less(Vector x, Vector y) { return _mm_cmplt_ss(x, y); }
    [[gnu::always_inline]] static Vector greater(Vector x, Vector y) { return _mm_cmpgt_ss(x, y); }
    [[gnu::always_inline]] static Vector not_greater(Vector x, Vector y) {
        return _mm_cmpngt_ss(x, y);
    }

    [[gnu::always_inline]] static Vector both(Vector x, Vector y) { return _mm_and_ps(x, y); }
    [[gnu::always_inline]] static Vector second_without_first(Vector x, Vector y) {
        return _mm_andnot_ps(x, y);
    }
    [[gnu::always_inline]] static Vector either(Vector x, Vector y) { return _mm_or_ps(x, y); }
};

struct Eight_lanes {
    using Vector = __m256;

    [[gnu::always_inline]] static Vector zero() { return _mm256_setzero_ps(); }
    [[gnu::always_inline]] static Vector constant(float value) { return _mm256_set1_ps(value); }
    [[gnu::always_inline]] static Vector load(float const* value) {
        return _mm256_broadcast_ss(value);
    }

    [[gnu::always_inline]] static Vector add(Vector x, Vector y) { return _mm256_add_ps(x, y); }
    [[gnu::always_inline]] static Vector subtract(Vector x, Vector y) {
        return _mm256_sub_ps(x, y);
    }
    [[gnu::always_inline]] static Vector multiply(Vector x, Vector y) {
        return _mm256_mul_ps(x, y);
    }
    [[gnu::always_inline]] static Vector divide(Vector x, Vector y) { return _mm256_div_ps(x, y); }
    [[gnu::always_inline]] static Vector fused_multiply_add(Vector x, Vector y, Vector z) {
        return _mm256_fmadd_ps(x, y, z);
    }
    [[gnu::always_inline]] static Vector square_root(Vector x) { return _mm256_sqrt_ps(x); }
    [[gnu::always_inline]] static Vector approximate_reciprocal(Vector x) {
        return _mm256_rcp_ps(x);
    }

    [[gnu::always_inline]] static Vector smaller(Vector x, Vector y) { return _mm256_min_ps(x, y); }
    [[gnu::always_inline]] static Vector larger(Vector x, Vector y) { return _mm256_max_ps(x, y); }

    [[gnu::always_inline]] static Vector equal(Vector x, Vector y) {
        return _mm256_cmp_ps(x, y, _CMP_EQ_OQ);
    }
    [[gnu::always_inline]] static Vector less(Vector x, Vector y) {
        return _mm256_cmp_ps(x, y, _CMP_LT_OQ);
    }
    [[gnu::always_inline]] static Vector greater(Vector x, Vector y) {
        return _mm256_cmp_ps(x, y, _CMP_GT_OQ);
    }
    [[gnu::always_inline]] static Vector not_greater(Vector x, Vector y) {
        return _mm256_cmp_ps(x, y, _CMP_NGT_UQ);
    }

    [[gnu::always_inline]] static Vector both(Vector x, Vector y) { return _mm256_and_ps(x, y); }
    [[gnu::always_inline]] static Vector second_without_first(Vector x, Vector y) {
        return _mm256_andnot_ps(x, y);
    }
    [[gnu::always_inline]] static Vector either(Vector x, Vector y) { return _mm256_or_ps(x, y); }
};

} // namespace quartet
