/// @file
/// Which pixels of a sensor tell nothing.
#pragma once

#include "pixel_fit.hpp"

#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// Rows of the instrument matrix of the four positions.
using Position_rows = std::array<Eigen::Vector3d, 4>;

Position_rows rows_of(std::array<Analyser, 4> const& analysers);

struct Bad_pixels {
    /// Not 0 where the pixel is bad.
    std::vector<std::uint8_t> mask;
    Bad_pixel_counts counts;
};

/// What is known before there is a fit.
enum class Pixel_mark : std::uint8_t { none, known, saturated };

/// @param width of the rows that all the spans consist of
Bad_pixels find_bad_pixels(
    Pixel_fits const& fits, Position_rows const& positions, std::span<float const> dark_levels,
    std::span<Pixel_mark const> marks, std::size_t width);

} // namespace veldrane_mrv::polarization
