/// @file
/// What the processor relies on and does not check.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

namespace veldrane_mrv::polarization {

/// Before anything is written, it checks that
///   the frame has two rows and two columns, and 16 columns unless it has exactly two rows;
///   every plane that is not empty has exactly the elements of the frame, at an aligned address;
///   no two buffers overlap, the frame included;
///   no weight of the matrices is NaN or absurdly large;
///   the processor has AVX2 and FMA.
/// Full scales are checked by `Scale`, null and absurd sizes by `Frame_view`.
/// @throws Argument_error for the first violation
void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

} // namespace veldrane_mrv::polarization
