#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstddef>
#include <cstdint>

/// S1 and S2 with their signs, of the pixels that are fixed in the processor's vector blocks. For
/// layers around the processor, which stores the positive halves alone.
namespace fixed {

/// The pixels of a frame that lie in blocks: those of `rows` rows from the first one on, each from
/// the first column to `columns` - 1.
struct Blocked_pixels {
    std::size_t rows;
    std::size_t columns;
};

/// A row pair reads three rows, so the last one or two rows have no blocks; each row ends in at
/// least 16 columns that have none.
Blocked_pixels blocked_pixels(std::size_t height, std::size_t width);

/// Stores what the processor would of S1 and S2 less what it would of their opposites, in round to
/// nearest. No plane of the record is written.
/// @param s1 height * width numbers, or null if not wanted; and `s2`
/// @param plane_pixels of the planes that these are a part of: large ones are stored past the
/// caches
void compute_signed_blocks(
    Polarization_computation_arguments const& arguments, std::int32_t* s1, std::int32_t* s2,
    std::size_t plane_pixels);

} // namespace fixed
