#pragma once

#include "quartet/constants.hpp"
#include "quartet/masks.hpp"

/// The angle of weighted pixels. Separate multiplications and additions throughout, no fused
/// operation; that of fixed pixels (kernel/maths.hpp) fuses and differs in the last bits by design.
namespace quartet {

/// Approximates atan(x) on -1 <= x <= 1 within 0.00496 radians; the error is largest at the ends.
/// NaN gives NaN, infinities give infinities of the opposite sign, a zero keeps its sign.
template <typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector atan_polynomial(Vector x) {
    Vector q = Lanes::multiply(x, x);
    q = Lanes::multiply(Lanes::constant(constants::atan_cubic_coefficient), q);
    q = Lanes::add(Lanes::constant(constants::atan_linear_coefficient), q);
    return Lanes::multiply(x, q);
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
template <typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector doubled_angle(Vector s1, Vector s2) {
    Vector const zero = Lanes::zero();
    Vector const s2_over_s1 = Lanes::multiply(s2, Lanes::approximate_reciprocal(s1));
    Vector const s1_over_s2 = Lanes::approximate_reciprocal(s2_over_s1);

    // x > 0: no offset. x < 0: half a turn, towards the side of s2, with -0 on the upper side.
    Vector const half_turn = negate_where<Lanes>(Lanes::less(s2, zero), constants::pi_constant);
    Vector const offset = Lanes::second_without_first(Lanes::greater(s1, zero), half_turn);
    Vector const direct = Lanes::add(atan_polynomial<Lanes>(s2_over_s1), offset);

    Vector const side =
        negate_where<Lanes>(Lanes::not_greater(s2, zero), constants::half_pi_constant);
    Vector const reflected =
        Lanes::add(Lanes::subtract(zero, atan_polynomial<Lanes>(s1_over_s2)), side);

    Vector const near_s1_axis = Lanes::less(magnitude<Lanes>(s2), magnitude<Lanes>(s1));
    Vector const off_s2_axis = select_by_sum<Lanes>(near_s1_axis, direct, reflected);

    // On the s2 axis every quotient is degenerate; the angle is a quarter turn or, at the origin,
    // 0.
    Vector const on_s2_axis = Lanes::second_without_first(Lanes::equal(s2, zero), side);
    return select_by_sum<Lanes>(Lanes::equal(s1, zero), on_s2_axis, off_s2_axis);
}

/// Azimuth before the clamp: 0 to 180 degrees as 0 to `maximum_output_value`. The last step is a
/// true division; a product with a stored 1 / 180 would round differently.
template <typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector azimuth_value(
    Vector s1, Vector s2, Vector maximum_output_value) {
    Vector const turned = Lanes::multiply(
        doubled_angle<Lanes>(s1, s2), Lanes::constant(constants::doubled_angle_to_degrees));
    Vector const degrees = Lanes::add(turned, Lanes::constant(constants::azimuth_offset_degrees));
    return Lanes::divide(
        Lanes::multiply(degrees, maximum_output_value),
        Lanes::constant(constants::azimuth_range_degrees));
}

} // namespace quartet
