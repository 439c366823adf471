#pragma once

#include "kernel/leaf.hpp"
#include "kernel/walk_definition.hpp"
#include "variants/var_to_template_definition.hpp"

namespace kernel {

/// Emits the 504 kernels of one index list: every leaf that the decision tree can reach with it and
/// that computes anything.
template <typename Indices>
consteval bool instantiate_walks() {
    variants::for_each_combination<variants::kernel_flags, Indices>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                instantiate_leaf<Indices, Flag...>();
            }
        });
    return true;
}

} // namespace kernel
