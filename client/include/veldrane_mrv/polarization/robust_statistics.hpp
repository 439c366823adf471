/// @file
/// Statistics that a few numbers far away do not move.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace veldrane_mrv::polarization {

/// The standard deviation of normal numbers in units of their median absolute deviation.
inline constexpr double deviations_per_median = 1.4826;

/// The upper one of the two in the middle of an even count. Reorders the numbers, of which there is
/// at least one.
template <class Number>
Number take_median(std::vector<Number>& numbers) {
    auto const middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
    std::ranges::nth_element(numbers, middle);
    return *middle;
}

} // namespace veldrane_mrv::polarization
