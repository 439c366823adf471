#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace support {
namespace {

/// The weight stands on the pixel's own sample. The others are zeros of its sign: a negative zero
/// survives only a sum of negative zeros.
Weights exactly(float value) {
    float const zero = std::copysign(0.0F, value);
    return {value, zero, zero, zero};
}

Pixel pixel_at(Planes const& planes, std::size_t row, std::size_t column) {
    return {
        planes.normalized_stokes(row, column),
        planes.s0(row, column),
        planes.s1(row, column),
        planes.s2(row, column),
        planes.azimuth(row, column),
        planes.dolp(row, column)};
}

} // namespace

Scene weighted_scene(Stokes const& stokes, Scale const& scale) {
    Matrix const matrix = matrix_of(exactly(2 * stokes.s0), exactly(stokes.s1), exactly(stokes.s2));
    Scene scene{2, 2, Samples(4, 1), everywhere(matrix)};
    scene.scale = scale;
    return scene;
}

Pixel weighted_pixel(Stokes const& stokes, Scale const& scale) {
    return pixel_at(compute(weighted_scene(stokes, scale)), 0, 0);
}

Scene uniform_scene(
    Cell const& cell, std::int32_t polar_phase, Scale const& scale, std::size_t height,
    std::size_t width) {
    Samples samples(height * width);
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            std::uint16_t const even_row = column % 2 == 0 ? cell.even_even : cell.even_odd;
            std::uint16_t const odd_row = column % 2 == 0 ? cell.odd_even : cell.odd_odd;
            samples[row * width + column] = row % 2 == 0 ? even_row : odd_row;
        }
    }
    Weights const spoiled{NAN, NAN, NAN, NAN};
    Scene scene{
        height, width, std::move(samples), everywhere(matrix_of(spoiled, spoiled, spoiled))};
    scene.polar_phase = polar_phase;
    scene.scale = scale;
    return scene;
}

Pixel fixed_pixel(Cell const& cell, std::int32_t polar_phase, Scale const& scale) {
    Planes const planes = compute(uniform_scene(cell, polar_phase, scale));
    Pixel const first = pixel_at(planes, 0, 0);
    for (std::size_t row = 0; row < 2; ++row) {
        for (std::size_t column = 0; column < 16; ++column) {
            Pixel const pixel = pixel_at(planes, row, column);
            EXPECT_EQ(pixel.s0, first.s0) << row << ", " << column;
            EXPECT_EQ(pixel.s1, first.s1) << row << ", " << column;
            EXPECT_EQ(pixel.s2, first.s2) << row << ", " << column;
            EXPECT_EQ(pixel.azimuth, first.azimuth) << row << ", " << column;
            EXPECT_EQ(pixel.dolp, first.dolp) << row << ", " << column;
        }
    }
    return first;
}

Cell phase_0_cell(int twice_s0, int s1, int s2) {
    int const shared = twice_s0 - std::abs(s1) - std::abs(s2);
    EXPECT_EQ(shared % 2, 0);
    EXPECT_GE(shared, 0);
    int const diagonal = shared / 4;
    int const other_diagonal = shared / 2 - diagonal;
    auto const sample = [](int value) { return static_cast<std::uint16_t>(value); };
    return {
        sample(diagonal + std::max(s1, 0)), sample(other_diagonal + std::max(-s2, 0)),
        sample(other_diagonal + std::max(s2, 0)), sample(diagonal + std::max(-s1, 0))};
}

} // namespace support
