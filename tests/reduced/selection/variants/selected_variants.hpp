/// @file
/// Stands before the library's own header in the search path and selects the chosen kernels and the
/// templates that they consist of.

#pragma once

#include "reduced/left_out.hpp"
#include "variants/vector_data_indices_avx2.hpp"

#include <array>
#include <cstddef>

namespace variants {

/// What follows the seven flags of an output set: nothing for a generator, the width's parity for a
/// last column, both parities for last rows.
template <std::size_t Count>
consteval bool is_part_of_a_chosen_kernel(std::array<bool, Count> flags) {
    constexpr std::size_t height_flag = 7;
    for (reduced::Variant const& variant : reduced::chosen_variants) {
        bool belongs = true;
        for (std::size_t place = 0; place < height_flag; ++place) {
            belongs = belongs && flags[place] == (variant[reduced::range_place + place] != 0);
        }
        if constexpr (Count > height_flag) {
            belongs = belongs && flags[Count - 1] == (variant[reduced::width_place] != 0);
        }
        if constexpr (Count > height_flag + 1) {
            belongs = belongs && flags[height_flag] == (variant[reduced::height_place] != 0);
        }
        if (belongs) {
            return true;
        }
    }
    return false;
}

template <typename... Flag>
inline constexpr bool is_selected{is_part_of_a_chosen_kernel(std::array{Flag::value...})};
template <typename... Flag>
inline constexpr bool is_selected<Phase_0_indices, Flag...>{
    !reduced::is_left_out({0, Flag::value...})};
template <typename... Flag>
inline constexpr bool is_selected<Phase_1_indices, Flag...>{
    !reduced::is_left_out({1, Flag::value...})};
template <typename... Flag>
inline constexpr bool is_selected<Phase_2_indices, Flag...>{
    !reduced::is_left_out({2, Flag::value...})};
template <typename... Flag>
inline constexpr bool is_selected<Phase_3_indices, Flag...>{
    !reduced::is_left_out({3, Flag::value...})};

} // namespace variants
