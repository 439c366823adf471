/// @file
/// Covers the pixel computed with a matrix: the order of its operations, the weights it reads, the
/// rescaling, the clamp, the conversion and the float plane.

#include "support/guarded_pages.hpp"
#include "support/one_pixel.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

namespace {

using namespace support;

constexpr float infinity{std::numeric_limits<float>::infinity()};

/// Two rows and two columns: own 3360, horizontal 2588, vertical 2084, diagonal 1146 for the first
/// pixel.
Scene quartet_scene(Matrix const& matrix) {
    return {2, 2, {3360, 2588, 2084, 1146}, everywhere(matrix)};
}

TEST(Single_quartet, sums_the_second_sample_first_with_fused_operations) {
    // These whole weights add up to 512, so that S0 is 256 and a ratio shows every bit of S1.
    Weights const power_of_two{-1, -1, 2, 2};
    Weights const weights{0.1F, 0.7F, 0.3F, 0.9F};
    Planes const planes = compute(quartet_scene(matrix_of(power_of_two, weights, weights)));
    auto const [s1, s2] = planes.normalized_stokes(0, 0);
    EXPECT_EQ(planes.s0(0, 0), 256);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(256 * s1), 0x456DC333U);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(256 * s2), 0x456DC333U);
    // 3804.19995 in sample units.
    EXPECT_EQ(planes.s1(0, 0), 3804);
}

TEST(Single_quartet, halves_s0_after_the_whole_row) {
    Weights const weights{0.1F, 0.7F, 0.3F, 0.9F};
    Planes const planes = compute(quartet_scene(matrix_of(weights, weights, weights)));
    EXPECT_EQ(planes.normalized_stokes(0, 0), (Ratios{2, 2}));
    EXPECT_EQ(planes.s0(0, 0), 1902);
}

/// Only the first `visible` weights of the first pixel's matrix can be read, or only the last: the
/// others lie on an inaccessible page. The frame's other three pixels take an ordinary matrix.
int run_with_hidden_weights(Edge edge, std::size_t visible, Plane_set wanted) {
    Guarded_pages const pages{4096, Guarded_pages::Access::read_write};
    std::byte* const address = edge == Edge::end ? pages.last() - sizeof(float) * visible
                                                 : pages.first() - sizeof(float) * (16 - visible);
    for (std::byte* byte = pages.first(); byte != pages.last(); ++byte) {
        *byte = std::byte{0};
    }
    auto const& hidden = *static_cast<Matrix const*>(static_cast<void const*>(address));
    Matrix const ordinary{};
    std::array<std::uint16_t, 4> const samples{1, 2, 3, 4};
    std::array<std::array<std::uint16_t, 4>, 2> planes{};
    Polarization_computation_arguments const arguments{
        2,
        2,
        0,
        samples.data(),
        16,
        65535,
        65535,
        65535,
        nullptr,
        wanted.has(Plane::s0) ? planes[0].data() : nullptr,
        nullptr,
        nullptr,
        wanted.has(Plane::azimuth) ? planes[1].data() : nullptr,
        nullptr};
    return qn_polarization_processor_transform_vector_avx2(
        arguments, {hidden, ordinary, ordinary, ordinary});
}

TEST(Single_quartet, with_s0_alone_reads_only_the_first_row_of_the_matrix) {
    EXPECT_EQ(run_with_hidden_weights(Edge::end, 4, only(Plane::s0)), 0);
}

TEST(Single_quartet, with_azimuth_alone_reads_only_the_second_and_third_row_of_the_matrix) {
    EXPECT_EQ(run_with_hidden_weights(Edge::end, 12, only(Plane::azimuth)), 0);
    EXPECT_EQ(run_with_hidden_weights(Edge::start, 12, only(Plane::azimuth)), 0);
}

TEST(Single_quartet, without_a_plane_that_needs_a_row_its_weights_have_no_effect) {
    Weights const good{1, 2, 3, 4};
    Weights const nan{NAN, NAN, NAN, NAN};
    Scene scene = quartet_scene(matrix_of(good, good, good));
    Planes const planes = compute(scene);
    scene.wanted = only(Plane::s0);
    scene.matrices = everywhere(matrix_of(good, nan, nan));
    EXPECT_EQ(compute(scene).s0, planes.s0);
    scene.wanted = only(Plane::s1);
    scene.matrices = everywhere(matrix_of(nan, good, nan));
    EXPECT_EQ(compute(scene).s1, planes.s1);
    scene.wanted = only(Plane::s2);
    scene.matrices = everywhere(matrix_of(nan, nan, good));
    EXPECT_EQ(compute(scene).s2, planes.s2);
    scene.wanted = only(Plane::azimuth);
    scene.matrices = everywhere(matrix_of(nan, good, good));
    EXPECT_EQ(compute(scene).azimuth, planes.azimuth);
}

TEST(Single_quartet, more_planes_leave_the_others_bit_for_bit) {
    Scene scene = make_scene(2, 40, Sample_kind::random_16_bit, Matrix_kind::random, 0, 3);
    Planes const all = compute(scene);
    for (unsigned bits = 1; bits < plane_set_count; ++bits) {
        scene.wanted = {bits};
        Planes const part = compute(scene);
        EXPECT_TRUE(
            part.normalized_stokes.elements.empty() ||
            part.normalized_stokes == all.normalized_stokes);
        EXPECT_TRUE(part.s0.elements.empty() || part.s0 == all.s0);
        EXPECT_TRUE(part.s1.elements.empty() || part.s1 == all.s1);
        EXPECT_TRUE(part.s2.elements.empty() || part.s2 == all.s2);
        EXPECT_TRUE(part.azimuth.elements.empty() || part.azimuth == all.azimuth);
        EXPECT_TRUE(part.dolp.elements.empty() || part.dolp == all.dolp);
    }
}

TEST(Single_quartet, in_a_frame_of_two_columns_the_last_reads_the_first) {
    Matrix const horizontal_neighbour = matrix_of({0, 2, 0, 0}, {}, {});
    Planes const planes = compute(quartet_scene(horizontal_neighbour));
    EXPECT_EQ(planes.s0.elements, (std::vector<std::uint16_t>{2588, 3360, 1146, 2084}));
}

TEST(Single_quartet, in_the_last_row_writes_its_own_row) {
    Matrix const own_sample = matrix_of({2, 0, 0, 0}, {}, {});
    Planes const planes = compute(quartet_scene(own_sample));
    EXPECT_EQ(planes.s0.elements, (std::vector<std::uint16_t>{3360, 2588, 2084, 1146}));
    Matrix const vertical_neighbour = matrix_of({0, 0, 2, 0}, {}, {});
    EXPECT_EQ(
        compute(quartet_scene(vertical_neighbour)).s0.elements,
        (std::vector<std::uint16_t>{2084, 1146, 3360, 2588}));
}

TEST(Single_quartet, samples_of_zero_give_zeros_and_half_the_azimuth_range) {
    for (float const sign : {1.0F, -1.0F}) {
        Weights const weights{sign, sign, sign, sign};
        Scene const scene{2, 2, Samples(4, 0), everywhere(matrix_of(weights, weights, weights))};
        Planes const planes = compute(scene);
        for (std::size_t pixel = 0; pixel < 4; ++pixel) {
            EXPECT_EQ(planes.s0.elements[pixel], 0);
            EXPECT_EQ(planes.s1.elements[pixel], 0);
            EXPECT_EQ(planes.s2.elements[pixel], 0);
            EXPECT_EQ(planes.azimuth.elements[pixel], 32768);
            EXPECT_EQ(planes.dolp.elements[pixel], 0);
            EXPECT_TRUE(std::isnan(planes.normalized_stokes.elements[pixel][0]));
            EXPECT_TRUE(std::isnan(planes.normalized_stokes.elements[pixel][1]));
        }
    }
}

TEST(Single_quartet, nans_in_the_fourth_row_of_the_matrix_act_as_zeros_there) {
    Scene scene = make_scene(4, 40, Sample_kind::random_16_bit, Matrix_kind::random, 0, 4);
    Planes const with_nans = compute(scene);
    for (Matrix& matrix : scene.matrices) {
        matrix[12] = matrix[13] = matrix[14] = matrix[15] = 0;
    }
    Planes const with_zeros = compute(scene);
    EXPECT_EQ(with_zeros.normalized_stokes, with_nans.normalized_stokes);
    EXPECT_EQ(with_zeros.s0, with_nans.s0);
    EXPECT_EQ(with_zeros.s1, with_nans.s1);
    EXPECT_EQ(with_zeros.s2, with_nans.s2);
    EXPECT_EQ(with_zeros.azimuth, with_nans.azimuth);
    EXPECT_EQ(with_zeros.dolp, with_nans.dolp);
}

TEST(Single_quartet, in_the_last_column_turns_the_samples_but_not_the_matrix) {
    Scene scene = quartet_scene({});
    scene.matrices[1] = matrix_of({2, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 0, 1});
    Planes const planes = compute(scene);
    EXPECT_EQ(planes.s0(0, 1), 2588);
    EXPECT_EQ(planes.s1(0, 1), 3360);
    EXPECT_EQ(planes.s2(0, 1), 2084);
}

TEST(Single_quartet, weights_of_one_give_half_the_sum_exactly) {
    Scene const scene{
        2,
        2,
        {65535, 65534, 65533, 65531},
        everywhere(matrix_of({1, 1, 1, 1}, {0.25F, 0.25F, 0.25F, 0.25F}, {1, 1, -1, -1}))};
    Planes const planes = compute(scene);
    // 262133 / 2 is above the range: the ratios show it.
    EXPECT_EQ(planes.s0(0, 0), 65535);
    EXPECT_EQ(planes.normalized_stokes(0, 0)[1], 5.0F / 131066.5F);
    EXPECT_EQ(planes.normalized_stokes(0, 0)[0], 0.5F);
    EXPECT_EQ(planes.s2(0, 0), 5);
}

Scale with_maximum(float maximum_output_value) {
    return {16, 65535, maximum_output_value, 65535};
}

TEST(Single_quartet, stores_a_value_equal_to_the_maximum) {
    EXPECT_EQ(weighted_pixel({4095, 4095, 4095}, with_maximum(4095)).s0, 4095);
    EXPECT_EQ(weighted_pixel({65535, 65535, 65535}, with_maximum(65535)).s1, 65535);
    EXPECT_EQ(weighted_pixel({4096, 70000, 1e30F}, with_maximum(4095)).s1, 4095);
    EXPECT_EQ(weighted_pixel({4096, 70000, 1e30F}, with_maximum(4095)).s2, 4095);
}

TEST(Single_quartet, rounds_ties_to_even) {
    EXPECT_EQ(weighted_pixel({0.5F, 1.5F, 2.5F}).s0, 0);
    EXPECT_EQ(weighted_pixel({0.5F, 1.5F, 2.5F}).s1, 2);
    EXPECT_EQ(weighted_pixel({0.5F, 1.5F, 2.5F}).s2, 2);
    EXPECT_EQ(weighted_pixel({2047.5F, 2046.5F, 0}).s0, 2048);
    EXPECT_EQ(weighted_pixel({2047.5F, 2046.5F, 0}).s1, 2046);
    EXPECT_EQ(weighted_pixel({0.50001F, 1.49999F, 0}).s0, 1);
    EXPECT_EQ(weighted_pixel({0.50001F, 1.49999F, 0}).s1, 1);
}

TEST(Single_quartet, rounds_a_value_just_below_the_maximum_up_to_it) {
    EXPECT_EQ(weighted_pixel({99.75F, 99.25F, 0}, with_maximum(100)).s0, 100);
    EXPECT_EQ(weighted_pixel({99.75F, 99.25F, 0}, with_maximum(100)).s1, 99);
    EXPECT_EQ(weighted_pixel({65534.75F, 0, 0}).s0, 65535);
}

TEST(Single_quartet, stores_0_for_a_negative_quantity_whose_sign_azimuth_and_ratios_show) {
    Pixel const pixel = weighted_pixel({100, -50, 0});
    EXPECT_EQ(pixel.s1, 0);
    EXPECT_EQ(pixel.azimuth, 65535);
    EXPECT_EQ(pixel.normalized_stokes[0], -0.5F);
    Pixel const below = weighted_pixel({100, 0, -50});
    EXPECT_EQ(below.s2, 0);
    EXPECT_EQ(below.azimuth, 16384);
    EXPECT_EQ(below.normalized_stokes[1], -0.5F);
}

TEST(Single_quartet, a_negative_s0_turns_the_ratios_and_gives_zeros) {
    Pixel const pixel = weighted_pixel({-100, 50, -25});
    EXPECT_EQ(pixel.s0, 0);
    EXPECT_EQ(pixel.dolp, 0);
    EXPECT_EQ(pixel.normalized_stokes, (Ratios{-0.5F, 0.25F}));
}

TEST(Single_quartet, divides_by_an_s0_of_zero) {
    Pixel const pixel = weighted_pixel({0, 5, -5});
    EXPECT_EQ(pixel.normalized_stokes, (Ratios{infinity, -infinity}));
    EXPECT_EQ(pixel.dolp, 0);
    EXPECT_EQ(weighted_pixel({-0.0F, 5, -5}).normalized_stokes, (Ratios{-infinity, infinity}));
    Pixel const dark = weighted_pixel({0, 0, -5});
    EXPECT_TRUE(std::isnan(dark.normalized_stokes[0]));
    EXPECT_EQ(dark.normalized_stokes[1], -infinity);
}

TEST(Single_quartet, rescales_the_full_input_range_to_the_full_output_range) {
    // The product 65535 * 4095 rounds to 268365824.
    EXPECT_EQ(weighted_pixel({4095, 4095, 4095}, rescaled_12_bit).s0, 65535);
    EXPECT_EQ(weighted_pixel({4095, 4095, 4095}, rescaled_12_bit).s1, 65535);
    EXPECT_EQ(weighted_pixel({4095, 4095, 4095}, rescaled_12_bit).s2, 65535);
}

TEST(Single_quartet, rescales_by_a_product_and_then_a_division) {
    // The product rounds to 16973564 and the quotient is 33281.498. A factor 128.5 computed
    // beforehand would give 33281.5 and so 33282.
    Pixel const pixel = weighted_pixel({259, 263, 267}, {12, 510, 65535, 65535});
    EXPECT_EQ(pixel.s0, 33281);
    EXPECT_EQ(pixel.s1, 33795);
    EXPECT_EQ(pixel.s2, 34309);
    // Neither does the reciprocal of 503 give this.
    EXPECT_EQ(weighted_pixel({196, 0, 0}, {12, 503, 65535, 65535}).s0, 25537);
}

TEST(Single_quartet, a_rescaled_negative_quantity_is_stored_as_0) {
    Pixel const pixel = weighted_pixel({-1000, -1, -4095}, rescaled_12_bit);
    EXPECT_EQ(pixel.s0, 0);
    EXPECT_EQ(pixel.s1, 0);
    EXPECT_EQ(pixel.s2, 0);
}

TEST(Single_quartet, clamps_at_the_float_full_scale_not_at_the_integer) {
    Pixel const pixel = weighted_pixel({500, 500, 500}, with_maximum(100));
    EXPECT_EQ(pixel.s0, 100);
    EXPECT_EQ(pixel.s1, 100);
    EXPECT_EQ(pixel.s2, 100);
    EXPECT_EQ(weighted_pixel({500, 500, 500}, {8, 65535, 1000, 255}).s0, 500);
}

TEST(Single_quartet, infinities_and_nans_are_clamped) {
    Pixel const pixel = weighted_pixel({infinity, -infinity, NAN}, with_maximum(4095));
    EXPECT_EQ(pixel.s0, 4095);
    EXPECT_EQ(pixel.s1, 0);
    EXPECT_EQ(pixel.s2, 4095);
}

} // namespace
