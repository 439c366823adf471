/// @file
/// Covers the end of a row pair: from which columns and rows its pixels take their neighbours, and
/// with which matrix. Each sample holds its own position, each matrix picks one of the four.

#include "support/planes.hpp"
#include "support/traced_scene.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;

constexpr auto at{position_sample};

enum Neighbour : std::size_t { own, horizontal, vertical, diagonal };

/// The plane of the sample that every pixel with a matrix sees as this neighbour.
Counts neighbours(std::size_t height, std::size_t width, Neighbour neighbour) {
    return compute(scene_of_positions(height, width, neighbour)).s1;
}

TEST(Last_column, of_a_width_of_16_reads_columns_15_and_14) {
    Counts const beside = neighbours(5, 16, horizontal);
    Counts const across = neighbours(5, 16, diagonal);
    for (std::size_t row = 0; row < 4; ++row) {
        EXPECT_EQ(beside(row, 14), at(row, 15));
        EXPECT_EQ(beside(row, 15), at(row, 14));
        EXPECT_EQ(across(row, 14), at(row + 1, 15));
        EXPECT_EQ(across(row, 15), at(row + 1, 14));
        EXPECT_EQ(neighbours(5, 16, own)(row, 15), at(row, 15));
        EXPECT_EQ(neighbours(5, 16, vertical)(row, 15), at(row + 1, 15));
    }
}

TEST(Last_column, of_a_width_of_17_reads_columns_16_and_15) {
    Counts const beside = neighbours(5, 17, horizontal);
    Counts const across = neighbours(5, 17, diagonal);
    for (std::size_t row = 0; row < 4; ++row) {
        EXPECT_EQ(beside(row, 15), at(row, 16));
        EXPECT_EQ(beside(row, 16), at(row, 15));
        EXPECT_EQ(across(row, 16), at(row + 1, 15));
        EXPECT_EQ(neighbours(5, 17, own)(row, 16), at(row, 16));
        EXPECT_EQ(neighbours(5, 17, vertical)(row, 16), at(row + 1, 16));
    }
}

TEST(Last_column, of_the_last_row_pair_of_an_even_height_looks_up_in_its_lower_row) {
    for (std::size_t const width : {40U, 41U}) {
        Counts const below = neighbours(6, width, vertical);
        EXPECT_EQ(below(4, width - 1), at(5, width - 1));
        EXPECT_EQ(below(5, width - 1), at(4, width - 1));
    }
}

TEST(Last_column, above_the_last_row_pair_of_an_even_height_reads_that_pair) {
    for (std::size_t const width : {40U, 41U}) {
        EXPECT_EQ(neighbours(6, width, vertical)(3, width - 1), at(4, width - 1));
        EXPECT_EQ(neighbours(6, width, diagonal)(3, width - 1), at(4, width - 2));
    }
}

TEST(Last_column, of_the_last_row_pair_of_an_odd_height_reads_the_last_row) {
    for (std::size_t const width : {40U, 41U}) {
        EXPECT_EQ(neighbours(5, width, vertical)(3, width - 1), at(4, width - 1));
        EXPECT_EQ(neighbours(5, width, diagonal)(3, width - 1), at(4, width - 2));
    }
}

TEST(Last_column, of_a_frame_of_2_rows_looks_up_in_its_second_row) {
    for (std::size_t const width : {40U, 41U}) {
        Counts const below = neighbours(2, width, vertical);
        EXPECT_EQ(below(0, width - 1), at(1, width - 1));
        EXPECT_EQ(below(1, width - 1), at(0, width - 1));
    }
}

/// 100 and the number of the matrix.
Counts serving_matrices(std::size_t height, std::size_t width) {
    return compute(scene_of_numbered_matrices(height, width)).s0;
}

TEST(Last_column, of_an_even_width_takes_the_odd_column_matrices) {
    for (std::size_t const height : {5U, 6U}) {
        Counts const served = serving_matrices(height, 34);
        for (std::size_t row = 0; row < 4; row += 2) {
            EXPECT_EQ(served(row, 32), 100);
            EXPECT_EQ(served(row, 33), 101);
            EXPECT_EQ(served(row + 1, 32), 102);
            EXPECT_EQ(served(row + 1, 33), 103);
        }
    }
}

TEST(Last_column, of_an_odd_width_takes_the_even_column_matrices) {
    for (std::size_t const height : {5U, 6U}) {
        Counts const served = serving_matrices(height, 33);
        for (std::size_t row = 0; row < 4; row += 2) {
            EXPECT_EQ(served(row, 32), 100);
            EXPECT_EQ(served(row + 1, 32), 102);
        }
    }
}

} // namespace
