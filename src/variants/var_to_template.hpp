#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

/// A binary decision tree that turns run-time flags into compile-time ones. Each level binds one
/// flag and appends it to the tuple as std::integral_constant<bool, ...>, so the constants stand in
/// the order in which the flags were passed; level 0 runs the policy with the finished tuple.
///
/// @tparam Policy     what is run at the leaves
/// @tparam N          number of run-time flags still to be bound, the head included
/// @tparam Parameters std::tuple of the compile-time parameters gathered so far
template <typename Policy, unsigned N, typename Parameters>
struct var_to_template;

template <typename Policy, unsigned N, typename... T>
struct var_to_template<Policy, N, std::tuple<T...>> {
    /// @tparam Result    return type of the leaf
    /// @tparam Remaining types of the arguments behind `head`
    template <typename Result, typename... Remaining>
    static Result impl(bool head, Remaining&&... remaining) {
        return head ? bind<std::true_type, Result>(std::forward<Remaining>(remaining)...)
                    : bind<std::false_type, Result>(std::forward<Remaining>(remaining)...);
    }

private:
    template <typename Flag, typename Result, typename First, typename... Rest>
    static Result bind(First&& first, Rest&&... rest) {
        using Next = var_to_template<Policy, N - 1, std::tuple<T..., Flag>>;
        if constexpr (N > 1) {
            return Next::template impl<Result, Rest...>(first, std::forward<Rest>(rest)...);
        } else {
            return Next::template impl<Result, First, Rest...>(
                std::forward<First>(first), std::forward<Rest>(rest)...);
        }
    }
};

/// A leaf. Its definition stands in variants/var_to_template_definition.hpp and is compiled with
/// the code that the leaf runs, not with the tree: the tree must run on processors that the kernels
/// do not.
template <typename Policy, typename... T>
struct var_to_template<Policy, 0, std::tuple<T...>> {
    template <typename Result, typename... Argument>
    static Result impl(Argument... arguments);
};
