/// @file
/// The colours of pages and their legends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace polarize_tool {

/// Red, green and blue of each colour in the pictures: 256 levels of S0 and of the degree, and for
/// the angle `hue_count` times `level_count`, the levels of a hue side by side. `angle_second` is
/// for people who see colours differently: blue, yellow and lightness alone tell the angle, a mid
/// grey is no degree. `signed_share` has 256 levels of which the 128th is zero (black), yellow
/// above, blue below.
struct Colour_tables {
    static constexpr std::size_t hue_count = 180;
    static constexpr std::size_t level_count = 64;
    std::vector<std::uint8_t> s0;
    std::vector<std::uint8_t> angle;
    std::vector<std::uint8_t> degree;
    std::vector<std::uint8_t> angle_second;
    std::vector<std::uint8_t> signed_share;
};
Colour_tables colour_tables();

/// A square picture of a disc: the hue at an angle lies in its direction from the centre (twice),
/// the level is the distance from it. Outside of the disc the colours go on.
std::string colour_wheel_uri();
/// The same of a table of angles.
std::string colour_wheel_uri(std::vector<std::uint8_t> const& table);

/// A picture of one row: the 256 levels of a table.
std::string colour_bar_uri(std::vector<std::uint8_t> const& table);

} // namespace polarize_tool
