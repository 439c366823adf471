#pragma once

/// Decisions on data without a branch. A mask is a comparison's result, all ones or all zeros.
namespace quartet {

template <typename Lanes>
[[gnu::always_inline]] inline typename Lanes::Vector magnitude(typename Lanes::Vector x) {
    return Lanes::second_without_first(Lanes::constant(-0.0F), x);
}

/// Sets the sign bit of a positive number where the mask is set.
template <typename Lanes>
[[gnu::always_inline]] inline typename Lanes::Vector negate_where(
    typename Lanes::Vector mask, float positive) {
    return Lanes::either(Lanes::both(mask, Lanes::constant(-0.0F)), Lanes::constant(positive));
}

/// Joins two masked values by an addition: the one that is not selected is +0. A selected -0
/// becomes +0 (outside round-down), which no later step tells apart.
template <typename Lanes>
[[gnu::always_inline]] inline typename Lanes::Vector select_by_sum(
    typename Lanes::Vector mask, typename Lanes::Vector where_set,
    typename Lanes::Vector elsewhere) {
    return Lanes::add(Lanes::both(mask, where_set), Lanes::second_without_first(mask, elsewhere));
}

} // namespace quartet
