// Covers the rule by position against a walk that makes the calls of a frame one after another, in
// their order, and notes what each does. Neither of the two formulations is derived from the other.

#include "reference/frame_rule.hpp"

#include <cstdio>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

using namespace reference;

/// Notes every call that reaches a pixel, and the last writer of each pair of floats.
class Noting_walk {
public:
    Noting_walk(std::size_t height, std::size_t width)
        : calls(height * width), float_pairs(height * width), width_(width) {
        std::size_t row = 0;
        if (height != 2) {
            do {
                row_pair(row);
                row += 2;
            } while (height - 2 > row);
        }
        if (height % 2 == 0) {
            last_two_rows(row);
        } else {
            last_single_row(row);
        }
    }

    std::vector<std::vector<Pixel_place>> calls;
    std::vector<std::optional<Position>> float_pairs;

private:
    void weighted(std::size_t row, std::size_t column, std::size_t matrix, bool left, bool up) {
        calls[row * width_ + column].push_back({false, left, up, matrix});
        float_pairs[row * width_ + column] = {row, column};
    }

    void block(std::size_t row, std::size_t column) {
        static constexpr std::size_t stored[] = {0, 1, 4, 5, 10, 11, 14, 15};
        for (std::size_t lower = 0; lower < 2; ++lower) {
            for (std::size_t i = 0; i < 16; ++i) {
                calls[(row + lower) * width_ + column + i].push_back({true, false, false, 0});
            }
            for (std::size_t i = 0; i < 8; ++i) {
                std::size_t const at = (float_index_ + 2 * width_ * lower + 2 * i) / 2;
                float_pairs[at] = {row + lower, column + stored[i]};
            }
        }
        float_index_ += 16;
    }

    void row_pair(std::size_t row) {
        std::size_t const blocks = (width_ >> 4) - 1;
        for (std::size_t i = 0; i < blocks; ++i) {
            block(row, 16 * i);
        }
        std::size_t column = 16 * blocks;
        for (; width_ - 2 > column; column += 2) {
            weighted(row, column, 0, false, false);
            weighted(row, column + 1, 1, false, false);
            weighted(row + 1, column, 2, false, false);
            weighted(row + 1, column + 1, 3, false, false);
        }
        if (width_ % 2 == 0) {
            weighted(row, column, 0, false, false);
            weighted(row, column + 1, 1, true, false);
            weighted(row + 1, column, 2, false, false);
            weighted(row + 1, column + 1, 3, true, false);
        } else {
            weighted(row, column, 0, true, false);
            weighted(row + 1, column, 2, true, false);
        }
    }

    void last_two_rows(std::size_t row) {
        std::size_t column = 0;
        for (; width_ - 2 > column; column += 2) {
            weighted(row, column, 0, false, false);
            weighted(row, column + 1, 1, false, false);
            weighted(row + 1, column, 2, false, true);
            weighted(row + 1, column + 1, 3, false, true);
        }
        if (width_ % 2 == 0) {
            weighted(row, column, 0, false, false);
            weighted(row, column + 1, 1, true, false);
            weighted(row + 1, column, 2, false, true);
            weighted(row + 1, column + 1, 3, true, true);
        } else {
            weighted(row, column, 0, true, false);
            weighted(row + 1, column, 0, true, true);
        }
    }

    void last_single_row(std::size_t row) {
        std::size_t column = 0;
        for (; width_ - 2 > column; column += 2) {
            weighted(row, column, 0, false, true);
            weighted(row, column + 1, 1, false, true);
        }
        if (width_ % 2 == 0) {
            weighted(row, column, 0, false, true);
            weighted(row, column + 1, 0, true, true);
        } else {
            weighted(row, column, 0, true, true);
        }
    }

    std::size_t width_;
    std::size_t float_index_ = 0;
};

struct Size {
    std::size_t height;
    std::size_t width;
};

std::vector<Size> sizes() {
    static constexpr std::size_t widths[] = {16, 17, 18, 31, 32, 33,  47,
                                             48, 49, 64, 65, 96, 101, 255};
    std::vector<Size> all{{64, 1024}, {1001, 37}};
    for (std::size_t width = 2; width <= 40; ++width) {
        all.push_back({2, width});
    }
    for (std::size_t height = 3; height <= 13; ++height) {
        for (std::size_t const width : widths) {
            all.push_back({height, width});
        }
    }
    return all;
}

TEST(Frame_rule, gives_each_pixel_the_place_of_its_only_call) {
    std::size_t pixels = 0;
    for (auto const& [height, width] : sizes()) {
        Frame_rule const rule(height, width);
        Noting_walk const walk(height, width);
        for (std::size_t i = 0; i < height * width; ++i, ++pixels) {
            ASSERT_EQ(walk.calls[i].size(), 1u);
            ASSERT_EQ(walk.calls[i][0], rule.place(i / width, i % width))
                << height << " x " << width << ", row " << i / width << ", column " << i % width;
        }
    }
    std::printf("%zu pixels of %zu sizes\n", pixels, sizes().size());
}

TEST(Frame_rule, names_the_last_writer_of_each_pair_of_floats) {
    std::size_t pairs = 0;
    std::size_t blocks_over_tails = 0;
    for (auto const& [height, width] : sizes()) {
        Frame_rule const rule(height, width);
        Noting_walk const walk(height, width);
        for (std::size_t pair = 0; pair < height * width; ++pair, ++pairs) {
            auto const source = rule.float_pair_source(pair);
            ASSERT_EQ(walk.float_pairs[pair], source)
                << height << " x " << width << ", pair " << pair;
            ASSERT_EQ(rule.covers_float(2 * pair), source.has_value());
            ASSERT_EQ(rule.covers_float(2 * pair + 1), source.has_value());
            bool const weighted_home = !walk.calls[pair][0].in_vector_block;
            bool const at_home = source == Position{pair / width, pair % width};
            blocks_over_tails += weighted_home && !at_home ? 1u : 0u;
        }
    }
    std::printf("%zu pairs, in %zu of them a block over a tail\n", pairs, blocks_over_tails);
    EXPECT_GT(blocks_over_tails, 0u);
}

TEST(Frame_rule, last_pixel_takes_matrix_3_only_if_both_sizes_are_even) {
    EXPECT_EQ(Frame_rule(6, 18).place(5, 17), (Pixel_place{false, true, true, 3}));
    EXPECT_EQ(Frame_rule(6, 17).place(5, 16), (Pixel_place{false, true, true, 0}));
    EXPECT_EQ(Frame_rule(5, 18).place(4, 17), (Pixel_place{false, true, true, 0}));
    EXPECT_EQ(Frame_rule(5, 17).place(4, 16), (Pixel_place{false, true, true, 0}));
    EXPECT_EQ(Frame_rule(2, 2).place(1, 1), (Pixel_place{false, true, true, 3}));
}

TEST(Frame_rule, neighbours_of_the_last_pixel_keep_the_matrix_of_their_position) {
    EXPECT_EQ(Frame_rule(6, 17).place(3, 16), (Pixel_place{false, true, false, 2}));
    EXPECT_EQ(Frame_rule(6, 17).place(4, 16), (Pixel_place{false, true, false, 0}));
    EXPECT_EQ(Frame_rule(5, 18).place(4, 16), (Pixel_place{false, false, true, 0}));
    EXPECT_EQ(Frame_rule(5, 18).place(4, 15), (Pixel_place{false, false, true, 1}));
    EXPECT_EQ(Frame_rule(6, 18).place(5, 16), (Pixel_place{false, false, true, 2}));
}

TEST(Frame_rule, row_pairs_leave_the_last_one_or_two_rows) {
    static constexpr Size cases[] = {{2, 0}, {3, 2}, {4, 2}, {5, 4}, {6, 4}};
    for (auto const& [height, rows] : cases) {
        EXPECT_EQ(Frame_rule(height, 16).paired_rows(), rows) << height;
    }
}

TEST(Frame_rule, blocks_leave_the_last_whole_sixteen_columns) {
    static constexpr std::pair<std::size_t, std::size_t> cases[] = {{16, 0}, {31, 0}, {32, 1},
                                                                    {47, 1}, {48, 2}, {63, 2}};
    for (auto const& [width, blocks] : cases) {
        EXPECT_EQ(Frame_rule(3, width).block_count(), blocks) << width;
    }
    EXPECT_EQ(Frame_rule(2, 64).block_count(), 0u);
}

TEST(Frame_rule, of_32_columns_and_4_rows_stores_one_block_at_floats_0_and_64) {
    Frame_rule const rule(4, 32);
    static constexpr std::size_t stored[] = {0, 1, 4, 5, 10, 11, 14, 15};
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(rule.float_pair_source(i), (Position{0, stored[i]}));
        EXPECT_EQ(rule.float_pair_source(32 + i), (Position{1, stored[i]}));
    }
    std::size_t untouched = 0;
    for (std::size_t index = 0; index < 2 * 4 * 32; ++index) {
        untouched += rule.covers_float(index) ? 0u : 1u;
    }
    EXPECT_EQ(untouched, 32u);
    EXPECT_FALSE(rule.covers_float(16));
    EXPECT_FALSE(rule.covers_float(31));
    EXPECT_TRUE(rule.covers_float(32));
    EXPECT_FALSE(rule.covers_float(80));
}

} // namespace
