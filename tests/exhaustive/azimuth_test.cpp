/// @file
/// Covers the azimuth of every pair (S1, S2) that 12-bit samples can give, in both arithmetics:
/// equal to the reference, and close to the arctangent in double precision.

#include "exhaustive/pairs.hpp"

#include "reference/fixed_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <numbers>

namespace {

using namespace exhaustive;

constexpr double degrees_per_count{180.0 / maximum_output_value};

/// The polynomial is off by up to 0.00496 radians of the doubled angle. Each of the two reciprocals
/// adds 1.5 * 2^-12 of its argument x, and x times the slope of the polynomial stays below 0.49.
/// Half a count is the rounding; the single-precision operations take a hundredth of one.
constexpr double largest_error_in_degrees{
    (0.00496 + 0.49 * 2 * 1.5 / 4096) * 90 / std::numbers::pi + 0.51 * degrees_per_count};

std::uint16_t expected_azimuth(Arithmetic arithmetic, Pair const& pair) {
    auto const s1 = static_cast<float>(pair.s1);
    auto const s2 = static_cast<float>(pair.s2);
    constexpr float m = maximum_output_value;
    return arithmetic == Arithmetic::fixed
               ? reference::clamp_and_convert_fixed(reference::azimuth_fixed(s1, s2, m), m)
               : reference::clamp_and_convert_weighted(reference::azimuth_weighted(s1, s2, m), m);
}

/// On the circle, where 180 degrees and 0 are one direction.
double error_in_counts(Pair const& pair) {
    double const degrees = std::atan2(pair.s2, pair.s1) * 90 / std::numbers::pi + 90;
    double const distance = std::abs(pair.result - degrees / degrees_per_count);
    return std::min(distance, maximum_output_value - distance);
}

class Azimuth_of_every_pair : public testing::TestWithParam<Arithmetic> {};

TEST_P(Azimuth_of_every_pair, is_that_of_the_reference_and_close_to_the_exact_angle) {
    Tally tally;
    std::size_t const visited = for_each_pair(
        GetParam(), Intensity::smallest, support::Plane::azimuth, [&](std::span<Pair const> pairs) {
            for (Pair const& pair : pairs) {
                tally.compare(pair, expected_azimuth(GetParam(), pair));
                tally.note_error(pair, error_in_counts(pair));
            }
        });
    double const degrees = tally.largest_error_in_counts() * degrees_per_count;
    std::cout << "azimuth, " << name_of(GetParam()) << " arithmetic, " << visited
              << " pairs: largest error " << degrees << " degrees, "
              << tally.describe_largest_error() << '\n';
    EXPECT_EQ(tally.mismatches(), 0U) << tally.describe_first_mismatch();
    EXPECT_LT(degrees, largest_error_in_degrees);
    EXPECT_EQ(visited, pairs_to_visit());
}

INSTANTIATE_TEST_SUITE_P(
    All, Azimuth_of_every_pair, testing::Values(Arithmetic::fixed, Arithmetic::weighted),
    [](auto const& arithmetic) { return name_of(arithmetic.param); });

} // namespace
