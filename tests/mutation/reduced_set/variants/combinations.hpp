/// @file
/// Stands before the library's own header in the search path and lets only the chosen combinations
/// through.

#pragma once

#include "chosen_variants.hpp"

#define for_each_combination for_each_of_all_combinations
#include_next "variants/combinations.hpp"
#undef for_each_combination

namespace variants {

/// The translation units of all phases but 0 are compiled with `REDUCED_TO_FULL_SET`.
template <typename... Flag>
consteval bool is_chosen() {
    constexpr bool flags[] = {Flag::value...};
    unsigned set = 0;
    for (unsigned plane = 0; plane < 6; ++plane) {
        set |= unsigned{flags[1 + plane]} << plane;
    }
#ifdef REDUCED_TO_FULL_SET
    return set == 0 || set == mutation::every_plane;
#else
    if constexpr (sizeof...(Flag) == 9) {
        return mutation::is_chosen(set, flags[7], flags[8]);
    } else {
        return mutation::is_chosen_set(set);
    }
#endif
}

template <std::size_t Flag_count, typename Visitor>
consteval void for_each_combination(Visitor visit) {
    for_each_of_all_combinations<Flag_count>(
        [visit]<typename... Flag>(std::type_identity<std::tuple<Flag...>> combination) {
            if constexpr (is_chosen<Flag...>()) {
                visit(combination);
            }
        });
}

} // namespace variants
