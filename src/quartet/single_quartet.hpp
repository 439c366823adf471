#pragma once

#include "quartet/image_buffer_overlays.hpp"
#include "variants/output_set.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>

/// The definition of a pixel: computes every requested output of one pixel from its quartet and one
/// matrix, and writes it at (row, column). Knows nothing of the mosaic's phase, which reaches it
/// only through the weights; the caller chooses the matrix.
///
/// Straight-line code without branch, loop or call. An output's formula does not depend on which
/// other outputs are requested. Nothing is checked: the neighbours must lie inside the frame.
///
/// @tparam last_column the horizontal neighbours lie in column - 1
/// @tparam last_row    the vertical neighbours lie in row - 1
template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, bool last_column, bool last_row>
[[gnu::used]] void generate_polarization_output_data_for_single_quartet(
    unsigned long row, unsigned long column, std::array<float, 16> const& matrix,
    Polarization_computation_arguments const& arguments, Image_buffer_overlays& overlays);

/// The generator of an output set: its list of flags in the place of the set.
template <bool last_column, bool last_row, typename... Flag>
[[gnu::always_inline]] inline void generate_single_quartet(
    Output_set<Flag...>, unsigned long row, unsigned long column,
    std::array<float, 16> const& matrix, Polarization_computation_arguments const& arguments,
    Image_buffer_overlays& overlays) {
    generate_polarization_output_data_for_single_quartet<Flag..., last_column, last_row>(
        row, column, matrix, arguments, overlays);
}
