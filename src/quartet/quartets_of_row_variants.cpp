#include "quartet/quartets_of_row_definition.hpp"
#include "variants/combinations.hpp"

namespace {

consteval bool instantiate_quartets_of_row() {
    variants::for_each_combination<variants::output_set_flags>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                variants::instantiate(
                    &generate_quartets_of_row<Output_set<Flag...>, false>,
                    &generate_quartets_of_row<Output_set<Flag...>, true>);
            }
        });
    return true;
}

static_assert(instantiate_quartets_of_row());

} // namespace
