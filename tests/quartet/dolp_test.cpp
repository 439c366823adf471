/// @file
/// Covers the degree of linear polarisation of a pixel computed with a matrix: the guard on S0, the
/// clamp, overflow, NaNs, and the accuracy of the approximate reciprocal.

#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace support;

constexpr float infinity{std::numeric_limits<float>::infinity()};
constexpr float subnormal{1e-40F};

int dolp(float s0, float s1, float s2, float maximum_output_value = 65535) {
    return weighted_pixel({s0, s1, s2}, {16, 65535, maximum_output_value, 65535}).dolp;
}

TEST(Dolp, unpolarised_light_gives_0) {
    for (float const s0 : {1e-30F, 1.0F, 65535.0F, 1e30F}) {
        EXPECT_EQ(dolp(s0, 0, 0), 0) << s0;
    }
}

TEST(Dolp, an_s0_of_0_gives_0_although_the_ratios_are_infinite) {
    for (float const s0 : {0.0F, -0.0F}) {
        EXPECT_EQ(dolp(s0, 5, 0), 0);
        EXPECT_EQ(dolp(s0, 0, -5), 0);
        EXPECT_EQ(dolp(s0, 0, 0), 0);
        EXPECT_TRUE(std::isinf(weighted_pixel({s0, 5, -5}).normalized_stokes[0]));
        EXPECT_TRUE(std::isinf(weighted_pixel({s0, 5, -5}).normalized_stokes[1]));
    }
}

TEST(Dolp, an_s0_of_0_gives_0_even_beside_nans_and_infinities) {
    EXPECT_EQ(dolp(0, NAN, 0), 0);
    EXPECT_EQ(dolp(0, 0, infinity), 0);
}

TEST(Dolp, a_negative_s0_gives_0) {
    EXPECT_EQ(dolp(-10, 3, 4), 0);
    EXPECT_EQ(dolp(-10, 0, 0), 0);
}

TEST(Dolp, of_3_4_10_is_one_half_to_the_last_count) {
    int const count = dolp(10, 3, 4, 4095);
    EXPECT_TRUE(count == 2047 || count == 2048) << count;
}

TEST(Dolp, an_overflowing_square_gives_the_maximum_or_0) {
    EXPECT_EQ(dolp(1e30F, 1e30F, 0), 65535);
    EXPECT_EQ(dolp(1, 0, 2e19F), 65535);
    EXPECT_EQ(dolp(-1e30F, 1e30F, 0), 0);
    EXPECT_EQ(dolp(0, 1e30F, 0), 0);
}

TEST(Dolp, an_underflowing_square_gives_0) {
    EXPECT_EQ(dolp(1e-30F, 1e-30F, 0), 0);
}

TEST(Dolp, more_than_full_polarisation_gives_the_maximum) {
    EXPECT_EQ(dolp(10, 30, 40), 65535);
    EXPECT_EQ(dolp(10, 30, 40, 4095), 4095);
    EXPECT_EQ(dolp(10, -30, -40, 0.75F), 1);
}

TEST(Dolp, full_polarisation_gives_the_maximum_within_the_error_of_the_reciprocal) {
    for (float const s0 : {1.0F, 3.0F, 1000.0F, 50001.0F}) {
        EXPECT_GE(dolp(s0, s0, 0), 65535 - 25) << s0;
        EXPECT_GE(dolp(s0, 0, -s0), 65535 - 25) << s0;
    }
}

TEST(Dolp, has_about_twelve_good_bits) {
    for (int step = 1; step < 1000; ++step) {
        auto const s0 = static_cast<float>(step * 65);
        float const s1 = s0 * 0.3F;
        float const s2 = s0 * -0.4F;
        EXPECT_NEAR(dolp(s0, s1, s2), 32767.5, 32768 * 1.5 / 4096 + 1) << s0;
    }
}

TEST(Dolp, a_subnormal_s0_gives_an_infinite_reciprocal) {
    EXPECT_EQ(dolp(subnormal, 1, 0), 65535);
    EXPECT_EQ(dolp(-subnormal, 1, 0), 0);
    EXPECT_EQ(dolp(subnormal, 0, 0), 65535);
    EXPECT_EQ(dolp(-subnormal, 0, 0), 65535);
}

TEST(Dolp, a_nan_gives_the_maximum) {
    EXPECT_EQ(dolp(NAN, 1, 1), 65535);
    EXPECT_EQ(dolp(10, NAN, 1), 65535);
    EXPECT_EQ(dolp(10, 1, NAN, 4095), 4095);
    EXPECT_EQ(dolp(-10, NAN, 1), 65535);
}

TEST(Dolp, an_infinite_s0_gives_0) {
    EXPECT_EQ(dolp(infinity, 3, 4), 0);
}

TEST(Dolp, is_scaled_by_the_output_full_scale_alone) {
    EXPECT_EQ(
        weighted_pixel({10, 3, 4}, {12, 1, 4095, 65535}).dolp,
        weighted_pixel({10, 3, 4}, {12, 65535, 4095, 4095}).dolp);
}

} // namespace
