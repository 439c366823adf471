#pragma once

#include "kernel/walk_definition.hpp"
#include "variants/combinations.hpp"
#include "variants/var_to_template_definition.hpp"

namespace kernel {

/// Emits the 504 kernels of one index list: every leaf that the decision tree can reach with it and
/// that computes anything.
template <typename Indices>
consteval bool instantiate_walks() {
    variants::for_each_combination<variants::kernel_flags, Indices>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                using Kernel = var_to_template<
                    Polarization_process_vector_avx2_callback, 0, std::tuple<Indices, Flag...>>;
                variants::instantiate(&Kernel::template impl<
                                      int, Polarization_computation_arguments const&,
                                      Calibration_matrices const&>);
            }
        });
    return true;
}

} // namespace kernel
