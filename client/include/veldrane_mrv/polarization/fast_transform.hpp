/// @file
/// Fast mode: one call of the processor, every plane as the processor writes it.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

namespace veldrane_mrv::polarization {

/// Fast mode. Nothing happens if no plane is wanted.
/// @throws Argument_error if a check fails; nothing has been written then
void transform(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

} // namespace veldrane_mrv::polarization
