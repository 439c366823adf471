/// @file
/// Stands before the library's own header in the search path and gives the decision tree leaves
/// that compute nothing in the place of the kernels that are left out.

#pragma once

#include "reduced/chosen_variants.hpp"
#include "reduced/left_out.hpp"
#include "variants/vector_data_indices_avx2.hpp"

#include_next "module/var_to_template.hpp"

namespace reduced {

template <typename Indices>
inline constexpr unsigned phase_of{0};
template <>
inline constexpr unsigned phase_of<Phase_1_indices>{1};
template <>
inline constexpr unsigned phase_of<Phase_2_indices>{2};
template <>
inline constexpr unsigned phase_of<Phase_3_indices>{3};

template <typename Indices, typename... Flag>
concept Left_out = is_left_out({phase_of<Indices>, unsigned{Flag::value}...});

} // namespace reduced

template <typename Policy, typename Indices, typename... Flag>
requires reduced::Left_out<Indices, Flag...>
struct var_to_template<Policy, 0, std::tuple<Indices, Flag...>> {
    template <typename Result, typename... Argument>
    static Result impl(Argument...) {
        return reduced::left_out;
    }
};
