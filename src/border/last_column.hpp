#pragma once

#include "quartet/image_buffer_overlays.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// Finishes one row pair: the last two columns of an even width, the last one of an odd width. Both
/// rows have a row below them, so no quartet is turned upwards. Straight-line code.
/// @tparam Flag  the output set's seven, then `width_is_even`
/// @param row    the row pair's first row, even
/// @param column where the weighted tail stopped: width - 2 or width - 1, even
template <typename... Flag>
[[gnu::used]] void generate_last_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row, unsigned long column);
