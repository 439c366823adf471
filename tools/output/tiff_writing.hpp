/// @file
/// TIFF files around samples that are not copied.
#pragma once

#include "output/array_writing.hpp"

#include <cstdint>
#include <vector>

namespace polarize_tool {

/// What a TIFF file begins with; the samples follow as they lie in memory. A grey picture without
/// compression, in one strip, the lower byte first. Further channels are declared as neither
/// transparency nor colour.
/// @throws std::runtime_error if the file would be above 4 GiB
std::vector<std::uint8_t> tiff_head(Array_view const& array);

} // namespace polarize_tool
