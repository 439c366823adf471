/// @file
/// What is asked of a call before it touches memory.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstdint>
#include <span>

namespace veldrane_mrv::polarization {

/// What a call computes of: a frame in memory, or one whose rows are made when they are needed and
/// which has no samples yet.
struct Source {
    Size size;
    std::span<std::uint16_t const> samples{};
};

/// The checks that `check_signed_call` documents.
/// @throws Argument_error for the first violation
void check_call_of(
    Source const& source, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes);

/// The same for a band, whose planes have its rows alone, and that it is one.
/// @throws Argument_error for the first violation
void check_band_call(
    Band const& band, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
