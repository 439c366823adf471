#pragma once

#include "kernel/load.hpp"
#include "quartet/constants.hpp"

#include <cstddef>
#include <immintrin.h>

/// Lane-wise arithmetic of a block, whose pixels are fixed, for one output vector of eight of them.
/// It differs from that of weighted pixels in the last bits by design: no matrices, fused
/// polynomial and angle, a precomputed azimuth scale, an approximate reciprocal in the rescaling.
/// Both stand side by side in one frame.
namespace block {

/// Broadcast once per call. Only what the output set needs is set.
struct Constants {
    __m256 maximum_output_value;
    __m256 azimuth_scale;    ///< maximum_output_value / 180, a true division
    __m256 input_reciprocal; ///< approximate reciprocal of maximum_input_value
    __m256i largest_pixel;   ///< what 65535 is stored as, in 16 bits
};

/// The two samples whose difference is S1 or S2.
template <Pixels pixels>
struct Difference_operands {
    __m256i minuend, subtrahend;
};

/// @tparam index `Indices::s1_operand` or `Indices::s2_operand`
template <typename Indices, auto index, unsigned row, Pixels pixels>
[[gnu::always_inline]] inline Difference_operands<pixels> difference_operands(
    Arranged_rows const& samples) {
    return {
        operand<Indices, index(2 * row, 0), index(2 * row + 1, 0), pixels>(samples),
        operand<Indices, index(2 * row, 1), index(2 * row + 1, 1), pixels>(samples)};
}

/// Values of a row's 16 pixels: those of even and those of odd columns.
struct Pair {
    __m256 even, odd;
};

/// S0 of a row. Sums of samples are exact in integers as in floats, and so is the halving.
template <typename Indices, unsigned row>
[[gnu::always_inline]] inline Pair s0(Arranged_rows const& samples) {
    auto const of = [&samples]<Pixels pixels>() __attribute__((always_inline)) {
        constexpr auto low = [](std::size_t i) { return Indices::s0_operand(2 * row, i); };
        constexpr auto high = [](std::size_t i) { return Indices::s0_operand(2 * row + 1, i); };
        __m256i const first = _mm256_add_epi32(
            operand<Indices, low(0), high(0), pixels>(samples),
            operand<Indices, low(1), high(1), pixels>(samples));
        __m256i const second = _mm256_add_epi32(
            operand<Indices, low(2), high(2), pixels>(samples),
            operand<Indices, low(3), high(3), pixels>(samples));
        return _mm256_mul_ps(
            _mm256_cvtepi32_ps(_mm256_add_epi32(first, second)),
            _mm256_set1_ps(constants::s0_factor));
    };
    return {of.template operator()<Pixels::even>(), of.template operator()<Pixels::odd>()};
}

/// S1 or S2 of a row, exact. The difference of equal samples is +0 here in every rounding mode; as
/// a difference of floats it would be -0 when rounding downwards. `signed_zero` makes up for it
/// where the sign can be seen.
template <typename Indices, auto index, unsigned row>
[[gnu::always_inline]] inline Pair difference(Arranged_rows const& samples) {
    auto const of = [&samples]<Pixels pixels>() __attribute__((always_inline)) {
        auto const [minuend, subtrahend] =
            difference_operands<Indices, index, row, pixels>(samples);
        return _mm256_cvtepi32_ps(_mm256_sub_epi32(minuend, subtrahend));
    };
    return {of.template operator()<Pixels::even>(), of.template operator()<Pixels::odd>()};
}

/// The pixels of a plane of S1 or S2 in sample units, in column order. A sample that is subtracted
/// from one stays an integer, so the clamps and the conversion come down to two saturations: the
/// difference ends at 0, and no integer lies between the limit and what the limit is stored as,
/// whichever way the conversion rounds. A limit that is negative or none stores 0 either way, one
/// above 65535 is the pack's saturation.
[[gnu::always_inline]] inline __m256i positive_part(
    Difference_operands<Pixels::all> operands, Constants const& broadcast) {
    return _mm256_min_epu16(
        _mm256_subs_epu16(operands.minuend, operands.subtrahend), broadcast.largest_pixel);
}

/// The difference m - n of floats from that of integers: only its zeros depend on the rounding
/// mode, as those of (+0) + (-0) do.
[[gnu::always_inline]] inline __m256 signed_zero(__m256 difference) {
    return _mm256_add_ps(difference, _mm256_set1_ps(-0.0F));
}

/// linear + cubic * x^2, the polynomial of the arctangent without its outer factor x.
[[gnu::always_inline]] inline __m256 atan_polynomial_factor(__m256 x) {
    return _mm256_fmadd_ps(
        _mm256_mul_ps(x, x), _mm256_set1_ps(constants::atan_cubic_coefficient),
        _mm256_set1_ps(constants::atan_linear_coefficient));
}

/// Angle of the points (x, y) in radians, -pi to +pi: twice the angle of polarisation. x and y are
/// differences of samples, finite and without -0. With P(z) = FMA(z * z, cubic, linear) it is
///
///     where |x| > |y|   FMA(t, P(t), base)        t = y * rcp(x), base 0 or, for x < 0, +-pi
///     elsewhere         FMA(-u, P(u), 0) + side   u = rcp(t), side +-pi / 2
///     where x = 0       side
///     where x = y = 0   0                         signs from y
///
/// Evaluated as FMA(z, P(z), base) + side with z = t or -u, the one of base and side that is not
/// wanted being +0. Why these are the same bits in every rounding mode:
///   - z and -z have one P; a product's rounding does not see which factor carries the sign;
///   - adding +0 changes nothing but the sign of a zero, and the sign of an angle of zero is gone
///     when 90 degrees are added to it;
///   - where x = 0, t is infinite and u a zero, so the FMA is a zero and the sum `side`;
///   - at x = y = 0, and nowhere else, t = 0 * infinity makes the angle a NaN, and a NaN does not
///     equal itself;
///   - a quotient that is neither zero nor infinite lies between 1 / 65536 and 65536 in magnitude:
///     no operation here meets a subnormal number, whatever the modes for these are.
/// `side` must not enter the FMA: it would be rounded together with the product.
[[gnu::always_inline]] inline __m256 doubled_angle(__m256 x, __m256 y) {
    __m256 const sign_bit = _mm256_set1_ps(-0.0F);
    __m256 const y_over_x = _mm256_mul_ps(y, _mm256_rcp_ps(x));
    __m256 const minus_x_over_y = _mm256_xor_ps(_mm256_rcp_ps(y_over_x), sign_bit);

    __m256 const wide =
        _mm256_cmp_ps(_mm256_andnot_ps(sign_bit, x), _mm256_andnot_ps(sign_bit, y), _CMP_GT_OQ);
    __m256 const z = _mm256_blendv_ps(minus_x_over_y, y_over_x, wide);

    __m256 const y_sign = _mm256_and_ps(y, sign_bit);
    __m256 const half_turn = _mm256_or_ps(y_sign, _mm256_set1_ps(constants::pi_constant));
    __m256 const quarter_turn = _mm256_or_ps(y_sign, _mm256_set1_ps(constants::half_pi_constant));
    // A blend looks at sign bits alone: x < 0, and wide.
    __m256 const base = _mm256_blendv_ps(_mm256_setzero_ps(), half_turn, _mm256_and_ps(x, wide));
    __m256 const side = _mm256_andnot_ps(wide, quarter_turn);

    __m256 const angle = _mm256_add_ps(_mm256_fmadd_ps(z, atan_polynomial_factor(z), base), side);
    return _mm256_and_ps(angle, _mm256_cmp_ps(angle, angle, _CMP_ORD_Q));
}

/// Azimuth before the clamps. Its lower clamp is that of the saturating pack.
[[gnu::always_inline]] inline __m256 azimuth_value(
    __m256 s1, __m256 s2, Constants const& broadcast) {
    __m256 const degrees = _mm256_fmadd_ps(
        doubled_angle(s1, s2), _mm256_set1_ps(constants::doubled_angle_to_degrees),
        _mm256_set1_ps(constants::azimuth_offset_degrees));
    return _mm256_mul_ps(degrees, broadcast.azimuth_scale);
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

/// What leaves for `s0_image`, `s1_image` or `s2_image`.
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
