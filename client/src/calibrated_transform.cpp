#include "veldrane_mrv/polarization/calibrated_transform.hpp"

#include "weighted_call.hpp"

#include "veldrane_mrv/polarization/signed_transform.hpp"

namespace veldrane_mrv::polarization {

Calibrated_transform::Calibrated_transform(Settings const& settings, Final_pixel final_pixel)
    : settings_{settings}, final_pixel_{final_pixel} {}

void Calibrated_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    check_signed_call(frame, settings_, planes, signed_planes);
    if (!planes.wanted().empty() || !signed_planes.empty()) {
        compute_weighted(whole(frame), settings_, planes, signed_planes, final_pixel_, workspace_);
    }
}

} // namespace veldrane_mrv::polarization
