/// @file
/// Raw frames from files, every sample exactly as it is stored.
#ifndef VELDRANE_TOOLS_FRAME_READING_HPP
#define VELDRANE_TOOLS_FRAME_READING_HPP

#include "frame.hpp"

#include <filesystem>

namespace polarize_tool {

/// Reads one grey PNG, TIFF or binary PGM of 8 or 16 bits, told apart by content and not by name.
/// No sample is scaled; 8-bit samples are widened unchanged.
/// @throws File_failure if the file is no such image, or not whole
Frame read_frame(std::filesystem::path const& file);

} // namespace polarize_tool

#endif
