#include "veldrane_mrv/polarization/frame_transform.hpp"

#include <algorithm>
#include <limits>

namespace veldrane_mrv::polarization {

Frame_transform::Frame_transform(Settings const& settings, Transform_options const& options)
    : fills_normalized_stokes_{options.fills_normalized_stokes && options.mode == Mode::fast},
      transform_{settings, options.mode, options.final_pixel} {}

void Frame_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    if (fills_normalized_stokes_ && !planes.normalized_stokes.empty()) {
        // Before anything is written, so that a refusal leaves all planes as they were.
        check_signed_call(frame, settings(), planes, signed_planes);
        std::ranges::fill(planes.normalized_stokes, std::numeric_limits<float>::quiet_NaN());
    }
    transform_(frame, planes, signed_planes);
}

} // namespace veldrane_mrv::polarization
