/// @file
/// From this layer's types to the pixel code beside the processor.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstdint>
#include <vector>

namespace veldrane_mrv::polarization {

/// Every wanted plane of a band, all pixels with their position's matrix or their own. The call has
/// been checked; the frame keeps to the settings' tables. Planes begin with the band's first row.
/// @param workspace memory for corrected rows, kept from band to band
void compute_weighted(
    Band const& band, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes, Final_pixel final_pixel,
    std::vector<std::uint16_t>& workspace);

/// Signed planes of a band in fast mode, which begin with its first row. The call has been checked.
void compute_signed(Band const& band, Settings const& settings, Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
