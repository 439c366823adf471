#include "reference/frame_rule.hpp"

#include <array>

namespace reference {
namespace {

constexpr std::size_t block_columns = 16;

/// Pairs of floats that a block stores for each of its two rows: half of its pixels.
constexpr std::size_t block_pairs = 8;

/// The interleaving works in 128-bit halves and only its first result is stored for the first eight
/// pixels, only its second for the other eight.
constexpr std::array<std::size_t, block_pairs> stored_pixels{0, 1, 4, 5, 10, 11, 14, 15};

std::size_t rows_done_in_pairs(std::size_t height) {
    if (height == 2) {
        return 0;
    }
    return height % 2 == 0 ? height - 2 : height - 1;
}

} // namespace

Frame_rule::Frame_rule(std::size_t height, std::size_t width)
    : height_(height), width_(width), paired_rows_(rows_done_in_pairs(height)),
      block_count_(paired_rows_ == 0 ? 0 : width / block_columns - 1) {}

Pixel_place Frame_rule::place(std::size_t row, std::size_t column) const {
    if (row < paired_rows_ && column < block_columns * block_count_) {
        return {true, false, false, 0};
    }
    bool const last_column = column == width_ - 1;
    bool const last_row = row == height_ - 1;
    std::size_t matrix = 2 * (row % 2) + column % 2;
    if (last_column && last_row) {
        matrix = height_ % 2 == 0 && width_ % 2 == 0 ? 3 : 0;
    }
    return {false, last_column, last_row, matrix};
}

/// Blocks are numbered through the frame in the order in which they run. Block n stores its first
/// row at pairs 8 n to 8 n + 7, its second row `width_` pairs further on.
std::optional<std::size_t> Frame_rule::latest_block_over(std::size_t pair) const {
    std::size_t const blocks = block_count_ * (paired_rows_ / 2);
    // A block whose first row lies here runs later than one whose second row does: at least 32
    // columns, that is four blocks' stores, are between the two rows.
    if (pair / block_pairs < blocks) {
        return pair / block_pairs;
    }
    if (pair >= width_ && (pair - width_) / block_pairs < blocks) {
        return (pair - width_) / block_pairs;
    }
    return std::nullopt;
}

Position Frame_rule::pixel_of_block_pair(std::size_t block, std::size_t pair) const {
    std::size_t const first_row_pair = block * block_pairs;
    bool const second_row = pair >= first_row_pair + width_;
    std::size_t const slot = pair - first_row_pair - (second_row ? width_ : 0);
    std::size_t const row = block / block_count_ * 2 + (second_row ? 1 : 0);
    return {row, block % block_count_ * block_columns + stored_pixels[slot]};
}

std::optional<Position> Frame_rule::float_pair_source(std::size_t pair) const {
    Position const own{pair / width_, pair % width_};
    bool const own_is_weighted = !place(own.row, own.column).in_vector_block;
    auto const block = latest_block_over(pair);
    if (!block) {
        return own_is_weighted ? std::optional(own) : std::nullopt;
    }
    // The end of the frame comes after all blocks, the tail of a row pair after the blocks of it
    // and of the pairs above.
    bool const own_comes_last = own.row >= paired_rows_ || own.row / 2 >= *block / block_count_;
    if (own_is_weighted && own_comes_last) {
        return own;
    }
    return pixel_of_block_pair(*block, pair);
}

bool Frame_rule::covers_float(std::size_t index) const {
    return float_pair_source(index / 2).has_value();
}

} // namespace reference
