#include "border/last_column_definition.hpp"
#include "variants/combinations.hpp"

namespace {

/// The eighth flag is `width_is_even`.
consteval bool instantiate_last_columns() {
    variants::for_each_combination<variants::output_set_flags + 1>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                variants::instantiate(&generate_last_column<Flag...>);
            }
        });
    return true;
}

static_assert(instantiate_last_columns());

} // namespace
