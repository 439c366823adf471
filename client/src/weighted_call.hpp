/// @file
/// From this layer's types to the pixel code beside the processor.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstdint>
#include <vector>

namespace veldrane_mrv::polarization {

/// Every wanted plane, all pixels with their position's matrix or their own. The call has been
/// checked; frame and planes keep to the settings' tables.
/// @param workspace memory for corrected rows, kept from frame to frame
void compute_weighted(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes, Final_pixel final_pixel,
    std::vector<std::uint16_t>& workspace);

/// Signed planes in fast mode. The call has been checked.
void compute_signed(
    Frame_view const& frame, Settings const& settings, Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
