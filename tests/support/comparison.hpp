/// @file
/// Bit-for-bit comparison of two planes, and words for what differs.

#pragma once

#include "support/plane_set.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace support {

/// The first element in which two planes differ. `expected` and `actual` hold its bits.
struct Difference {
    Plane plane;
    std::size_t row;
    std::size_t column;
    /// Of the float plane's pair: 0 for S1 / S0, 1 for S2 / S0.
    std::size_t component;
    std::uint32_t expected;
    std::uint32_t actual;
};

enum class Nan_rule { exact_bits, any_nan_is_equal };

std::optional<Difference> first_difference(
    Plane plane, std::size_t width, std::span<std::byte const> expected,
    std::span<std::byte const> actual, Nan_rule nan_rule);

std::string describe(Difference const& difference);

} // namespace support
