#pragma once

#include "quartet/image_buffer_overlays.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>

/// Computes the pixels of columns `begin` to `end` - 1 of one row, eight at a time: the same bits
/// as a call of the generator for each of them, with `last_column` false, `even` as the matrix of
/// even columns and `odd` of odd ones. Each element of a plane is written once. `begin` and `end`
/// are even, and column `end` lies inside the frame.
/// @tparam Set an `Output_set`
template <typename Set, bool last_row>
[[gnu::used]] void generate_quartets_of_row(
    unsigned long row, unsigned long begin, unsigned long end, std::array<float, 16> const& even,
    std::array<float, 16> const& odd, Polarization_computation_arguments const& arguments,
    Image_buffer_overlays& overlays);
