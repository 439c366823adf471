/// @file
/// Frames whose results tell where they came from.

#pragma once

#include "support/scene.hpp"

namespace support {

/// S0 of a pixel of `scene_of_numbered_matrices` that was computed in a vector block.
inline constexpr int s0_by_block{2};

/// S0 of a pixel of `scene_of_numbered_matrices` that matrix 0 served; matrix k adds k.
inline constexpr int s0_by_matrix_0{100};

/// A frame of ones whose four matrices give four values of S0.
Scene scene_of_numbered_matrices(std::size_t height, std::size_t width);

/// The sample of `scene_of_positions` at a position. Columns are below 256.
constexpr std::uint16_t position_sample(std::size_t row, std::size_t column) {
    return static_cast<std::uint16_t>(256 * row + column);
}

/// A frame whose samples all differ. S1 of a pixel is the one of its four samples that the matrices
/// pick: 0 its own, 1 the horizontal, 2 the vertical, 3 the diagonal neighbour.
Scene scene_of_positions(std::size_t height, std::size_t width, std::size_t picked_sample);

} // namespace support
