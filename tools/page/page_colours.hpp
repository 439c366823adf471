/// @file
/// The colours of pictures for scripts that colour pixels themselves.
#pragma once

#include <string>

namespace polarize_tool {

/// JSON: each table of `Colour_tables` in base64 ("s0", "degree", "angle", "angle_second",
/// "signed"), "hues" and "levels", "bars" as data URIs ("s0", "degree", "signed") and "wheels" as
/// SVG ("hue", "second").
std::string page_colours();

} // namespace polarize_tool
