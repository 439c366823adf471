#pragma once

#include "kernel/walk.hpp"
#include "module/run_policy.hpp"
#include "variants/combinations.hpp"

namespace variants {

/// Emits the 504 kernels of one index list: every leaf that the decision tree can reach with it and
/// that computes anything.
template <typename Indices>
consteval bool instantiate_kernels() {
    for_each_combination<kernel_flags>([]<typename... Flag>(
                                           std::type_identity<std::tuple<Flag...>>) {
        if constexpr (requests_a_plane<Flag...>) {
            using Kernel = var_to_template<
                Polarization_process_vector_avx2_callback, 0, std::tuple<Indices, Flag...>>;
            instantiate(
                &Kernel::template impl<
                    int, Polarization_computation_arguments const&, Calibration_matrices const&>);
        }
    });
    return true;
}

} // namespace variants
