/// @file
/// Stands before the library's own header in the search path and lets through only the combinations
/// that a chosen kernel consists of.

#pragma once

#include "reduced/chosen_variants.hpp"

#define for_each_combination for_each_of_all_combinations
#include_next "variants/combinations.hpp"
#undef for_each_combination

namespace variants {

/// What follows the output set of a combination: nothing for a generator, the width's parity for a
/// last column, both parities for last rows and kernels.
template <bool... flag>
consteval bool belongs_to_a_chosen_kernel() {
    constexpr bool flags[] = {flag...};
    constexpr std::size_t count = sizeof...(flag);
    for (reduced::Variant const& variant : reduced::chosen_variants) {
        bool belongs = true;
        for (std::size_t place = 0; place < output_set_flags; ++place) {
            belongs = belongs && flags[place] == (variant[reduced::range_place + place] != 0);
        }
        if constexpr (count > output_set_flags) {
            belongs = belongs && flags[count - 1] == (variant[reduced::width_place] != 0);
        }
        if constexpr (count == kernel_flags) {
            belongs = belongs && flags[count - 2] == (variant[reduced::height_place] != 0);
        }
        if (belongs) {
            return true;
        }
    }
    return false;
}

template <bool same_output_range, bool... flag>
consteval bool requests_nothing() {
    constexpr bool flags[] = {flag...};
    bool requested = false;
    for (std::size_t plane = 0; plane < reduced::plane_count; ++plane) {
        requested = requested || flags[plane];
    }
    return !requested;
}

template <std::size_t Flag_count, typename Visitor>
consteval void for_each_combination(Visitor visit) {
    for_each_of_all_combinations<Flag_count>(
        [visit]<typename... Flag>(std::type_identity<std::tuple<Flag...>> combination) {
            if constexpr (
                requests_nothing<Flag::value...>() ||
                belongs_to_a_chosen_kernel<Flag::value...>()) {
                visit(combination);
            }
        });
}

} // namespace variants
