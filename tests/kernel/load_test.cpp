/// @file
/// Covers how samples reach the lanes of a vector block: neighbourhoods, block borders, the full
/// range of a sample, and addresses without alignment.

#include "support/one_pixel.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace support;

constexpr std::uint16_t lit{1000};

/// A dark frame with one sample of 1000.
Scene lit_scene(std::size_t height, std::size_t width, std::size_t row, std::size_t column) {
    Scene scene{height, width, Samples(height * width, 0), everywhere({})};
    scene.samples[row * width + column] = lit;
    scene.polar_phase = 1;
    scene.wanted = only(Plane::s0);
    return scene;
}

TEST(Load, every_sample_reaches_the_pixels_of_its_neighbourhood_and_no_other) {
    constexpr std::size_t width = 50;
    constexpr std::size_t vector_columns = 32;
    for (std::int32_t phase = 1; phase < 4; ++phase) {
        for (std::size_t row = 0; row < 3; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                Scene scene = lit_scene(3, width, row, column);
                scene.polar_phase = phase;
                Counts const s0 = compute(scene).s0;
                for (std::size_t y = 0; y < 2; ++y) {
                    for (std::size_t x = 0; x < vector_columns; ++x) {
                        bool const near = row - y <= 1 && column - x <= 1;
                        ASSERT_EQ(s0(y, x), near ? lit / 2 : 0)
                            << "sample " << row << ", " << column << " at " << y << ", " << x;
                    }
                }
            }
        }
    }
}

TEST(Load, the_last_pixel_of_a_block_uses_the_first_column_behind_it) {
    Counts const last_block = compute(lit_scene(3, 32, 1, 16)).s0;
    EXPECT_EQ(last_block(0, 15), lit / 2);
    EXPECT_EQ(last_block(1, 15), lit / 2);
    EXPECT_EQ(last_block(0, 14), 0);
    Counts const two_blocks = compute(lit_scene(3, 48, 1, 16)).s0;
    EXPECT_EQ(two_blocks(0, 15), lit / 2);
    EXPECT_EQ(two_blocks(0, 16), lit / 2);
    EXPECT_EQ(two_blocks(0, 17), 0);
}

TEST(Load, samples_behind_the_neighbour_column_have_no_effect_on_a_block) {
    for (std::size_t column = 17; column < 34; ++column) {
        Counts const s0 = compute(lit_scene(3, 34, 1, column)).s0;
        for (std::size_t x = 0; x < 16; ++x) {
            EXPECT_EQ(s0(0, x), 0) << column;
            EXPECT_EQ(s0(1, x), 0) << column;
        }
    }
}

TEST(Load, converts_every_sample_value_exactly) {
    EXPECT_EQ(fixed_pixel({65535, 0, 0, 0}, 0).s1, 65535);
    EXPECT_EQ(fixed_pixel({65535, 0, 0, 1}, 0).s1, 65534);
    EXPECT_EQ(fixed_pixel({0, 32768, 65535, 0}, 0).s2, 32767);
    EXPECT_EQ(fixed_pixel({65535, 65535, 65535, 65535}, 0).s0, 65535);
    // S1 / S0 of 65535 / 98302.5.
    EXPECT_EQ(fixed_pixel({65535, 65535, 65535, 0}, 0).normalized_stokes[0], 65535.0F / 98302.5F);
}

TEST(Load, a_frame_reads_alike_at_an_odd_byte_address) {
#ifdef ALIGNMENT_IS_CHECKED
    GTEST_SKIP() << "the sanitizer forbids samples at odd addresses";
#endif
    Scene scene = make_scene(5, 53, Sample_kind::random_16_bit, Matrix_kind::random, 1, 8);
    std::vector<std::byte> shifted(2 * scene.pixels() + 1);
    std::memcpy(shifted.data() + 1, scene.samples.data(), 2 * scene.pixels());
    void const* const odd_address = shifted.data() + 1;
    std::vector<std::uint16_t> azimuth(scene.pixels());
    std::vector<std::uint16_t> s0(scene.pixels());
    Polarization_computation_arguments const arguments{
        5,
        53,
        1,
        static_cast<std::uint16_t const*>(odd_address),
        16,
        65535,
        65535,
        65535,
        nullptr,
        s0.data(),
        nullptr,
        nullptr,
        azimuth.data(),
        nullptr};
    auto const& weights = scene.matrices;
    EXPECT_EQ(
        qn_polarization_processor_transform_vector_avx2(
            arguments, {weights[0], weights[1], weights[2], weights[3]}),
        0);
    Planes const planes = compute(scene);
    EXPECT_EQ(s0, planes.s0.elements);
    EXPECT_EQ(azimuth, planes.azimuth.elements);
}

TEST(Load, widths_that_are_no_multiple_of_8_shift_no_row) {
    for (std::size_t width = 32; width < 64; ++width) {
        Scene scene{7, width, {}, everywhere({})};
        for (std::size_t pixel = 0; pixel < scene.pixels(); ++pixel) {
            scene.samples.push_back(static_cast<std::uint16_t>(pixel));
        }
        scene.polar_phase = 1;
        Counts const s0 = compute(scene).s0;
        std::size_t const vector_columns = 16 * (width / 16 - 1);
        for (std::size_t row = 0; row < 6; ++row) {
            for (std::size_t column = 0; column < vector_columns; ++column) {
                // Samples i, i + 1, i + width and i + width + 1.
                EXPECT_EQ(s0(row, column), 2 * (row * width + column) + width + 1) << width;
            }
        }
    }
}

} // namespace
