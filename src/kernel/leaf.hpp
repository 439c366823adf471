#pragma once

#include "kernel/walk.hpp"
#include "variants/combinations.hpp"
#include "variants/var_to_template.hpp"

#include <tuple>

namespace kernel {

/// Emits one leaf of the decision tree, by whichever definition the translation unit has.
template <typename Indices, typename... Flag>
consteval void instantiate_leaf() {
    using Leaf =
        var_to_template<Polarization_process_vector_avx2_callback, 0, std::tuple<Indices, Flag...>>;
    variants::instantiate(
        &Leaf::template impl<
            int, Polarization_computation_arguments const&, Calibration_matrices const&>);
}

} // namespace kernel
