/// @file
/// Which build of the processor this program runs with.
#ifndef VELDRANE_TOOLS_BUILD_IDENTIFICATION_HPP
#define VELDRANE_TOOLS_BUILD_IDENTIFICATION_HPP

#include <string>

namespace polarize_tool {

/// The identification in the loaded library's file, "Version = 1.0.0.0_0123abc ...", or a sentence
/// that says that it cannot be read.
std::string const& processor_identification();

} // namespace polarize_tool

#endif
