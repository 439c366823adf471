/// @file
/// All outputs of one pixel whose Stokes quantities a test chooses.

#pragma once

#include "support/planes.hpp"

namespace support {

struct Pixel {
    Ratios normalized_stokes;
    std::uint16_t s0;
    std::uint16_t s1;
    std::uint16_t s2;
    std::uint16_t azimuth;
    std::uint16_t dolp;
};

struct Stokes {
    float s0;
    float s1;
    float s2;
};

/// A frame of two by two pixels, every sample 1, whose matrices give exactly these quantities,
/// signed zeros, infinities and NaNs included.
Scene weighted_scene(Stokes const& stokes, Scale const& scale = sample_units);

/// A pixel computed with a matrix.
Pixel weighted_pixel(Stokes const& stokes, Scale const& scale = sample_units);

/// The samples of a mosaic cell: even row even column, even row odd column, and so on.
struct Cell {
    std::uint16_t even_even;
    std::uint16_t even_odd;
    std::uint16_t odd_even;
    std::uint16_t odd_odd;
};

/// A frame of equal cells. Its matrices spoil every pixel that uses one.
Scene uniform_scene(
    Cell const& cell, std::int32_t polar_phase, Scale const& scale = sample_units,
    std::size_t height = 4, std::size_t width = 34);

/// A pixel computed in a vector block. All pixels of the block are expected to agree.
Pixel fixed_pixel(Cell const& cell, std::int32_t polar_phase, Scale const& scale = sample_units);

/// The phase 0 cell of given S1, S2 and twice S0: S1 and S2 are ee - oo and oe - eo.
/// `twice_s0` must be at least |s1| + |s2| and of the parity of s1 + s2.
Cell phase_0_cell(int twice_s0, int s1, int s2);

} // namespace support
