#include "veldrane_mrv/polarization/frame_transform.hpp"

#include "veldrane_mrv/polarization/guarantees.hpp"

#include <algorithm>
#include <limits>

namespace veldrane_mrv::polarization {

Frame_transform::Frame_transform(Settings const& settings, Transform_options const& options)
    : mode_{options.mode},
      fills_normalized_stokes_{options.fills_normalized_stokes && options.mode == Mode::fast},
      transform_{settings, options.mode, options.final_pixel}, validity_{settings, options.mode} {
    if (settings.noise) {
        uncertainty_.emplace(settings, options.mode);
    }
}

void Frame_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    bool const fills = fills_normalized_stokes_ && !planes.normalized_stokes.empty();
    if (fills || !planes.validity.empty() || !planes.uncertainty.empty()) {
        // Before anything is written, so that a refusal leaves all planes as they were.
        check_signed_call(frame, settings(), planes, signed_planes);
        check_mode(settings(), mode_);
    }
    if (!planes.uncertainty.empty() && !uncertainty_) {
        static_cast<void>(noise_of(settings()));
    }
    if (fills) {
        std::ranges::fill(planes.normalized_stokes, std::numeric_limits<float>::quiet_NaN());
    }
    Plane_views stored = planes;
    stored.validity = {};
    stored.uncertainty = {};
    transform_(frame, stored, signed_planes);
    if (!planes.validity.empty()) {
        validity_(frame, planes.validity);
    }
    if (!planes.uncertainty.empty()) {
        (*uncertainty_)(frame, planes.uncertainty);
    }
}

} // namespace veldrane_mrv::polarization
