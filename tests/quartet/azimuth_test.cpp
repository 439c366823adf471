/// @file
/// Covers the azimuth of a pixel computed with a matrix: the axes, signed zeros, the step at equal
/// magnitudes, NaNs, the mapping's order of operations and the error of the approximation.

#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace {

using namespace support;

constexpr float infinity{std::numeric_limits<float>::infinity()};

int azimuth(float s1, float s2, float maximum_output_value = 65535) {
    return weighted_pixel({1000, s1, s2}, {16, 65535, maximum_output_value, 65535}).azimuth;
}

double degrees(float s1, float s2) {
    return azimuth(s1, s2) * 180.0 / 65535;
}

TEST(Azimuth, unpolarised_light_gives_half_the_range) {
    EXPECT_EQ(azimuth(0, 0), 32768);
    EXPECT_EQ(azimuth(0, 0, 4095), 2048);
}

TEST(Azimuth, every_s1_above_0_with_s2_of_0_gives_half_the_range) {
    for (float const s1 : {2e-38F, 1e-20F, 0.5F, 1.0F, 5.0F, 65535.0F, 1e37F}) {
        EXPECT_EQ(azimuth(s1, 0), 32768) << s1;
        EXPECT_EQ(azimuth(s1, -0.0F), 32768) << s1;
        EXPECT_EQ(azimuth(s1, 0, 4095), 2048) << s1;
    }
}

TEST(Azimuth, s1_of_0_gives_the_axis_of_s2) {
    for (float const s2 : {2e-38F, 1.0F, 131070.0F, infinity}) {
        EXPECT_EQ(azimuth(0, s2), 49151) << s2;
        EXPECT_EQ(azimuth(0, -s2), 16384) << s2;
        EXPECT_EQ(azimuth(0, s2, 4095), 3071) << s2;
        EXPECT_EQ(azimuth(0, -s2, 4095), 1024) << s2;
    }
}

TEST(Azimuth, a_negative_zero_s1_acts_as_zero) {
    EXPECT_EQ(azimuth(-0.0F, 0), 32768);
    EXPECT_EQ(azimuth(-0.0F, 5), 49151);
    EXPECT_EQ(azimuth(-0.0F, -5), 16384);
}

TEST(Azimuth, s1_below_0_with_s2_of_0_gives_exactly_the_maximum) {
    for (float const s1 : {-2e-38F, -1.0F, -3.0F, -65535.0F, -1e37F}) {
        EXPECT_EQ(azimuth(s1, 0), 65535) << s1;
        EXPECT_EQ(azimuth(s1, 0, 4095), 4095) << s1;
    }
}

TEST(Azimuth, a_negative_zero_s2_with_s1_below_0_gives_180_degrees_not_0) {
    EXPECT_EQ(azimuth(-1, -0.0F), 65535);
    EXPECT_EQ(azimuth(-1, -0.0F, 4095), 4095);
}

TEST(Azimuth, wraps_to_0_for_s1_below_0_and_s2_a_very_little_below_0) {
    EXPECT_EQ(azimuth(-1, -1e-9F), 0);
    EXPECT_EQ(azimuth(-1, 1e-9F), 65535);
}

TEST(Azimuth, equal_magnitudes_take_the_reflected_polynomial) {
    // 112.5, 157.5, 22.5 and 67.5 would be right; the step at equal magnitudes is 0.14 degrees
    // beside them. The reciprocals move the result by less than 0.03.
    for (float const magnitude : {1.0F, 3.0F, 1000.0F, 40000.0F}) {
        EXPECT_NEAR(degrees(magnitude, magnitude), 112.64186, 0.03) << magnitude;
        EXPECT_NEAR(degrees(-magnitude, magnitude), 157.35812, 0.03) << magnitude;
        EXPECT_NEAR(degrees(-magnitude, -magnitude), 22.64187, 0.03) << magnitude;
        EXPECT_NEAR(degrees(magnitude, -magnitude), 67.35814, 0.03) << magnitude;
    }
}

TEST(Azimuth, steps_by_about_a_quarter_of_a_degree_at_equal_magnitudes) {
    EXPECT_NEAR(degrees(1000, 1000) - degrees(1000, 999.999F), 0.284, 0.05);
}

TEST(Azimuth, an_intensity_of_0_has_no_influence) {
    for (float const s0 : {0.0F, -0.0F, -7.0F, 1e-40F}) {
        EXPECT_EQ(weighted_pixel({s0, 5, -3}).azimuth, azimuth(5, -3)) << s0;
    }
}

TEST(Azimuth, other_planes_and_the_range_leave_it_unchanged) {
    Scene scene = make_scene(2, 60, Sample_kind::random_12_bit, Matrix_kind::random, 0, 6);
    Counts const expected = compute(scene).azimuth;
    for (Scale const& scale : {sample_units, rescaled_12_bit}) {
        scene.scale = scale;
        for (unsigned bits = 0; bits < plane_set_count; ++bits) {
            scene.wanted = {bits | only(Plane::azimuth).bits};
            EXPECT_EQ(compute(scene).azimuth, expected) << describe(scene);
        }
    }
}

TEST(Azimuth, a_nan_gives_the_maximum_unless_s1_is_0) {
    EXPECT_EQ(azimuth(NAN, 1), 65535);
    EXPECT_EQ(azimuth(NAN, 0), 65535);
    EXPECT_EQ(azimuth(1, NAN), 65535);
    EXPECT_EQ(azimuth(-1, NAN, 4095), 4095);
    EXPECT_EQ(azimuth(0, NAN), 16384);
    EXPECT_EQ(azimuth(-0.0F, NAN), 16384);
}

TEST(Azimuth, an_infinite_s1_lies_on_its_axis) {
    EXPECT_EQ(azimuth(infinity, 5), 32768);
    EXPECT_EQ(azimuth(-infinity, 5), 65535);
    EXPECT_EQ(azimuth(-infinity, -5), 0);
}

TEST(Azimuth, multiplies_by_the_maximum_before_it_divides) {
    // 90 * 65533 rounds to 5897968, a 180th of which is 32766.49. A factor 65533 / 180 computed
    // beforehand would give 32766.5 or above, and so 32767.
    EXPECT_EQ(azimuth(0, 0, 65533), 32766);
    EXPECT_EQ(azimuth(0, 0, 65531), 32766);
    EXPECT_EQ(azimuth(0, -1, 65486), 16372);
    EXPECT_EQ(azimuth(0, 1, 65374), 49030);
}

TEST(Azimuth, rounds_the_axes_of_small_full_scales_to_even) {
    EXPECT_EQ(azimuth(0, 0, 255), 128);
    EXPECT_EQ(azimuth(0, 0, 5), 2);
    EXPECT_EQ(azimuth(0, 0, 1), 0);
    EXPECT_EQ(azimuth(-1, 0, 0.5F), 0);
    EXPECT_EQ(azimuth(-1, 0, 1.5F), 2);
}

TEST(Azimuth, is_within_the_error_of_its_polynomial_all_around) {
    double largest = 0;
    for (int step = 0; step < 2000; ++step) {
        double const angle = (step + 0.5) * std::numbers::pi / 1000;
        auto const s1 = static_cast<float>(3000 * std::cos(angle));
        auto const s2 = static_cast<float>(3000 * std::sin(angle));
        double const exact = std::atan2(s2, s1) * 90 / std::numbers::pi + 90;
        largest = std::max(largest, std::abs(degrees(s1, s2) - exact));
    }
    // 0.142 of the polynomial, the rest of the two reciprocals. A better result would be another
    // polynomial.
    EXPECT_LT(largest, 0.17);
    EXPECT_GT(largest, 0.12);
}

} // namespace
