/// @file
/// Raw frames in TIFF files. OpenCV's reader would turn and invert samples where the file says so.
#ifndef VELDRANE_TOOLS_TIFF_READING_HPP
#define VELDRANE_TOOLS_TIFF_READING_HPP

#include "frame.hpp"

#include <string>

namespace polarize_tool {

inline constexpr char const* damaged_image = "damaged or cut short; copy or record it again";
inline constexpr char const* colour_image =
    "a colour image; a raw frame has one grey sample per pixel, so save it in grey, undemosaiced";
inline constexpr char const* samples_of_other_kind =
    "samples are not unsigned numbers of 8 or 16 bits; save it as an 8- or 16-bit grey image";

/// Reads the first picture of a TIFF, compressed or not, every sample as it is stored.
/// @return what is wrong with it, empty if nothing
std::string read_tiff(std::string const& bytes, Frame& frame);

} // namespace polarize_tool

#endif
