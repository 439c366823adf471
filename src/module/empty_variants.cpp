#include "kernel/leaf.hpp"
#include "variants/var_to_template_definition.hpp"
#include "variants/vector_data_indices_avx2.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

namespace {

/// The leaves without an output return 0 from the module's own objects: a call that requests
/// nothing reaches no vector code and so runs on any processor.
template <typename Indices>
consteval bool instantiate_empty_variants() {
    variants::for_each_combination<variants::kernel_flags>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (!requests_a_plane<Flag...>) {
                kernel::instantiate_leaf<Indices, Flag...>();
            }
        });
    return true;
}

static_assert(instantiate_empty_variants<Phase_0_indices>());
static_assert(instantiate_empty_variants<Phase_1_indices>());
static_assert(instantiate_empty_variants<Phase_2_indices>());
static_assert(instantiate_empty_variants<Phase_3_indices>());

} // namespace
