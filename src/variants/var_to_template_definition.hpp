#pragma once

#include "variants/var_to_template.hpp"

template <typename Policy, typename... T>
template <typename Result, typename... Argument>
[[gnu::used]] Result var_to_template<Policy, 0, std::tuple<T...>>::impl(Argument... arguments) {
    return Policy::template process<T...>(arguments...);
}
