/// @file
/// Which weights a choice of planes needs.

#pragma once

#include "support/plane_set.hpp"

#include <array>
#include <cstddef>

namespace support {

inline constexpr std::size_t matrix_rows{4};
inline constexpr std::size_t row_weights{4};

/// Rows 0, 1 and 2 give S0, S1 and S2; nothing needs row 3.
constexpr bool needs_row(Plane_set wanted, std::size_t row) {
    constexpr unsigned ratios = only(Plane::normalized_stokes).bits;
    constexpr unsigned azimuth = only(Plane::azimuth).bits;
    constexpr unsigned dolp = only(Plane::dolp).bits;
    constexpr std::array<unsigned, matrix_rows> planes_of_row{
        ratios | dolp | only(Plane::s0).bits, ratios | dolp | azimuth | only(Plane::s1).bits,
        ratios | dolp | azimuth | only(Plane::s2).bits, 0};
    return (wanted.bits & planes_of_row[row]) != 0;
}

/// The number of rows before the first needed one, 4 if there is none.
constexpr std::size_t first_needed_row(Plane_set wanted) {
    std::size_t row = 0;
    while (row < matrix_rows && !needs_row(wanted, row)) {
        ++row;
    }
    return row;
}

/// One past the last needed row, 0 if there is none.
constexpr std::size_t end_of_needed_rows(Plane_set wanted) {
    std::size_t end = matrix_rows;
    while (end > 0 && !needs_row(wanted, end - 1)) {
        --end;
    }
    return end;
}

} // namespace support
