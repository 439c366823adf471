/// @file
/// Pictures of k x k pixels as one: means of Stokes quantities and samples, and the angles and
/// degrees of these means, never means of angles.
///
/// A square is summed in two steps, the rows of its columns and then the columns, in whole numbers:
/// sums of up to `most_reduction`^2 elements of 17 bits fit 32 bits with a sign. Results are those
/// of double arithmetic, rounded to nearest, halves away from 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace polarize_tool {

/// The largest k.
inline constexpr std::size_t most_reduction = 128;

/// How many squares of k a length takes; the last one may be narrower.
constexpr std::size_t squares_in(std::size_t length, std::size_t k) {
    return (length + k - 1) / k;
}

/// Adds a row of elements to the sums of their columns.
void add_row(std::span<std::uint16_t const> row, std::span<std::int32_t> columns);
void add_row(std::span<std::int32_t const> row, std::span<std::int32_t> columns);
/// Flags, of which those of any row count.
void add_row(std::span<std::uint8_t const> row, std::span<std::uint8_t> columns);

/// From columns to squares.
/// @param sums `squares_in(columns.size(), k)` of them
void add_columns(
    std::span<std::int32_t const> columns, std::size_t k, std::span<std::int32_t> sums);
void add_columns(
    std::span<std::uint8_t const> columns, std::size_t k, std::span<std::uint8_t> flags);

/// Sums of numbers that are not negative, to means.
/// @param columns in all squares together, `rows` in each
void means_of(
    std::span<std::int32_t const> sums, std::size_t k, std::size_t columns, std::size_t rows,
    std::span<std::uint16_t> means);

/// The element of the azimuth plane for the sums of S1 and S2: the angle is half that of the point
/// (S1, S2), and the plane is half its range ahead of it. For S1 = S2 = 0 that of 0 degrees.
void azimuths_of(
    std::span<std::int32_t const> s1, std::span<std::int32_t const> s2, unsigned full_scale,
    std::span<std::uint16_t> azimuths);

/// The element of the degree plane: the length of (S1, S2) by S0, at most 1; 0 where S0 is 0.
void degrees_of(
    std::span<std::int32_t const> s0, std::span<std::int32_t const> s1,
    std::span<std::int32_t const> s2, unsigned full_scale, std::span<std::uint16_t> degrees);

/// S1 or S2 by S0 with 32767 for 1, between -1 and 1; 0 where S0 is 0.
void ratios_of(
    std::span<std::int32_t const> numbers, std::span<std::int32_t const> s0,
    std::span<std::int16_t> ratios);

} // namespace polarize_tool
