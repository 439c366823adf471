/// @file
/// What the processor relies on and does not check.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

namespace veldrane_mrv::polarization {

/// Whether the processor takes frames of this size: of two rows and two columns, and of 16 columns
/// unless there are exactly two rows.
constexpr bool can_be_processed(Size const& frame) {
    return frame.height >= 2 && frame.width >= (frame.height == 2 ? 2 : 16);
}

/// Before anything is written, it checks that
///   `can_be_processed` holds for the frame's size;
///   every plane that is not empty has exactly the elements of the frame, at an aligned address;
///   no two buffers overlap, the frame included;
///   no weight of the matrices is NaN or absurdly large;
///   size and bit depth are those of the settings' tables, if there are any;
///   the processor has AVX2 and FMA.
/// Full scales are checked by `Scale`, null and absurd sizes by `Frame_view`.
/// @throws Argument_error for the first violation
void check_call(Frame_view const& frame, Settings const& settings, Plane_views const& planes);

/// Fast mode knows nothing of single pixels.
/// @throws Argument_error if the settings have tables and the mode is fast
void check_mode(Settings const& settings, Mode mode);

} // namespace veldrane_mrv::polarization
