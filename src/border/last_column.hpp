#pragma once

#include "quartet/image_buffer_overlays.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// Finishes one row pair: the last two columns of an even width, the last one of an odd width. Both
/// rows have a row below them, so no quartet is turned upwards. Straight-line code.
/// @param row    the row pair's first row, even
/// @param column where the scalar tail stopped: width - 2 or width - 1, even
template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, typename Width_is_even>
[[gnu::used]] void generate_last_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row, unsigned long column);
