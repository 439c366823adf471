#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace block {

/// Calls `body(std::integral_constant<std::size_t, i>{})` for i = 0 .. Count - 1, so that i is a
/// compile-time value in the body.
template <std::size_t Count, typename Body>
[[gnu::always_inline]] inline void unroll(Body body) {
    [&]<std::size_t... i>(std::index_sequence<i...>) __attribute__((always_inline)) {
        (body(std::integral_constant<std::size_t, i>{}), ...);
    }
    (std::make_index_sequence<Count>{});
}

} // namespace block
