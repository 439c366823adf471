/// @file
/// Covers the boundary: what selects a variant, which fields are read when, which planes are
/// written, and frames at the limits of the contract.

#include "support/guarded_pages.hpp"
#include "support/one_pixel.hpp"
#include "support/traced_scene.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

using namespace support;

constexpr std::array some_phases{0, 1, 2, 3, 7};

Scene random_scene(std::size_t height, std::size_t width, std::int32_t polar_phase = 0) {
    return make_scene(
        height, width, Sample_kind::random_12_bit, Matrix_kind::random, polar_phase, 11);
}

void expect_equal(Planes const& left, Planes const& right) {
    EXPECT_EQ(left.normalized_stokes, right.normalized_stokes);
    EXPECT_EQ(left.s0, right.s0);
    EXPECT_EQ(left.s1, right.s1);
    EXPECT_EQ(left.s2, right.s2);
    EXPECT_EQ(left.azimuth, right.azimuth);
    EXPECT_EQ(left.dolp, right.dolp);
}

TEST(Transform, without_a_requested_plane_returns_0_and_reads_no_sample) {
    Guarded_pages const pages{4096, Guarded_pages::Access::read_only};
    auto const* const inaccessible =
        static_cast<std::uint16_t const*>(static_cast<void const*>(pages.last()));
    Matrix const weights{};
    Calibration_matrices const matrices{weights, weights, weights, weights};
    for (std::int32_t const phase : some_phases) {
        for (std::int32_t const full_scale : {65535, 4095}) {
            for (std::size_t const height : {4U, 5U}) {
                for (std::size_t const width : {48U, 49U}) {
                    Polarization_computation_arguments const arguments{
                        height,     width,   phase,   inaccessible, 16,      65535,   65535,
                        full_scale, nullptr, nullptr, nullptr,      nullptr, nullptr, nullptr};
                    EXPECT_EQ(
                        qn_polarization_processor_transform_vector_avx2(arguments, matrices), 0);
                }
            }
        }
    }
}

TEST(Transform, with_one_requested_plane_writes_that_plane_alone_borders_included) {
    for (std::size_t const height : {2U, 5U, 6U}) {
        for (std::size_t const width : {33U, 48U}) {
            Scene scene = random_scene(height, width);
            Planes const all = compute(scene);
            for (Plane const plane : every_plane) {
                // The planes that are not requested are watched inside.
                scene.wanted = only(plane);
                Planes const alone = compute(scene);
                EXPECT_EQ(alone.s0, plane == Plane::s0 ? all.s0 : (Counts{width, {}}));
                EXPECT_EQ(alone.s1, plane == Plane::s1 ? all.s1 : (Counts{width, {}}));
                EXPECT_EQ(alone.s2, plane == Plane::s2 ? all.s2 : (Counts{width, {}}));
                EXPECT_EQ(
                    alone.azimuth, plane == Plane::azimuth ? all.azimuth : (Counts{width, {}}));
                EXPECT_EQ(alone.dolp, plane == Plane::dolp ? all.dolp : (Counts{width, {}}));
                if (plane == Plane::normalized_stokes) {
                    EXPECT_EQ(alone.normalized_stokes, all.normalized_stokes);
                }
            }
        }
    }
}

TEST(Transform, counts_a_pointer_as_a_request_and_writes_the_whole_plane) {
    Scene scene = random_scene(4, 40);
    for (unsigned bits = 1; bits < plane_set_count; ++bits) {
        scene.wanted = {bits};
        Planes const planes = compute(scene);
        EXPECT_EQ(planes.s0.elements.size(), scene.wanted.has(Plane::s0) ? 160U : 0U);
        EXPECT_EQ(planes.dolp.elements.size(), scene.wanted.has(Plane::dolp) ? 160U : 0U);
    }
}

/// All four samples count in S0 of every pixel, so that one call shows that no pixel is left out.
void expect_all_weighted(std::size_t height, std::size_t width) {
    Scene scene{
        height, width, Samples(height * width, 1),
        everywhere(matrix_of({20, 40, 60, 80}, {1, 1, 1, 1}, {1, 1, 1, 1}))};
    Planes const planes = compute(scene);
    EXPECT_EQ(planes.s0.elements, std::vector<std::uint16_t>(height * width, 100));
    EXPECT_EQ(planes.s1.elements, std::vector<std::uint16_t>(height * width, 4));
    EXPECT_EQ(planes.s2.elements, std::vector<std::uint16_t>(height * width, 4));
    EXPECT_EQ(
        planes.normalized_stokes.elements,
        std::vector<Ratios>(height * width, Ratios{0.04F, 0.04F}));
}

TEST(Transform, writes_all_four_pixels_of_a_frame_of_2_by_2) {
    expect_all_weighted(2, 2);
}

TEST(Transform, takes_frames_of_2_rows_and_3_or_15_columns) {
    expect_all_weighted(2, 3);
    expect_all_weighted(2, 15);
}

TEST(Transform, computes_a_frame_of_3_rows_and_16_columns_without_a_block) {
    expect_all_weighted(3, 16);
}

TEST(Transform, takes_any_unknown_phase_for_phase_0) {
    Planes const phase_0 = compute(random_scene(5, 50, 0));
    for (std::int32_t const phase :
         {7, 4, -1, 256, 65537, std::numeric_limits<std::int32_t>::min(),
          std::numeric_limits<std::int32_t>::max()}) {
        Scene scene = random_scene(5, 50, 0);
        scene.polar_phase = phase;
        expect_equal(compute(scene), phase_0);
    }
}

TEST(Transform, tells_phases_1_to_3_from_phase_0) {
    Planes const phase_0 = compute(random_scene(5, 50, 0));
    for (std::int32_t const phase : {1, 2, 3}) {
        Scene scene = random_scene(5, 50, 0);
        scene.polar_phase = phase;
        EXPECT_NE(compute(scene).azimuth, phase_0.azimuth);
    }
}

TEST(Transform, does_not_read_the_input_full_scale_when_the_ranges_agree) {
    Scene scene = random_scene(5, 50);
    scene.scale = {12, 4095, 4095, 4095};
    Planes const planes = compute(scene);
    for (float const unread : {0.0F, -1.0F, NAN, INFINITY, 1e-40F}) {
        scene.scale.maximum_input_value = unread;
        expect_equal(compute(scene), planes);
    }
}

TEST(Transform, rescales_the_stokes_planes_alone_when_the_ranges_differ) {
    Scene scene = random_scene(5, 50);
    scene.scale = {12, 4095, 65535, 4095};
    Planes const sample_units_planes = compute(scene);
    scene.scale.maximum_output_value_integer = 65535;
    Planes const rescaled = compute(scene);
    EXPECT_NE(rescaled.s0, sample_units_planes.s0);
    EXPECT_NE(rescaled.s1, sample_units_planes.s1);
    EXPECT_NE(rescaled.s2, sample_units_planes.s2);
    EXPECT_EQ(rescaled.azimuth, sample_units_planes.azimuth);
    EXPECT_EQ(rescaled.dolp, sample_units_planes.dolp);
    EXPECT_EQ(rescaled.normalized_stokes, sample_units_planes.normalized_stokes);
}

TEST(Transform, rescales_12_bit_samples_to_16_bit_planes) {
    // 1000 * 65535 / 4095 is 16003.66.
    EXPECT_EQ(weighted_pixel({1000, 0, 0}, rescaled_12_bit).s0, 16004);
    // The reciprocal of the vector block is good to 1.5 * 2^-12: 6 counts here.
    EXPECT_NEAR(fixed_pixel(phase_0_cell(2000, 0, 0), 0, rescaled_12_bit).s0, 16004, 6);
}

TEST(Transform, does_not_mask_a_sample_above_the_bit_depth) {
    Scale const scale{12, 4095, 65535, 4095};
    EXPECT_EQ(fixed_pixel({5000, 5000, 5000, 5000}, 0, scale).s0, 10000);
    Scene scene{2, 2, Samples(4, 5000), everywhere(matrix_of({1, 1, 1, 1}, {}, {}))};
    scene.scale = scale;
    EXPECT_EQ(compute(scene).s0.elements, std::vector<std::uint16_t>(4, 10000));
}

TEST(Transform, leaves_arguments_matrices_and_samples_as_they_were) {
    Scene const scene = random_scene(5, 50);
    Samples const samples = scene.samples;
    Matrix_set const weights = scene.matrices;
    std::vector<std::uint16_t> s0(scene.pixels());
    std::vector<float> normalized_stokes(2 * scene.pixels());
    Polarization_computation_arguments const arguments{5,
                                                       50,
                                                       0,
                                                       samples.data(),
                                                       16,
                                                       65535,
                                                       65535,
                                                       65535,
                                                       normalized_stokes.data(),
                                                       s0.data(),
                                                       nullptr,
                                                       nullptr,
                                                       nullptr,
                                                       nullptr};
    Calibration_matrices const matrices{weights[0], weights[1], weights[2], weights[3]};
    std::array<std::byte, sizeof arguments> arguments_before;
    std::array<std::byte, sizeof matrices> matrices_before;
    std::memcpy(arguments_before.data(), &arguments, sizeof arguments);
    std::memcpy(matrices_before.data(), static_cast<void const*>(&matrices), sizeof matrices);
    EXPECT_EQ(qn_polarization_processor_transform_vector_avx2(arguments, matrices), 0);
    EXPECT_EQ(std::memcmp(arguments_before.data(), &arguments, sizeof arguments), 0);
    EXPECT_EQ(
        std::memcmp(matrices_before.data(), static_cast<void const*>(&matrices), sizeof matrices),
        0);
    EXPECT_EQ(samples, scene.samples);
    EXPECT_EQ(std::memcmp(&weights, &scene.matrices, sizeof weights), 0);
}

TEST(Transform, takes_one_array_for_all_four_matrices) {
    Scene const scene = random_scene(4, 40);
    Matrix const& shared = scene.matrices[0];
    std::vector<std::uint16_t> s0(scene.pixels());
    Polarization_computation_arguments const arguments{
        4,       40,        0,       scene.samples.data(),
        16,      65535,     65535,   65535,
        nullptr, s0.data(), nullptr, nullptr,
        nullptr, nullptr};
    EXPECT_EQ(
        qn_polarization_processor_transform_vector_avx2(
            arguments, {shared, shared, shared, shared}),
        0);
    Scene copied = scene;
    copied.matrices = everywhere(shared);
    EXPECT_EQ(compute(copied).s0.elements, s0);
}

/// With full scales of 65535 and 1, a rescaled S0 of 1 saturates and one in sample units stays 1.
bool keeps_sample_units(std::int32_t bit_depth, std::int32_t maximum_output_value_integer) {
    Scale const scale{bit_depth, 1, 65535, maximum_output_value_integer};
    std::uint16_t const weighted = weighted_pixel({1, 0, 0}, scale).s0;
    std::uint16_t const fixed = fixed_pixel(phase_0_cell(2, 0, 0), 0, scale).s0;
    EXPECT_EQ(weighted == 1, fixed == 1);
    // The vector block's reciprocal of 1 is not exactly 1 on every processor.
    EXPECT_TRUE(fixed == 1 || fixed > 65500) << fixed;
    return weighted == 1;
}

TEST(Transform, expects_the_full_scale_65535_at_bit_depth_16) {
    EXPECT_TRUE(keeps_sample_units(16, 65535));
    EXPECT_FALSE(keeps_sample_units(16, 255));
    EXPECT_FALSE(keeps_sample_units(16, 65536));
    EXPECT_FALSE(keeps_sample_units(16, 65534));
}

TEST(Transform, expects_the_full_scale_of_each_ordinary_bit_depth) {
    EXPECT_TRUE(keeps_sample_units(8, 255));
    EXPECT_TRUE(keeps_sample_units(12, 4095));
    EXPECT_FALSE(keeps_sample_units(12, 65535));
    EXPECT_FALSE(keeps_sample_units(8, 4095));
    EXPECT_TRUE(keeps_sample_units(1, 1));
}

TEST(Transform, expects_the_full_scale_0_at_bit_depths_0_and_32) {
    EXPECT_TRUE(keeps_sample_units(0, 0));
    EXPECT_TRUE(keeps_sample_units(32, 0));
    EXPECT_FALSE(keeps_sample_units(32, -1));
    EXPECT_FALSE(keeps_sample_units(0, 1));
}

TEST(Transform, expects_the_full_scale_2147483647_at_bit_depth_31) {
    EXPECT_TRUE(keeps_sample_units(31, 2147483647));
    EXPECT_FALSE(keeps_sample_units(31, 0));
}

TEST(Transform, uses_the_low_five_bits_of_the_bit_depth) {
    EXPECT_TRUE(keeps_sample_units(32 + 12, 4095));
    EXPECT_TRUE(keeps_sample_units(-16, 65535));
    EXPECT_TRUE(keeps_sample_units(-1, 2147483647));
}

TEST(Transform, sees_only_the_low_bit_of_height_and_width) {
    // Even height, odd width: the last column is even-numbered and ends on matrix 0.
    Planes const tall = compute(scene_of_numbered_matrices(6, 23));
    EXPECT_EQ(tall.s0(2, 22), 100);
    EXPECT_EQ(tall.s0(3, 22), 102);
    EXPECT_EQ(tall.s0(5, 22), 100);
    Planes const flat = compute(scene_of_numbered_matrices(2, 7));
    EXPECT_EQ(flat.s0(0, 6), 100);
    EXPECT_EQ(flat.s0(1, 5), 103);
    EXPECT_EQ(flat.s0(1, 6), 100);
}

} // namespace
