/// @file
/// What to do where memory is short.
#pragma once

#include <exception>

namespace polarize_tool {

/// std::bad_alloc, what a container throws for more than there can be, or what OpenCV throws in
/// their place.
bool is_lack_of_memory(std::exception const& error);

} // namespace polarize_tool
