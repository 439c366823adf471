/// @file
/// Which build of the processor this program runs with.
#pragma once

#include <string>

namespace veldrane_mrv::polarization {

/// The identification in the loaded library's file, "Version = 1.0.0.0_0123abc" and the time of its
/// source, or "version unknown" and the file that cannot be read. Safe on any x86-64.
std::string const& processor_identification();

} // namespace veldrane_mrv::polarization
