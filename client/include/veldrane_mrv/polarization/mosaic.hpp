/// @file
/// The 2x2 mosaic of polarisers over a sensor, as data.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

/// One of the four mosaics that the processor knows. Their layouts, the polariser angles of the
/// top-left cell row by row, are
///
///   phase 0     phase 1     phase 2     phase 3
///    0 135      45  90      90  45     135   0
///   45  90       0 135     135   0      90  45
///
/// Each is another with one row or one column cut off: a region of interest turns one into another.
class Mosaic {
public:
    /// Angles in degrees, row by row: {90, 45, 135, 0} is phase 2.
    using Layout = std::array<int, 4>;

    /// @throws Argument_error unless `phase` is 0 to 3
    static Mosaic from_phase(int phase);

    /// @throws Argument_error for any layout but the four, with a list of these
    static Mosaic from_layout(Layout const& layout);

    /// Reads a layout such as "90,45,135,0"; blanks around the numbers do not matter.
    /// @throws Argument_error for any other text, with a list of the four layouts
    static Mosaic parse(std::string_view layout);

    int phase() const { return phase_; }
    Layout const& layout() const;

    /// The layout as `parse` reads it.
    std::string to_string() const;

    /// Angle in degrees (0, 45, 90 or 135) of the polariser over a pixel.
    int angle(std::size_t row, std::size_t column) const;

    /// The mosaic of a frame that was cut out of a frame of this one: an odd offset exchanges the
    /// rows or the columns of the cell.
    Mosaic of_region(std::size_t row_offset, std::size_t column_offset) const;

    /// The mosaic with every polariser turned by 90 degrees, phases 0 and 2 or 1 and 3: a frame
    /// taken as one of it gives the negated S1 and S2.
    Mosaic opposite() const;

    bool operator==(Mosaic const&) const = default;

private:
    explicit Mosaic(int phase) : phase_{phase} {}

    int phase_;
};

/// In the order of their phases.
std::array<Mosaic, 4> all_mosaics();

/// Index of a pixel's position in its cell, 2 * (row & 1) + (column & 1): the order of layouts and
/// of `Matrices::by_position`.
constexpr std::size_t cell_position(std::size_t row, std::size_t column) {
    return 2 * (row & 1) + (column & 1);
}

} // namespace veldrane_mrv::polarization
