#pragma once

#include "quartet/image_buffer_overlays.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// Finishes the frame: its last two rows for an even height, its last one for an odd height.
/// @tparam Flag the output set's seven, then `height_is_even` and `width_is_even`
/// @param row   where the row loop stopped: height - 2 or height - 1, even
template <typename... Flag>
[[gnu::used]] void generate_last_row_and_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row);
