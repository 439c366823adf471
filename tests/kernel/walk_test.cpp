/// @file
/// Covers the walk: which pixels the vector blocks write, and which matrix serves each other pixel.

#include "support/planes.hpp"
#include "support/traced_scene.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace {

using namespace support;

constexpr int by_block{s0_by_block};
constexpr int by_matrix_0{s0_by_matrix_0};
constexpr int by_matrix_1{s0_by_matrix_0 + 1};
constexpr int by_matrix_2{s0_by_matrix_0 + 2};
constexpr int by_matrix_3{s0_by_matrix_0 + 3};

Counts writers_of(std::size_t height, std::size_t width) {
    Scene scene = scene_of_numbered_matrices(height, width);
    scene.wanted = only(Plane::s0);
    return compute(scene).s0;
}

/// The writer of a pixel when `vector_rows` rows of `vector_columns` columns are left to blocks.
int expected_writer(
    std::size_t height, std::size_t width, std::size_t row, std::size_t column,
    std::size_t vector_rows, std::size_t vector_columns) {
    if (row < vector_rows && column < vector_columns) {
        return by_block;
    }
    if (row == height - 1 && column == width - 1) {
        return height % 2 == 0 && width % 2 == 0 ? by_matrix_3 : by_matrix_0;
    }
    return by_matrix_0 + static_cast<int>(2 * (row % 2) + column % 2);
}

void expect_walk(
    std::size_t height, std::size_t width, std::size_t vector_rows, std::size_t vector_columns) {
    Counts const writers = writers_of(height, width);
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            EXPECT_EQ(
                writers(row, column),
                expected_writer(height, width, row, column, vector_rows, vector_columns))
                << height << " x " << width << " at " << row << ", " << column;
        }
    }
}

TEST(Walk, a_frame_of_2_rows_has_no_block_at_any_width) {
    for (std::size_t width = 2; width <= 100; ++width) {
        expect_walk(2, width, 0, 0);
    }
}

TEST(Walk, a_frame_of_3_rows_has_one_row_pair) {
    expect_walk(3, 40, 2, 16);
}

TEST(Walk, a_frame_of_4_rows_has_one_row_pair) {
    expect_walk(4, 40, 2, 16);
}

TEST(Walk, a_frame_of_5_rows_has_two_row_pairs) {
    expect_walk(5, 40, 4, 16);
}

TEST(Walk, a_frame_of_6_rows_has_two_row_pairs) {
    expect_walk(6, 40, 4, 16);
}

TEST(Walk, a_width_of_16_has_no_block) {
    expect_walk(5, 16, 0, 0);
    Counts const writers = writers_of(5, 16);
    EXPECT_EQ(writers(0, 13), by_matrix_1);
    EXPECT_EQ(writers(1, 14), by_matrix_2);
    EXPECT_EQ(writers(1, 15), by_matrix_3);
}

TEST(Walk, a_width_of_17_ends_on_an_even_column_with_the_even_matrices) {
    expect_walk(5, 17, 0, 0);
    Counts const writers = writers_of(5, 17);
    EXPECT_EQ(writers(0, 15), by_matrix_1);
    EXPECT_EQ(writers(0, 16), by_matrix_0);
    EXPECT_EQ(writers(1, 16), by_matrix_2);
}

TEST(Walk, a_width_of_31_has_no_block) {
    expect_walk(5, 31, 0, 0);
}

TEST(Walk, a_width_of_32_has_one_block_of_columns_0_to_15) {
    expect_walk(5, 32, 4, 16);
    Counts const writers = writers_of(5, 32);
    EXPECT_EQ(writers(0, 15), by_block);
    EXPECT_EQ(writers(0, 16), by_matrix_0);
    EXPECT_EQ(writers(1, 31), by_matrix_3);
}

TEST(Walk, a_width_of_47_has_one_block_and_ends_with_matrices_0_and_2) {
    expect_walk(5, 47, 4, 16);
    Counts const writers = writers_of(5, 47);
    EXPECT_EQ(writers(0, 45), by_matrix_1);
    EXPECT_EQ(writers(0, 46), by_matrix_0);
    EXPECT_EQ(writers(1, 46), by_matrix_2);
}

TEST(Walk, a_width_of_48_has_two_blocks) {
    expect_walk(5, 48, 4, 32);
}

TEST(Walk, every_height_and_width_leaves_the_last_16_columns_and_rows_to_the_matrices) {
    int frames = 0;
    for (std::size_t height = 3; height <= 10; ++height) {
        for (std::size_t width = 16; width <= 130; ++width) {
            std::size_t const vector_rows = height % 2 == 0 ? height - 2 : height - 1;
            expect_walk(height, width, vector_rows, 16 * (width / 16 - 1));
            ++frames;
        }
    }
    std::cout << "frames walked: " << frames << '\n';
}

} // namespace
