#include "support/comparison.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <sstream>

namespace support {
namespace {

template <typename Element>
Element element_at(std::span<std::byte const> plane, std::size_t index) {
    Element element;
    std::memcpy(&element, plane.data() + sizeof(Element) * index, sizeof(Element));
    return element;
}

bool are_both_nan(std::uint32_t left, std::uint32_t right) {
    return std::isnan(std::bit_cast<float>(left)) && std::isnan(std::bit_cast<float>(right));
}

std::optional<Difference> first_different_pair(
    std::size_t width, std::span<std::byte const> expected, std::span<std::byte const> actual,
    Nan_rule nan_rule) {
    for (std::size_t index = 0; index < expected.size() / 4; ++index) {
        auto const left = element_at<std::uint32_t>(expected, index);
        auto const right = element_at<std::uint32_t>(actual, index);
        bool const excused = nan_rule == Nan_rule::any_nan_is_equal && are_both_nan(left, right);
        if (left != right && !excused) {
            std::size_t const pixel = index / 2;
            return Difference{
                Plane::normalized_stokes, pixel / width, pixel % width, index % 2, left, right};
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<Difference> first_difference(
    Plane plane, std::size_t width, std::span<std::byte const> expected,
    std::span<std::byte const> actual, Nan_rule nan_rule) {
    if (std::memcmp(expected.data(), actual.data(), expected.size()) == 0) {
        return std::nullopt;
    }
    if (plane == Plane::normalized_stokes) {
        return first_different_pair(width, expected, actual, nan_rule);
    }
    for (std::size_t pixel = 0; pixel < expected.size() / 2; ++pixel) {
        auto const left = element_at<std::uint16_t>(expected, pixel);
        auto const right = element_at<std::uint16_t>(actual, pixel);
        if (left != right) {
            return Difference{plane, pixel / width, pixel % width, 0, left, right};
        }
    }
    return std::nullopt;
}

std::string describe(Difference const& difference) {
    std::ostringstream text;
    text << name_of(difference.plane) << " row " << difference.row << " column "
         << difference.column;
    if (difference.plane == Plane::normalized_stokes) {
        text << " component " << difference.component << std::hex << ": expected 0x"
             << difference.expected << " (" << std::bit_cast<float>(difference.expected)
             << "), got 0x" << difference.actual << " (" << std::bit_cast<float>(difference.actual)
             << ")";
    } else {
        text << ": expected " << difference.expected << ", got " << difference.actual;
    }
    return text.str();
}

} // namespace support
