/// @file
/// The leaves of a reduced library that are left out. They stand where the kernels would: the
/// decision tree names all 2048.

#include "reduced/left_out.hpp"

#include "kernel/leaf.hpp"
#include "variants/var_to_template.hpp"
#include "variants/vector_data_indices_avx2.hpp"

template <typename Policy, typename... T>
template <typename Result, typename... Argument>
[[gnu::used]] Result var_to_template<Policy, 0, std::tuple<T...>>::impl(Argument...) {
    return reduced::left_out;
}

namespace {

template <unsigned phase, typename Indices>
consteval bool instantiate_left_out_leaves() {
    variants::for_each_combination<variants::kernel_flags>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (reduced::is_left_out({phase, Flag::value...})) {
                kernel::instantiate_leaf<Indices, Flag...>();
            }
        });
    return true;
}

static_assert(instantiate_left_out_leaves<0, Phase_0_indices>());
static_assert(instantiate_left_out_leaves<1, Phase_1_indices>());
static_assert(instantiate_left_out_leaves<2, Phase_2_indices>());
static_assert(instantiate_left_out_leaves<3, Phase_3_indices>());

} // namespace
