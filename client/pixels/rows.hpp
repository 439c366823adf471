#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

/// Frames in which every pixel is a weighted one: the definition of a pixel, eight at a time over
/// whole rows, with weights by position or weights of the pixel's own. For layers around the
/// processor, which links none of it. Declares nothing inline, since callers run on any x86-64 and
/// this code needs AVX2 and FMA.
namespace weighted {

/// The columns that are computed together.
inline constexpr std::size_t group_columns = 16;

/// The weights that are read of a matrix.
inline constexpr std::size_t weight_count = 12;

/// Numbers that a group has in a table of weights.
inline constexpr std::size_t weights_per_group = weight_count * group_columns;

/// Samples of memory that a job with dark levels needs for a frame of `width` columns.
std::size_t corrected_samples(std::size_t width);

/// One frame, at least two rows and two columns.
struct Job {
    /// As for the processor; `polar_phase` is not read.
    Polarization_computation_arguments arguments;
    /// S1 and S2 with their signs, or null if not wanted. Round to nearest must be in force.
    std::int32_t* signed_s1;
    std::int32_t* signed_s2;
    /// Indexed by position in the cell: 2 * (row & 1) + (column & 1).
    std::array<float, 16> const* matrices;
    /// Null, or a number for each column of each row, whose columns are padded to whole groups.
    /// With dark levels a sample becomes
    ///   d = max(0, (min(sample, largest_sample) << fraction_bits) - dark level)
    /// and with gains as well  min(65535, (d * gain + 2^14) >> 15).
    std::uint16_t const* dark_levels;
    std::uint16_t const* gains;
    std::uint16_t largest_sample;
    int fraction_bits;
    /// `corrected_samples` of them if there are dark levels.
    std::uint16_t* workspace;
    /// Null, or of each group of each row the 12 weights of its 8 even columns, 8 numbers each,
    /// then those of its odd columns; a pixel's weight is that of its position plus number *
    /// weight_step, rounded once.
    std::int16_t const* weights;
    float weight_step;
};

/// Computes every requested plane of the rows `begin` to `end` - 1, each element once.
/// @param first_column a multiple of 16 below the width; columns before it are left alone
void compute_rows(Job const& job, std::size_t begin, std::size_t end, std::size_t first_column = 0);

/// Computes the last pixel of the last row once more, with the matrix of even rows and even
/// columns. For jobs without tables.
void compute_final_pixel_as_processed(Job const& job);

} // namespace weighted
