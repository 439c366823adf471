#pragma once

#include "quartet/constants.hpp"
#include "quartet/masks.hpp"

#include <immintrin.h>

/// The scalar path's angle. Separate multiplications and additions throughout, no fused operation;
/// the vector path's angle (kernel/maths.hpp) fuses and differs in the last bits by design.
namespace quartet {

/// Approximates atan(x) on -1 <= x <= 1 within 0.00496 radians; the error is largest at the ends.
/// NaN gives NaN, infinities give infinities of the opposite sign, a zero keeps its sign.
[[gnu::always_inline]] inline __m128 atan_polynomial(__m128 x) {
    __m128 q = _mm_mul_ss(x, x);
    q = _mm_mul_ss(_mm_set_ss(constants::atan_cubic_coefficient), q);
    q = _mm_add_ss(_mm_set_ss(constants::atan_linear_coefficient), q);
    return _mm_mul_ss(x, q);
}

/// Angle of the point (s1, s2) in radians, -pi to +pi, counter-clockwise from the positive s1 axis:
/// twice the angle of polarisation. Where |s2| < |s1| it is P(s2 / s1) and an offset, elsewhere
/// reflected, a quarter turn less P(s1 / s2); at the joint |s1| = |s2| the two differ by 0.0099
/// radians, which is a part of the definition. s1 = s2 = 0 gives 0, a NaN in s1 a NaN, a NaN in s2
/// a NaN unless s1 is 0.
///
/// The quotients come from the processor's approximate reciprocal, the second one from the first:
/// results are defined up to 1.5 * 2^-12 of each. Both candidates are computed and joined by masks,
/// so a candidate that is infinite or NaN has no effect where it is not selected.
[[gnu::always_inline]] inline __m128 doubled_angle(__m128 s1, __m128 s2) {
    __m128 const zero = _mm_setzero_ps();
    __m128 const s2_over_s1 = _mm_mul_ss(s2, _mm_rcp_ss(s1));
    __m128 const s1_over_s2 = _mm_rcp_ss(s2_over_s1);

    // x > 0: no offset. x < 0: half a turn, towards the side of s2, with -0 on the upper side.
    __m128 const half_turn =
        negate_where(_mm_cmplt_ss(s2, zero), _mm_set_ss(constants::pi_constant));
    __m128 const offset = _mm_andnot_ps(_mm_cmpgt_ss(s1, zero), half_turn);
    __m128 const direct = _mm_add_ss(atan_polynomial(s2_over_s1), offset);

    __m128 const side =
        negate_where(_mm_cmpngt_ss(s2, zero), _mm_set_ss(constants::half_pi_constant));
    __m128 const reflected = _mm_add_ss(_mm_sub_ss(zero, atan_polynomial(s1_over_s2)), side);

    __m128 const near_s1_axis = _mm_cmplt_ss(magnitude(s2), magnitude(s1));
    __m128 const off_s2_axis = select_by_sum(near_s1_axis, direct, reflected);

    // On the s2 axis every quotient is degenerate; the angle is a quarter turn or, at the origin,
    // 0.
    __m128 const on_s2_axis = _mm_andnot_ps(_mm_cmpeq_ss(s2, zero), side);
    return select_by_sum(_mm_cmpeq_ss(s1, zero), on_s2_axis, off_s2_axis);
}

/// Azimuth before the clamp: 0 to 180 degrees as 0 to `maximum_output_value`. The last step is a
/// true division; a product with a stored 1 / 180 would round differently.
[[gnu::always_inline]] inline __m128 azimuth_value(
    __m128 s1, __m128 s2, __m128 maximum_output_value) {
    __m128 const turned =
        _mm_mul_ss(doubled_angle(s1, s2), _mm_set_ss(constants::doubled_angle_to_degrees));
    __m128 const degrees = _mm_add_ss(turned, _mm_set_ss(constants::azimuth_offset_degrees));
    return _mm_div_ss(
        _mm_mul_ss(degrees, maximum_output_value), _mm_set_ss(constants::azimuth_range_degrees));
}

} // namespace quartet
