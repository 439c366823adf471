/// @file
/// Covers the last rows of a frame: from where every pixel takes its four samples, and which matrix
/// serves it, in particular the final pixel. Each sample holds its own position.

#include "support/planes.hpp"
#include "support/traced_scene.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace {

using namespace support;

constexpr auto at{position_sample};

/// The samples of a frame's pixels in the order of a matrix's columns.
struct Quartets {
    std::array<Counts, 4> planes;

    std::array<std::uint16_t, 4> operator()(std::size_t row, std::size_t column) const {
        return {
            planes[0](row, column), planes[1](row, column), planes[2](row, column),
            planes[3](row, column)};
    }
};

Quartets quartets_of(std::size_t height, std::size_t width) {
    Quartets quartets;
    for (std::size_t sample = 0; sample < 4; ++sample) {
        Scene scene = scene_of_positions(height, width, sample);
        scene.wanted = only(Plane::s1);
        quartets.planes[sample] = compute(scene).s1;
    }
    return quartets;
}

std::array<std::uint16_t, 4> expected_quartet(
    std::size_t height, std::size_t width, std::size_t row, std::size_t column) {
    std::size_t const beside = column == width - 1 ? column - 1 : column + 1;
    std::size_t const below = row == height - 1 ? row - 1 : row + 1;
    return {at(row, column), at(row, beside), at(below, column), at(below, beside)};
}

TEST(Last_rows, of_a_frame_of_2_by_2_read_the_same_samples_in_four_orders) {
    Quartets const quartets = quartets_of(2, 2);
    using Quartet = std::array<std::uint16_t, 4>;
    EXPECT_EQ(quartets(0, 0), (Quartet{0, 1, 256, 257}));
    EXPECT_EQ(quartets(0, 1), (Quartet{1, 0, 257, 256}));
    EXPECT_EQ(quartets(1, 0), (Quartet{256, 257, 0, 1}));
    EXPECT_EQ(quartets(1, 1), (Quartet{257, 256, 1, 0}));
}

TEST(Last_rows, of_a_frame_of_2_rows_are_the_whole_frame_at_every_width) {
    for (std::size_t width = 2; width <= 70; ++width) {
        Quartets const quartets = quartets_of(2, width);
        for (std::size_t row = 0; row < 2; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                EXPECT_EQ(quartets(row, column), expected_quartet(2, width, row, column))
                    << width << " at " << row << ", " << column;
            }
        }
    }
}

TEST(Last_rows, every_pixel_outside_the_blocks_reads_its_own_neighbourhood_turned_inwards) {
    int pixels = 0;
    for (std::size_t height = 3; height <= 8; ++height) {
        for (std::size_t width = 16; width <= 50; ++width) {
            Quartets const quartets = quartets_of(height, width);
            std::size_t const vector_columns = 16 * (width / 16 - 1);
            std::size_t const vector_rows = height % 2 == 0 ? height - 2 : height - 1;
            for (std::size_t row = 0; row < height; ++row) {
                for (std::size_t column = row < vector_rows ? vector_columns : 0; column < width;
                     ++column) {
                    ASSERT_EQ(quartets(row, column), expected_quartet(height, width, row, column))
                        << height << " x " << width << " at " << row << ", " << column;
                    ++pixels;
                }
            }
        }
    }
    std::cout << "pixels with a matrix: " << pixels << '\n';
}

/// 100 and the number of the matrix.
Counts serving_matrices(std::size_t height, std::size_t width) {
    return compute(scene_of_numbered_matrices(height, width)).s0;
}

TEST(Last_rows, of_3_by_17_alternate_the_even_row_matrices_and_end_on_matrix_0) {
    Counts const served = serving_matrices(3, 17);
    for (std::size_t column = 0; column < 16; ++column) {
        EXPECT_EQ(served(2, column), 100 + column % 2) << column;
    }
    EXPECT_EQ(served(2, 16), 100);
    Quartets const quartets = quartets_of(3, 17);
    EXPECT_EQ(quartets(2, 0), (std::array<std::uint16_t, 4>{512, 513, 256, 257}));
    EXPECT_EQ(quartets(2, 16), (std::array<std::uint16_t, 4>{528, 527, 272, 271}));
}

TEST(Last_rows, of_even_height_and_odd_width_end_on_matrix_0_twice) {
    for (std::size_t const height : {2U, 4U, 6U}) {
        Counts const served = serving_matrices(height, 33);
        EXPECT_EQ(served(height - 2, 32), 100) << height;
        EXPECT_EQ(served(height - 1, 32), 100) << height;
        EXPECT_EQ(served(height - 1, 31), 103) << height;
        EXPECT_EQ(served(height - 1, 30), 102) << height;
    }
}

TEST(Last_rows, of_odd_height_and_even_width_end_on_matrix_0_twice) {
    for (std::size_t const height : {3U, 5U}) {
        Counts const served = serving_matrices(height, 34);
        EXPECT_EQ(served(height - 1, 32), 100) << height;
        EXPECT_EQ(served(height - 1, 33), 100) << height;
        EXPECT_EQ(served(height - 1, 31), 101) << height;
    }
}

TEST(Last_rows, of_odd_height_and_odd_width_end_on_matrix_0) {
    for (std::size_t const height : {3U, 5U}) {
        Counts const served = serving_matrices(height, 33);
        EXPECT_EQ(served(height - 1, 32), 100) << height;
        EXPECT_EQ(served(height - 1, 31), 101) << height;
    }
}

TEST(Last_rows, of_even_height_and_even_width_end_on_matrix_3) {
    for (std::size_t const height : {2U, 4U, 6U}) {
        Counts const served = serving_matrices(height, 34);
        EXPECT_EQ(served(height - 1, 33), 103) << height;
        EXPECT_EQ(served(height - 1, 32), 102) << height;
        EXPECT_EQ(served(height - 2, 33), 101) << height;
    }
}

TEST(Last_rows, are_served_alike_in_every_phase) {
    Scene scene = make_scene(6, 40, Sample_kind::random_16_bit, Matrix_kind::random, 0, 17);
    Planes const phase_0 = compute(scene);
    for (scene.polar_phase = 1; scene.polar_phase < 4; ++scene.polar_phase) {
        Planes const other = compute(scene);
        for (std::size_t row = 0; row < 6; ++row) {
            for (std::size_t column = row < 4 ? 16 : 0; column < 40; ++column) {
                EXPECT_EQ(other.s0(row, column), phase_0.s0(row, column));
                EXPECT_EQ(other.s1(row, column), phase_0.s1(row, column));
                EXPECT_EQ(other.azimuth(row, column), phase_0.azimuth(row, column));
            }
        }
    }
}

} // namespace
