/// @file
/// The one place that calls the processor.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

namespace veldrane_mrv::polarization {

/// The processor's record of a call.
Polarization_computation_arguments processor_arguments(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes);

/// What has passed `check_call`.
void call_processor(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

} // namespace veldrane_mrv::polarization
