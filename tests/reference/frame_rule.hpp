/// @file
/// Which arithmetic, neighbours and matrix serve a pixel, told by its position alone, and which
/// pixel's ratios an element of the float plane holds in the end.

#pragma once

#include <cstddef>
#include <optional>

namespace reference {

struct Position {
    std::size_t row;
    std::size_t column;

    friend bool operator==(Position const&, Position const&) = default;
};

struct Pixel_place {
    /// Computed without a matrix; the other members have no meaning then.
    bool in_vector_block;
    /// Horizontal neighbours to the left.
    bool last_column;
    /// Vertical neighbours above.
    bool last_row;
    /// 0 to 3 in the order of the members of `Calibration_matrices`.
    std::size_t matrix;

    friend bool operator==(Pixel_place const&, Pixel_place const&) = default;
};

/// Regions of a frame of `height` rows and `width` columns, both at least 2, and `width` at least
/// 16 unless `height` is 2.
class Frame_rule {
public:
    Frame_rule(std::size_t height, std::size_t width);

    /// Rows that are done in row pairs; the one or two rows below them end the frame.
    std::size_t paired_rows() const { return paired_rows_; }
    /// Vector blocks in each row pair.
    std::size_t block_count() const { return block_count_; }

    Pixel_place place(std::size_t row, std::size_t column) const;

    /// The pixel whose two ratios are left in floats 2 * `pair` and 2 * `pair` + 1 of the float
    /// plane, or nothing if no store reaches these floats.
    std::optional<Position> float_pair_source(std::size_t pair) const;

    /// Tells whether float `index` of the float plane is written at all.
    bool covers_float(std::size_t index) const;

private:
    std::optional<std::size_t> latest_block_over(std::size_t pair) const;
    Position pixel_of_block_pair(std::size_t block, std::size_t pair) const;

    std::size_t height_;
    std::size_t width_;
    std::size_t paired_rows_;
    std::size_t block_count_;
};

} // namespace reference
