/// @file
/// Parts of a frame as a page shows them: as they are, or squares of pixels as one.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "view/row_planes.hpp"
#include "view/view_parameters.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace polarize_tool {

/// What is to be made of a frame, and where it goes.
struct Planes_wanted {
    polarization::Region region; ///< of the frame, with a pixel in it
    std::size_t scale = 1;       ///< 1 to `most_reduction`
    /// By the number of a `View_plane`: memory for `size()` elements of the plane's type, or null.
    std::array<void*, view_plane_table.size()> targets{};

    polarization::Size size() const;
    bool wants(View_plane plane) const { return targets[static_cast<unsigned>(plane)] != nullptr; }
};

/// Makes part after part. Computes a few rows and reduces them while they are in the caches; keeps
/// their memory. For one thread.
class Plane_making {
public:
    Plane_making(polarization::Settings const& settings, polarization::Mode mode);

    /// Of squares of one pixel s0, azimuth and dolp have the bits that `process` writes, and an
    /// analyser has the sample of the pixel's cell, whose first one is the frame's first; a cell
    /// that the frame cuts off has the sample two columns or rows before the missing one. Of larger
    /// ones see stokes_reduction.hpp: samples as their mean, an analyser as that of its samples in
    /// the square or, where there is none, as if the square were its first row or column; validity
    /// has the flags of any pixel.
    /// @throws polarization::Argument_error if the frame cannot be transformed
    void make(Frame_samples const& frame, Planes_wanted const& wanted);

private:
    /// Pixels of the frame that squares of one row are made of.
    struct Square_row {
        std::size_t begin; ///< row of the frame
        std::size_t end;
        std::size_t number; ///< in the planes that are made
    };
    struct Sums {
        std::vector<std::int32_t> columns;
        std::vector<std::int32_t> squares;
    };
    void make_row(
        Frame_samples const& frame, Planes_wanted const& wanted, Row_planes::Wanted const& rows,
        Square_row const& row);
    void make_stokes(
        Planes_wanted const& wanted, Row_planes::Wanted const& rows, Square_row const& row);
    void make_validity(Planes_wanted const& wanted, Square_row const& row);
    void make_raw(
        polarization::Frame_view const& frame, Planes_wanted const& wanted, Square_row const& row);
    void make_analyser(
        polarization::Frame_view const& frame, Planes_wanted const& wanted, Square_row const& row,
        std::size_t position, std::span<std::uint16_t> target);
    /// Sums of the squares of a row.
    template <class Row_of>
    void add_up(
        Planes_wanted const& wanted, Square_row const& row, Row_of const& row_of, Sums& sums);

    polarization::Mosaic mosaic_;
    unsigned full_scale_;
    Row_planes planes_;
    Sums s0_;
    Sums s1_;
    Sums s2_;
    Sums samples_;
    std::vector<std::uint8_t> flags_;
};

} // namespace polarize_tool
