/// @file
/// The colours of pages and their legends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace polarize_tool {

/// Red, green and blue of each colour in the pictures: 256 levels of S0 and of the degree, and for
/// the angle `hue_count` times `level_count`, the levels of a hue side by side.
struct Colour_tables {
    static constexpr std::size_t hue_count = 180;
    static constexpr std::size_t level_count = 64;
    std::vector<std::uint8_t> s0;
    std::vector<std::uint8_t> angle;
    std::vector<std::uint8_t> degree;
};
Colour_tables colour_tables();

/// A square picture of a disc: the hue at an angle lies in its direction from the centre (twice),
/// the level is the distance from it. Outside of the disc the colours go on.
std::string colour_wheel_uri();

/// A picture of one row: the 256 levels of a table.
std::string colour_bar_uri(std::vector<std::uint8_t> const& table);

} // namespace polarize_tool
