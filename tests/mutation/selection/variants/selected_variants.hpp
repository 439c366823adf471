/// @file
/// Stands before the library's own header in the search path and selects the variants that a
/// library for one mutant holds.

#pragma once

#include "mutation/chosen_variants.hpp"
#include "variants/vector_data_indices_avx2.hpp"

#include <array>
#include <cstddef>

namespace variants {

/// Where a kernel's parities stand, behind `same_output_range` and six planes. Templates that do
/// not take both serve every kernel of their set.
template <typename... Flag>
consteval bool is_selected_in_phase(unsigned phase) {
    constexpr std::array flags{Flag::value...};
    unsigned set = 0;
    for (std::size_t plane = 0; plane < 6; ++plane) {
        set |= unsigned{flags[1 + plane]} << plane;
    }
    if constexpr (flags.size() == 9) {
        return mutation::is_chosen_in_phase(phase, set, flags[7], flags[8]);
    } else {
        return mutation::is_chosen_set(set);
    }
}

template <typename... Flag>
inline constexpr bool is_selected{is_selected_in_phase<Flag...>(0)};
template <typename... Flag>
inline constexpr bool is_selected<Phase_0_indices, Flag...>{is_selected_in_phase<Flag...>(0)};
template <typename... Flag>
inline constexpr bool is_selected<Phase_1_indices, Flag...>{is_selected_in_phase<Flag...>(1)};
template <typename... Flag>
inline constexpr bool is_selected<Phase_2_indices, Flag...>{is_selected_in_phase<Flag...>(2)};
template <typename... Flag>
inline constexpr bool is_selected<Phase_3_indices, Flag...>{is_selected_in_phase<Flag...>(3)};

} // namespace variants
