/// @file
/// Covers DoLP of every pair (S1, S2) that 12-bit samples can give, each with the smallest, the
/// largest and a random S0 that can go with it, in both arithmetics: equal to the reference, and
/// close to the quotient in double precision.

#include "exhaustive/pairs.hpp"

#include "reference/fixed_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <tuple>

namespace {

using namespace exhaustive;

/// The reciprocal is off by up to 1.5 * 2^-12 of the result, four single-precision roundings by
/// 2^-24 each, the last rounding by half a count.
constexpr double largest_error_in_counts{
    maximum_output_value * (1.5 / 4096 + 4.0 / (1 << 24)) + 0.5};

std::uint16_t expected_dolp(Arithmetic arithmetic, Pair const& pair) {
    reference::Stokes const stokes{
        static_cast<float>(pair.twice_s0) * 0.5F, static_cast<float>(pair.s1),
        static_cast<float>(pair.s2)};
    constexpr float m = maximum_output_value;
    return arithmetic == Arithmetic::fixed
               ? reference::clamp_and_convert_fixed(reference::dolp_fixed(stokes, m), m)
               : reference::clamp_and_convert_weighted(reference::dolp_weighted(stokes, m), m);
}

/// A dark cell has degree 0; a degree above 1, which the smallest S0 always gives, counts as 1.
double error_in_counts(Pair const& pair) {
    double degree = 0;
    if (pair.twice_s0 != 0) {
        double const length = std::sqrt(pair.s1 * pair.s1 + pair.s2 * pair.s2);
        degree = std::min(2 * length / pair.twice_s0, 1.0);
    }
    return std::abs(pair.result - degree * maximum_output_value);
}

class Dolp_of_every_pair : public testing::TestWithParam<std::tuple<Arithmetic, Intensity>> {};

TEST_P(Dolp_of_every_pair, is_that_of_the_reference_and_close_to_the_exact_quotient) {
    auto const [arithmetic, intensity] = GetParam();
    Tally tally;
    std::size_t const visited = for_each_pair(
        arithmetic, intensity, support::Plane::dolp,
        [&, arithmetic = arithmetic](std::span<Pair const> pairs) {
            for (Pair const& pair : pairs) {
                tally.compare(pair, expected_dolp(arithmetic, pair));
                tally.note_error(pair, error_in_counts(pair));
            }
        });
    std::cout << "DoLP, " << name_of(arithmetic) << " arithmetic, " << name_of(intensity) << " S0, "
              << visited << " pairs: largest error "
              << tally.largest_error_in_counts() / maximum_output_value << ", "
              << tally.describe_largest_error() << '\n';
    EXPECT_EQ(tally.mismatches(), 0U) << tally.describe_first_mismatch();
    EXPECT_LT(tally.largest_error_in_counts(), largest_error_in_counts);
    EXPECT_EQ(visited, pairs_to_visit());
}

INSTANTIATE_TEST_SUITE_P(
    All, Dolp_of_every_pair,
    testing::Combine(
        testing::Values(Arithmetic::fixed, Arithmetic::weighted),
        testing::Values(Intensity::smallest, Intensity::largest, Intensity::random)),
    [](auto const& test) {
        return std::string{name_of(std::get<0>(test.param))} + "_pixels_" +
               name_of(std::get<1>(test.param)) + "_s0";
    });

} // namespace
