/// @file
/// A raw frame in memory.
#pragma once

#include "veldrane_mrv/polarization/frame.hpp"

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

using polarization::Frame;

} // namespace polarize_tool
