/// @file
/// The pictures of a report and the colours that they are made of.
#pragma once

#include "report/report_statistics.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace polarize_tool {

/// Where the scales of the pictures end; what lies above is shown as the end.
struct Picture_scales {
    /// Element of S0 that is shown as white.
    unsigned s0_top;
    /// Degree of polarisation with the last colour of the scale, and the full brightness of an
    /// angle.
    double degree_top;
};

/// White for the brightest thousandth; 0.05, 0.1, 0.2, 0.3, 0.5 or 1 for the degree, so that all
/// but the largest hundredth of them are told apart.
Picture_scales picture_scales(
    Element_counts const& s0, Element_counts const& dolp, unsigned full_scale);

/// One picture as a URI that holds it.
struct Picture {
    std::string uri;
    std::size_t width;
    std::size_t height;
};

struct Report_pictures {
    Picture s0;
    Picture angle;
    Picture degree;
    /// Pixels of the frame along each side of a pixel of a picture: the least number that leaves at
    /// most 1400 of them. S0 and degree are means, the angle that of the summed Stokes vectors;
    /// pixels that are not valid count for S0 alone, and where all are the pictures are grey.
    std::size_t binning;
};
Report_pictures report_pictures(Report_planes const& planes, Picture_scales const& scales);

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
