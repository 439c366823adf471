#pragma once

#include <cstddef>

/// Which sample vector of a block goes into which place of the Stokes sums and differences, for one
/// orientation of the mosaic. A type without objects: kernels are instantiated against it.
///
/// The indices name samples of a block by source row, column parity and the half of the block whose
/// pixels use them. Each pixel's 2x2 neighbourhood has one even and one odd column, and r0, r1, r2
/// are the row pair's two rows and the row below:
///
///             low half      high half
///            even   odd    even   odd
///       r0     2     0       6     4
///       r1     1     3       5     7
///       r2     8     9      10    11
///
/// Places of the list, for the output vectors (first row, low half), (first row, high half),
/// (second row, low half) and (second row, high half):
///
///        0 .. 15   S0: four operands each, summed as (p + q) + (r + s)
///       16 .. 23   S1: minuend and subtrahend each
///       24 .. 31   S2: minuend and subtrahend each
template <unsigned... Index>
struct Vector_data_indices_avx2 {
    static constexpr std::size_t vector_count = 12;

    static_assert(sizeof...(Index) == 32, "an index list has 32 places");
    static_assert(((Index < vector_count) && ...), "an index names one of twelve sample vectors");

    static constexpr unsigned list[sizeof...(Index)] = {Index...};

    /// The source row of a sample vector, counted from the pair's first row, which of a
    /// neighbourhood's two columns it holds, and for which half of the block.
    static consteval unsigned source_row(unsigned index) { return index >= 8 ? 2 : index & 1; }
    static consteval bool is_even(unsigned index) {
        return index >= 8 ? index % 2 == 0 : index % 4 == 1 || index % 4 == 2;
    }
    static consteval bool is_of_low_half(unsigned index) {
        return index < 4 || index == 8 || index == 9;
    }

    /// Whether two vectors differ in nothing but the half.
    static consteval bool are_alike(unsigned index, unsigned other) {
        return source_row(index) == source_row(other) && is_even(index) == is_even(other);
    }

    static constexpr unsigned s0_operand(std::size_t output_vector, std::size_t operand) {
        return list[4 * output_vector + operand];
    }
    static constexpr unsigned s1_operand(std::size_t output_vector, std::size_t operand) {
        return list[16 + 2 * output_vector + operand];
    }
    static constexpr unsigned s2_operand(std::size_t output_vector, std::size_t operand) {
        return list[24 + 2 * output_vector + operand];
    }
};

// Polariser angles of the mosaic's cell in degrees stand above each list, even row first.

/// 0 135 / 45 90. Place 10 holds 2, the sample of the row above, where the pattern of the other
/// phases would have 8, so S0 of the second row's low half takes its even-column sample from the
/// pair's first row. Results of this phase are defined with it: it is not to be mended.
using Phase_0_indices = Vector_data_indices_avx2<
    0, 1, 2, 3, 4, 5, 6, 7, 1, 9, 2, 3, 5, 11, 10, 7, //
    2, 3, 6, 7, 8, 3, 10, 7,                          //
    1, 0, 5, 4, 1, 9, 5, 11>;

/// 45 90 / 0 135.
using Phase_1_indices = Vector_data_indices_avx2<
    3, 2, 1, 0, 7, 6, 5, 4, 3, 8, 1, 9, 7, 10, 5, 11, //
    1, 0, 5, 4, 1, 9, 5, 11,                          //
    2, 3, 6, 7, 8, 3, 10, 7>;

/// 90 45 / 135 0.
using Phase_2_indices = Vector_data_indices_avx2<
    1, 0, 3, 2, 5, 4, 7, 6, 1, 9, 3, 8, 5, 11, 7, 10, //
    3, 2, 7, 6, 3, 8, 7, 10,                          //
    0, 1, 4, 5, 9, 1, 11, 5>;

/// 135 0 / 90 45.
using Phase_3_indices = Vector_data_indices_avx2<
    2, 3, 0, 1, 6, 7, 4, 5, 8, 3, 9, 1, 10, 7, 11, 5, //
    0, 1, 4, 5, 9, 1, 11, 5,                          //
    3, 2, 7, 6, 3, 8, 7, 10>;
