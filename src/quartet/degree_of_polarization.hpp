#pragma once

namespace quartet {

/// Degree of linear polarisation before the clamp: 0 to 1 as 0 to `maximum_output_value`, or above
/// where noise or weights make (s1, s2) longer than s0. Separate operations, no fused one; the
/// quotient is a product with the approximate reciprocal, good to 1.5 * 2^-12. s0 = 0 gives 0 for
/// any s1 and s2, a subnormal s0 an infinity of its sign or, with s1 = s2 = 0, a NaN.
template <typename Lanes, typename Vector = typename Lanes::Vector>
[[gnu::always_inline]] inline Vector dolp_value(
    Vector s0, Vector s1, Vector s2, Vector maximum_output_value) {
    Vector const squared_length = Lanes::add(Lanes::multiply(s1, s1), Lanes::multiply(s2, s2));
    Vector const quotient =
        Lanes::multiply(Lanes::square_root(squared_length), Lanes::approximate_reciprocal(s0));
    Vector const s0_is_zero = Lanes::equal(s0, Lanes::zero());
    return Lanes::multiply(Lanes::second_without_first(s0_is_zero, quotient), maximum_output_value);
}

} // namespace quartet
