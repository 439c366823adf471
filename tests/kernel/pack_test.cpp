/// @file
/// Covers what a vector block stores: clamp, rounding, saturation and order of the 16-bit planes,
/// and the eight of sixteen pixels of the float plane at their running index.

#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace support;

Scale with_maximum(float maximum_output_value) {
    return {16, 65535, maximum_output_value, 65535};
}

TEST(Pack, stores_0_for_an_s1_of_minus_1) {
    Pixel const pixel = fixed_pixel(phase_0_cell(100, -1, 1), 0);
    EXPECT_EQ(pixel.s1, 0);
    EXPECT_EQ(pixel.s2, 1);
    EXPECT_EQ(fixed_pixel(phase_0_cell(100, 1, -1), 0).s2, 0);
}

TEST(Pack, stores_0_for_the_most_negative_s1_and_s2) {
    EXPECT_EQ(fixed_pixel({0, 65535, 0, 65535}, 0).s1, 0);
    EXPECT_EQ(fixed_pixel({0, 65535, 0, 65535}, 0).s2, 0);
}

TEST(Pack, clamps_a_quantity_above_the_maximum) {
    Pixel const pixel = fixed_pixel(phase_0_cell(1000, 105, 103), 0, with_maximum(100));
    EXPECT_EQ(pixel.s0, 100);
    EXPECT_EQ(pixel.s1, 100);
    EXPECT_EQ(pixel.s2, 100);
    EXPECT_EQ(fixed_pixel(phase_0_cell(1000, 100, 98), 0, with_maximum(100)).s1, 100);
    EXPECT_EQ(fixed_pixel(phase_0_cell(1000, 100, 98), 0, with_maximum(100)).s2, 98);
}

TEST(Pack, rounds_ties_to_even) {
    EXPECT_EQ(fixed_pixel(phase_0_cell(5, 1, 0), 0).s0, 2);
    EXPECT_EQ(fixed_pixel(phase_0_cell(7, 1, 0), 0).s0, 4);
    EXPECT_EQ(fixed_pixel(phase_0_cell(1, 1, 0), 0).s0, 0);
    EXPECT_EQ(fixed_pixel(phase_0_cell(100, 10, 0), 0, with_maximum(2.5F)).s1, 2);
    EXPECT_EQ(fixed_pixel(phase_0_cell(100, 10, 0), 0, with_maximum(3.5F)).s1, 4);
}

TEST(Pack, saturates_at_65535_above_the_16_bit_range) {
    Cell const brightest{65535, 65535, 65535, 65535};
    EXPECT_EQ(fixed_pixel(brightest, 0, with_maximum(65535)).s0, 65535);
    EXPECT_EQ(fixed_pixel(brightest, 0, with_maximum(70000)).s0, 65535);
    EXPECT_EQ(fixed_pixel(brightest, 0, with_maximum(131070)).s0, 65535);
}

/// Brightness grows by 40 a column and by 1 a row.
Scene slope(std::size_t height, std::size_t width) {
    Scene scene{height, width, {}, make_matrices(Matrix_kind::ideal, 1, 0)};
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            scene.samples.push_back(static_cast<std::uint16_t>(40 * column + row));
        }
    }
    scene.polar_phase = 1;
    return scene;
}

TEST(Pack, stores_the_pixels_in_column_order) {
    Counts const s0 = compute(slope(5, 64)).s0;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 48; ++column) {
            EXPECT_EQ(s0(row, column), 80 * column + 40 + 2 * row + 1) << row << ", " << column;
        }
    }
}

/// What the float plane holds for a pixel, wherever it is stored. Sums and differences are exact,
/// so that blocks and ideal matrices give the same ratios.
Ratios ratios_of(Scene const& scene, std::size_t row, std::size_t column) {
    auto const sample = [&](std::size_t row_parity, std::size_t column_parity) {
        std::size_t const below = row + 1 < scene.height ? row + 1 : row - 1;
        std::size_t const beside = column + 1 < scene.width ? column + 1 : column - 1;
        std::size_t const r = row % 2 == row_parity ? row : below;
        std::size_t const c = column % 2 == column_parity ? column : beside;
        return static_cast<float>(scene.samples[r * scene.width + c]);
    };
    float const s0 = 0.5F * (sample(0, 0) + sample(0, 1) + sample(1, 0) + sample(1, 1));
    return {(sample(1, 0) - sample(0, 1)) / s0, (sample(0, 0) - sample(1, 1)) / s0};
}

/// The pixels of a block whose pairs are stored, in the order of the stores.
constexpr std::array<std::size_t, 8> stored_pixels{0, 1, 4, 5, 10, 11, 14, 15};

/// Expects one row of a block at a pair index of the plane.
void expect_block_row(
    Scene const& scene, Grid<Ratios> const& plane, std::size_t pair_index, std::size_t row,
    std::size_t first_column) {
    for (std::size_t place = 0; place < stored_pixels.size(); ++place) {
        EXPECT_EQ(
            plane.elements[pair_index + place],
            ratios_of(scene, row, first_column + stored_pixels[place]))
            << "pair " << pair_index + place;
    }
}

void expect_untouched(Grid<Ratios> const& plane, std::size_t first_pair, std::size_t last_pair) {
    for (std::size_t pair = first_pair; pair < last_pair; ++pair) {
        EXPECT_EQ(
            plane.elements[pair],
            (Ratios{untouched_ratio(2 * pair), untouched_ratio(2 * pair + 1)}))
            << "pair " << pair;
    }
}

Scene random_scene(std::size_t height, std::size_t width) {
    return make_scene(height, width, Sample_kind::random_16_bit, Matrix_kind::ideal, 1, 14);
}

TEST(Pack, one_block_of_a_frame_of_4_by_32_stores_floats_0_to_15_and_64_to_79) {
    Scene const scene = random_scene(4, 32);
    Grid<Ratios> const plane = compute(scene).normalized_stokes;
    expect_block_row(scene, plane, 0, 0, 0);
    expect_untouched(plane, 8, 16);
    expect_block_row(scene, plane, 32, 1, 0);
    expect_untouched(plane, 40, 48);
}

TEST(Pack, pixels_with_a_matrix_stand_at_their_own_position_beside_a_block) {
    Scene const scene = random_scene(4, 32);
    Grid<Ratios> const plane = compute(scene).normalized_stokes;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = row < 2 ? 16 : 0; column < 32; ++column) {
            EXPECT_EQ(plane(row, column), ratios_of(scene, row, column)) << row << ", " << column;
        }
    }
}

TEST(Pack, the_running_index_grows_from_block_to_block_and_row_pair_to_row_pair) {
    Scene const scene = random_scene(5, 48);
    Grid<Ratios> const plane = compute(scene).normalized_stokes;
    expect_block_row(scene, plane, 0, 0, 0);
    expect_block_row(scene, plane, 8, 0, 16);
    expect_block_row(scene, plane, 16, 2, 0);
    expect_block_row(scene, plane, 24, 2, 16);
    expect_block_row(scene, plane, 48, 1, 0);
    expect_block_row(scene, plane, 56, 1, 16);
    expect_block_row(scene, plane, 64, 3, 0);
    expect_block_row(scene, plane, 72, 3, 16);
    // Columns 0 to 31 of rows 2 and 3.
    expect_untouched(plane, 96, 128);
    expect_untouched(plane, 144, 176);
}

TEST(Pack, blocks_of_a_later_row_pair_overwrite_the_tail_of_an_earlier_one) {
    Scene const scene = random_scene(7, 48);
    Grid<Ratios> const plane = compute(scene).normalized_stokes;
    // Columns 32 to 47 of rows 0 and 1 belonged to the tail of the first row pair.
    expect_block_row(scene, plane, 32, 4, 0);
    expect_block_row(scene, plane, 40, 4, 16);
    expect_block_row(scene, plane, 80, 5, 0);
    expect_block_row(scene, plane, 88, 5, 16);
    EXPECT_EQ(plane(2, 32), ratios_of(scene, 2, 32));
    EXPECT_EQ(plane(6, 0), ratios_of(scene, 6, 0));
}

/// Expects the ratios of whole rows at their own pixels. Height and width are of one parity: else
/// the final pixel takes a matrix that is not that of its position.
void expect_own_positions(std::size_t height, std::size_t width, std::size_t first_row) {
    Scene const scene = random_scene(height, width);
    Grid<Ratios> const plane = compute(scene).normalized_stokes;
    for (std::size_t row = first_row; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            EXPECT_EQ(plane(row, column), ratios_of(scene, row, column))
                << height << " x " << width << " at " << row << ", " << column;
        }
    }
}

TEST(Pack, the_last_rows_stand_over_any_earlier_store) {
    expect_own_positions(9, 161, 8);
    expect_own_positions(10, 160, 8);
    expect_own_positions(40, 160, 38);
    expect_own_positions(41, 161, 40);
}

TEST(Pack, a_frame_without_a_block_holds_every_ratio_at_its_pixel) {
    expect_own_positions(2, 100, 0);
    expect_own_positions(2, 2, 0);
    expect_own_positions(3, 17, 0);
    expect_own_positions(8, 30, 0);
    expect_own_positions(9, 31, 0);
}

} // namespace
