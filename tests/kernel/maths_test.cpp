/// @file
/// Covers the arithmetic of a vector block where it differs from that of a weighted pixel, and
/// its special values.

#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace support;

Pixel pixel(int twice_s0, int s1, int s2, float maximum_output_value = 65535) {
    return fixed_pixel(phase_0_cell(twice_s0, s1, s2), 0, {16, 65535, maximum_output_value, 65535});
}

double degrees(int s1, int s2) {
    return pixel(20000, s1, s2).azimuth * 180.0 / 65535;
}

TEST(Vector_maths, samples_of_zero_give_zeros_nans_and_half_the_azimuth_range) {
    Pixel const dark = pixel(0, 0, 0);
    EXPECT_EQ(dark.s0, 0);
    EXPECT_EQ(dark.s1, 0);
    EXPECT_EQ(dark.s2, 0);
    EXPECT_EQ(dark.azimuth, 32768);
    EXPECT_EQ(dark.dolp, 0);
    EXPECT_TRUE(std::isnan(dark.normalized_stokes[0]));
    EXPECT_TRUE(std::isnan(dark.normalized_stokes[1]));
}

TEST(Vector_maths, s1_of_0_gives_the_axis_of_s2) {
    for (int const s2 : {2, 100, 20000}) {
        EXPECT_EQ(pixel(20000, 0, s2).azimuth, 49151) << s2;
        EXPECT_EQ(pixel(20000, 0, -s2).azimuth, 16384) << s2;
        EXPECT_EQ(pixel(20000, 0, s2, 4095).azimuth, 3071) << s2;
        EXPECT_EQ(pixel(20000, 0, -s2, 4095).azimuth, 1024) << s2;
    }
}

TEST(Vector_maths, s1_below_0_with_s2_of_0_gives_the_maximum_and_no_more) {
    for (float const maximum : {1.0F, 255.0F, 1000.0F, 4095.0F, 65533.0F, 65535.0F}) {
        for (int const s1 : {-2, -300, -20000}) {
            EXPECT_EQ(pixel(20000, s1, 0, maximum).azimuth, static_cast<int>(maximum)) << s1;
        }
    }
}

TEST(Vector_maths, s1_above_0_with_s2_of_0_gives_half_the_range) {
    EXPECT_EQ(pixel(20000, 1000, 0).azimuth, 32768);
    EXPECT_EQ(pixel(20000, 1000, 0, 4095).azimuth, 2048);
}

TEST(Vector_maths, equal_magnitudes_take_the_reflected_polynomial) {
    for (int const magnitude : {1, 3, 1000, 10000}) {
        EXPECT_NEAR(degrees(magnitude, magnitude), 112.64186, 0.03) << magnitude;
        EXPECT_NEAR(degrees(-magnitude, magnitude), 157.35812, 0.03) << magnitude;
        EXPECT_NEAR(degrees(-magnitude, -magnitude), 22.64187, 0.03) << magnitude;
        EXPECT_NEAR(degrees(magnitude, -magnitude), 67.35814, 0.03) << magnitude;
    }
}

TEST(Vector_maths, s2_below_0_with_s1_far_below_0_lies_near_0_degrees) {
    EXPECT_LT(degrees(-19000, -2), 0.01);
    EXPECT_GT(degrees(-19000, 2), 179.99);
}

TEST(Vector_maths, multiplies_the_angle_by_a_scale_divided_beforehand) {
    // A product by the maximum and a division by 180 afterwards give 32766, 16372 and 49030.
    EXPECT_EQ(pixel(2000, 0, 0, 65533).azimuth, 32767);
    EXPECT_EQ(pixel(2000, 0, -10, 65486).azimuth, 16371);
    EXPECT_EQ(pixel(2000, 0, 10, 65374).azimuth, 49031);
}

TEST(Vector_maths, an_s0_above_the_maximum_is_clamped_in_its_own_plane_alone) {
    // S0 is 1000, S1 250, S2 0.
    Pixel const bright = pixel(2000, 250, 0, 100);
    EXPECT_EQ(bright.s0, 100);
    EXPECT_EQ(bright.normalized_stokes, (Ratios{0.25F, 0}));
    EXPECT_EQ(bright.dolp, 25);
}

TEST(Vector_maths, dolp_of_3_4_10_is_one_half_to_the_last_count) {
    int const count = pixel(40, 6, 8, 4095).dolp;
    EXPECT_TRUE(count == 2047 || count == 2048) << count;
    EXPECT_EQ(pixel(40, -6, -8, 4095).dolp, count);
}

TEST(Vector_maths, dolp_of_more_than_full_polarisation_gives_the_maximum) {
    // One lit sample of four: S1 is twice S0.
    EXPECT_EQ(fixed_pixel({1000, 0, 0, 0}, 0).dolp, 65535);
    EXPECT_EQ(fixed_pixel({1000, 0, 0, 0}, 0, {16, 65535, 4095, 65535}).dolp, 4095);
}

TEST(Vector_maths, the_ratios_are_true_quotients) {
    for (int const s1 : {1, 7, 333, -2001}) {
        Pixel const ratio = pixel(9999, s1, 2 * s1);
        float const s0 = 9999 * 0.5F;
        EXPECT_EQ(ratio.normalized_stokes[0], static_cast<float>(s1) / s0) << s1;
        EXPECT_EQ(ratio.normalized_stokes[1], static_cast<float>(2 * s1) / s0) << s1;
    }
}

TEST(Vector_maths, rescales_by_the_approximate_reciprocal) {
    for (int const s : {10, 1000, 2048, 4000}) {
        Pixel const rescaled = fixed_pixel(phase_0_cell(2 * s, s, s), 0, rescaled_12_bit);
        double const exact = s * 65535.0 / 4095;
        double const error = exact * 1.5 / 4096 + 0.51;
        EXPECT_NEAR(rescaled.s0, exact, error) << s;
        EXPECT_NEAR(rescaled.s1, exact, error) << s;
        EXPECT_NEAR(rescaled.s2, exact, error) << s;
        EXPECT_EQ(rescaled.s1, rescaled.s0);
        EXPECT_EQ(rescaled.normalized_stokes, (Ratios{1, 1}));
    }
}

TEST(Vector_maths, no_matrix_reaches_a_block) {
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Scene scene = make_scene(5, 70, Sample_kind::random_16_bit, Matrix_kind::ideal, phase, 12);
        Planes const ideal = compute(scene);
        scene.matrices = make_matrices(Matrix_kind::non_finite, phase, 99);
        Planes const spoiled = compute(scene);
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t column = 0; column < 48; ++column) {
                EXPECT_EQ(spoiled.s0(row, column), ideal.s0(row, column));
                EXPECT_EQ(spoiled.s1(row, column), ideal.s1(row, column));
                EXPECT_EQ(spoiled.s2(row, column), ideal.s2(row, column));
                EXPECT_EQ(spoiled.azimuth(row, column), ideal.azimuth(row, column));
                EXPECT_EQ(spoiled.dolp(row, column), ideal.dolp(row, column));
            }
        }
    }
}

} // namespace
