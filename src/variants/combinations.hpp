#pragma once

#include "variants/selected_variants.hpp"

#include <cstddef>
#include <initializer_list>
#include <tuple>
#include <type_traits>
#include <utility>

/// The one description of the set of variants: every combination of compile-time flags that a frame
/// can call for. Whatever instantiates the templates iterates it.
namespace variants {

/// `same_output_range` and the six outputs: what every template takes.
inline constexpr std::size_t output_set_flags = 7;

/// Behind these `height_is_even` and `width_is_even`.
inline constexpr std::size_t kernel_flags = 9;

template <std::size_t Combination, typename Positions>
struct Flags_of_combination;

template <std::size_t Combination, std::size_t... Position>
struct Flags_of_combination<Combination, std::index_sequence<Position...>> {
    using type = std::tuple<std::bool_constant<((Combination >> Position) & 1) != 0>...>;
};

/// Calls `visit(std::type_identity<std::tuple<flags...>>{})` for all 2^Flag_count combinations that
/// are selected, standing behind what is `Fixed`.
template <std::size_t Flag_count, typename... Fixed, typename Visitor>
consteval void for_each_combination(Visitor visit) {
    auto const visit_selected =
        [visit]<typename... Flag>(std::type_identity<std::tuple<Flag...>> combination) {
            if constexpr (is_selected<Fixed..., Flag...>) {
                visit(combination);
            }
        };
    // A list, not a fold over the comma: clang bounds how deep a fold may nest.
    [visit_selected]<std::size_t... Combination>(std::index_sequence<Combination...>) {
        static_cast<void>(std::initializer_list<int>{
            (visit_selected(std::type_identity<typename Flags_of_combination<
                                Combination, std::make_index_sequence<Flag_count>>::type>{}),
             0)...});
    }
    (std::make_index_sequence<(std::size_t{1} << Flag_count)>{});
}

/// Instantiates function templates: naming their addresses is what makes the compiler do so. They
/// are declared [[gnu::used]], so that the instances are emitted although nothing in the
/// translation unit calls them.
consteval void instantiate(auto*...) {}

} // namespace variants
