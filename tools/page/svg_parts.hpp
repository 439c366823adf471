/// @file
/// Drawings in pages.
#pragma once

#include <string>

namespace polarize_tool {

/// Of a drawing beside a picture, in pixels.
inline constexpr double drawing_width = 330.0;

/// To a hundredth of a pixel, as short as it comes.
std::string coordinate(double value);

/// The start of an svg element without its closing bracket. `label` is plain text.
std::string svg_of_size(double width, double height, std::string const& label);

/// The wheel of the picture `uri` with the angles around it.
std::string wheel_svg(std::string const& uri);

} // namespace polarize_tool
