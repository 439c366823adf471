#pragma once

#include "border/last_column.hpp"
#include "quartet/single_quartet.hpp"
#include "variants/output_set.hpp"

template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, typename Width_is_even>
void generate_last_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row, unsigned long column) {
    static_assert(
        Output_set<
            Same_output_range, Want_normalized_stokes, Want_s0, Want_s1, Want_s2, Want_azimuth,
            Want_dolp>::want_any_plane,
        "a border exists only for sets with a requested plane");
    auto const generate = [&]<bool last_column>(
                              unsigned long r, unsigned long c,
                              std::array<float, 16> const& matrix) {
        generate_polarization_output_data_for_single_quartet<
            Same_output_range, Want_normalized_stokes, Want_s0, Want_s1, Want_s2, Want_azimuth,
            Want_dolp, last_column, false>(r, c, matrix, arguments, overlays);
    };
    if constexpr (Width_is_even::value) {
        generate.template operator()<false>(row, column, matrices.even_row_even_column);
        generate.template operator()<true>(row, column + 1, matrices.even_row_odd_column);
        generate.template operator()<false>(row + 1, column, matrices.odd_row_even_column);
        generate.template operator()<true>(row + 1, column + 1, matrices.odd_row_odd_column);
    } else {
        generate.template operator()<true>(row, column, matrices.even_row_even_column);
        generate.template operator()<true>(row + 1, column, matrices.odd_row_even_column);
    }
}
