#include "border/last_row_and_column_definition.hpp"
#include "variants/combinations.hpp"

namespace {

consteval bool instantiate_last_rows() {
    variants::for_each_combination<variants::kernel_flags>(
        []<typename... Flag>(std::type_identity<std::tuple<Flag...>>) {
            if constexpr (requests_a_plane<Flag...>) {
                variants::instantiate(&generate_last_row_and_column<Flag...>);
            }
        });
    return true;
}

static_assert(instantiate_last_rows());

} // namespace
