/// @file
/// Raw frames in TIFF files. OpenCV's reader would turn and invert samples where the file says so.
#ifndef VELDRANE_TOOLS_TIFF_READING_HPP
#define VELDRANE_TOOLS_TIFF_READING_HPP

#include "frame.hpp"

#include <string>

namespace polarize_tool {

inline constexpr char const* damaged_image = "damaged or cut short; copy or record it again";

/// Reads the first picture of a TIFF, compressed or not, every sample as it is stored.
/// @return what is wrong with it, empty if nothing
std::string read_tiff(std::string const& bytes, Frame& frame);

} // namespace polarize_tool

#endif
