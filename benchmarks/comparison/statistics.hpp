#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

/// The element below which the given share of them lies. Not of an empty list.
inline double quantile(std::vector<double> values, double share) {
    auto const at = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return values[static_cast<std::size_t>(at)];
}

inline double median(std::vector<double> const& values) {
    return quantile(values, 0.5);
}
