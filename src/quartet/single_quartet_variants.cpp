#include "quartet/single_quartet_definition.hpp"
#include "variants/combinations.hpp"

namespace {

consteval bool instantiate_generators() {
    variants::for_each_combination<variants::output_set_flags>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                variants::instantiate(
                    &generate_polarization_output_data_for_single_quartet<Flag..., false, false>,
                    &generate_polarization_output_data_for_single_quartet<Flag..., true, false>,
                    &generate_polarization_output_data_for_single_quartet<Flag..., false, true>,
                    &generate_polarization_output_data_for_single_quartet<Flag..., true, true>);
            }
        });
    return true;
}

static_assert(instantiate_generators());

} // namespace
