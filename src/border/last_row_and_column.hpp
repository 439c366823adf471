#pragma once

#include "quartet/image_buffer_overlays.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// Finishes the frame: its last two rows for an even height, its last one for an odd height.
/// @param row where the row loop stopped: height - 2 or height - 1, even
template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, typename Height_is_even,
    typename Width_is_even>
[[gnu::used]] void generate_last_row_and_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row);
