#pragma once

#include "border/last_column.hpp"
#include "quartet/single_quartet.hpp"
#include "variants/output_set.hpp"

template <typename... Flag>
void generate_last_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row, unsigned long column) {
    using Flags = Split_flags<Flag...>;
    using Set = typename Flags::Set;
    constexpr bool width_is_even = Flags::behind[0];
    static_assert(Set::want_any_plane, "a border exists only for sets with a requested plane");
    auto const generate = [&]<bool last_column>(
                              unsigned long r, unsigned long c,
                              std::array<float, 16> const& matrix) {
        generate_single_quartet<last_column, false>(Set{}, r, c, matrix, arguments, overlays);
    };
    if constexpr (width_is_even) {
        generate.template operator()<false>(row, column, matrices.even_row_even_column);
        generate.template operator()<true>(row, column + 1, matrices.even_row_odd_column);
        generate.template operator()<false>(row + 1, column, matrices.odd_row_even_column);
        generate.template operator()<true>(row + 1, column + 1, matrices.odd_row_odd_column);
    } else {
        generate.template operator()<true>(row, column, matrices.even_row_even_column);
        generate.template operator()<true>(row + 1, column, matrices.odd_row_even_column);
    }
}
