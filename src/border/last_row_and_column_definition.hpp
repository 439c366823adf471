#pragma once

#include "border/last_row_and_column.hpp"
#include "quartet/quartets_of_row.hpp"
#include "quartet/single_quartet.hpp"
#include "variants/output_set.hpp"

#include <array>

template <typename... Flag>
void generate_last_row_and_column(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Image_buffer_overlays& overlays, unsigned long row) {
    using Flags = Split_flags<Flag...>;
    using Set = typename Flags::Set;
    constexpr bool height_is_even = Flags::behind[0];
    constexpr bool width_is_even = Flags::behind[1];
    static_assert(Set::want_any_plane, "a border exists only for sets with a requested plane");
    // Of an even height the pair's first row still has a row below it.
    constexpr bool first_is_last_row = !height_is_even;

    auto const generate = [&]<bool last_column, bool last_row>(
                              unsigned long r, unsigned long c,
                              std::array<float, 16> const& matrix) {
        generate_single_quartet<last_column, last_row>(Set{}, r, c, matrix, arguments, overlays);
    };

    auto const generate_quartets = [&]<bool last_row>(
                                       unsigned long r, std::array<float, 16> const& even,
                                       std::array<float, 16> const& odd, unsigned long end) {
        generate_quartets_of_row<Set, last_row>(r, 0, end, even, odd, arguments, overlays);
    };

    unsigned long const column = (arguments.width - 1) & ~1UL;
    generate_quartets.template operator()<first_is_last_row>(
        row, matrices.even_row_even_column, matrices.even_row_odd_column, column);
    if constexpr (height_is_even) {
        generate_quartets.template operator()<true>(
            row + 1, matrices.odd_row_even_column, matrices.odd_row_odd_column, column);
    }

    // The frame's final pixel takes the matrix of its position only where height and width have the
    // same parity; otherwise it takes matrix 0. This is part of the results' definition.
    if constexpr (height_is_even && width_is_even) {
        generate.template operator()<false, false>(row, column, matrices.even_row_even_column);
        generate.template operator()<true, false>(row, column + 1, matrices.even_row_odd_column);
        generate.template operator()<false, true>(row + 1, column, matrices.odd_row_even_column);
        generate.template operator()<true, true>(row + 1, column + 1, matrices.odd_row_odd_column);
    } else if constexpr (height_is_even) {
        generate.template operator()<true, false>(row, column, matrices.even_row_even_column);
        generate.template operator()<true, true>(row + 1, column, matrices.even_row_even_column);
    } else if constexpr (width_is_even) {
        generate.template operator()<false, true>(row, column, matrices.even_row_even_column);
        generate.template operator()<true, true>(row, column + 1, matrices.even_row_even_column);
    } else {
        generate.template operator()<true, true>(row, column, matrices.even_row_even_column);
    }
}
