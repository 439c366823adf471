#pragma once

#include "kernel/load.hpp"
#include "quartet/constants.hpp"

#include <cstddef>
#include <immintrin.h>

/// Lane-wise arithmetic of a block, for one output vector of eight pixels. It differs from the
/// scalar path in the last bits by design: no matrices, fused polynomial and angle, a precomputed
/// azimuth scale, an approximate reciprocal in the rescaling. Both stand side by side in one frame.
namespace block {

/// Broadcast once per call. Only what the output set needs is set.
struct Constants {
    __m256 maximum_output_value;
    __m256 azimuth_scale;    ///< maximum_output_value / 180, a true division
    __m256 input_reciprocal; ///< approximate reciprocal of maximum_input_value
};

template <typename Indices, std::size_t output_vector>
[[gnu::always_inline]] inline __m256 s0(Sample_vectors const& samples) {
    auto const operand = [&samples]<std::size_t i>() {
        return samples.vector[Indices::s0_operand(output_vector, i)];
    };
    __m256 const first =
        _mm256_add_ps(operand.template operator()<0>(), operand.template operator()<1>());
    __m256 const second =
        _mm256_add_ps(operand.template operator()<2>(), operand.template operator()<3>());
    return _mm256_mul_ps(_mm256_add_ps(first, second), _mm256_set1_ps(constants::s0_factor));
}

template <typename Indices, std::size_t output_vector>
[[gnu::always_inline]] inline __m256 s1(Sample_vectors const& samples) {
    return _mm256_sub_ps(
        samples.vector[Indices::s1_operand(output_vector, 0)],
        samples.vector[Indices::s1_operand(output_vector, 1)]);
}

template <typename Indices, std::size_t output_vector>
[[gnu::always_inline]] inline __m256 s2(Sample_vectors const& samples) {
    return _mm256_sub_ps(
        samples.vector[Indices::s2_operand(output_vector, 0)],
        samples.vector[Indices::s2_operand(output_vector, 1)]);
}

[[gnu::always_inline]] inline __m256 magnitude(__m256 x) {
    return _mm256_andnot_ps(_mm256_set1_ps(-0.0F), x);
}

/// Sets the sign bit of a positive number where the mask is set.
[[gnu::always_inline]] inline __m256 negate_where(__m256 mask, __m256 positive) {
    return _mm256_or_ps(_mm256_and_ps(mask, _mm256_set1_ps(-0.0F)), positive);
}

[[gnu::always_inline]] inline __m256 select_by_sum(
    __m256 mask, __m256 where_set, __m256 elsewhere) {
    return _mm256_add_ps(_mm256_and_ps(mask, where_set), _mm256_andnot_ps(mask, elsewhere));
}

/// linear + cubic * x^2, the polynomial of the arctangent without its outer factor x.
[[gnu::always_inline]] inline __m256 atan_polynomial_factor(__m256 x) {
    return _mm256_fmadd_ps(
        _mm256_mul_ps(x, x), _mm256_set1_ps(constants::atan_cubic_coefficient),
        _mm256_set1_ps(constants::atan_linear_coefficient));
}

/// Angle of the points (x, y) in radians, -pi to +pi: twice the angle of polarisation. Candidates
/// that are infinite or NaN are masked out before the sums.
[[gnu::always_inline]] inline __m256 doubled_angle(__m256 x, __m256 y) {
    __m256 const zero = _mm256_setzero_ps();
    __m256 const y_over_x = _mm256_mul_ps(y, _mm256_rcp_ps(x));
    __m256 const x_over_y = _mm256_rcp_ps(y_over_x);

    __m256 const half_turn =
        negate_where(_mm256_cmp_ps(y, zero, _CMP_NGE_UQ), _mm256_set1_ps(constants::pi_constant));
    __m256 const base = _mm256_andnot_ps(_mm256_cmp_ps(x, zero, _CMP_GT_OQ), half_turn);
    __m256 const direct = _mm256_fmadd_ps(y_over_x, atan_polynomial_factor(y_over_x), base);

    // Unlike `base`, `side` is added by an operation of its own.
    __m256 const side = negate_where(
        _mm256_cmp_ps(y, zero, _CMP_NGT_UQ), _mm256_set1_ps(constants::half_pi_constant));
    __m256 const reflected =
        _mm256_add_ps(_mm256_fnmadd_ps(x_over_y, atan_polynomial_factor(x_over_y), zero), side);

    __m256 const wide = _mm256_cmp_ps(magnitude(x), magnitude(y), _CMP_GT_OQ);
    __m256 const off_y_axis = select_by_sum(wide, direct, reflected);

    __m256 const on_y_axis = _mm256_andnot_ps(_mm256_cmp_ps(y, zero, _CMP_EQ_OQ), side);
    __m256 const x_nonzero = _mm256_cmp_ps(x, zero, _CMP_NEQ_UQ);
    return select_by_sum(x_nonzero, off_y_axis, on_y_axis);
}

/// Azimuth, clamped to 0 .. maximum_output_value.
[[gnu::always_inline]] inline __m256 azimuth_value(
    __m256 s1, __m256 s2, Constants const& broadcast) {
    __m256 const degrees = _mm256_fmadd_ps(
        doubled_angle(s1, s2), _mm256_set1_ps(constants::doubled_angle_to_degrees),
        _mm256_set1_ps(constants::azimuth_offset_degrees));
    __m256 const value = _mm256_mul_ps(degrees, broadcast.azimuth_scale);
    return _mm256_max_ps(_mm256_min_ps(value, broadcast.maximum_output_value), _mm256_setzero_ps());
}

/// Degree of linear polarisation before the clamp. S0 = 0 gives 0: the mask removes the infinity,
/// or the NaN of 0 times infinity.
[[gnu::always_inline]] inline __m256 dolp_value(
    __m256 s0, __m256 s1, __m256 s2, Constants const& broadcast) {
    __m256 const squared_length = _mm256_fmadd_ps(s2, s2, _mm256_mul_ps(s1, s1));
    __m256 const quotient = _mm256_mul_ps(_mm256_rcp_ps(s0), _mm256_sqrt_ps(squared_length));
    __m256 const s0_is_zero = _mm256_cmp_ps(s0, _mm256_setzero_ps(), _CMP_EQ_OQ);
    return _mm256_mul_ps(broadcast.maximum_output_value, _mm256_andnot_ps(s0_is_zero, quotient));
}

/// What leaves for a Stokes plane.
template <bool rescale>
[[gnu::always_inline]] inline __m256 stokes_plane_value(__m256 s, Constants const& broadcast) {
    if constexpr (rescale) {
        return _mm256_mul_ps(
            _mm256_mul_ps(broadcast.maximum_output_value, s), broadcast.input_reciprocal);
    } else {
        return s;
    }
}

} // namespace block
