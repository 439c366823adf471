#include "veldrane_mrv/polarization/signed_transform.hpp"

#include "call_checks.hpp"
#include "weighted_call.hpp"

#include "veldrane_mrv/polarization/fast_transform.hpp"

namespace veldrane_mrv::polarization {
void check_signed_call(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes) {
    check_call_of({frame.size(), frame.samples()}, settings, planes, signed_planes);
}

Signed_planes::Signed_planes(std::size_t height, std::size_t width, Plane_set const& wanted)
    : s1(wanted.contains(Plane::s1) ? height * width : 0),
      s2(wanted.contains(Plane::s2) ? height * width : 0) {}

Signed_transform::Signed_transform(Settings const& settings, Mode mode, Final_pixel final_pixel)
    : mode_{mode}, calibrated_{settings, final_pixel} {}

void Signed_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    if (mode_ == Mode::calibrated) {
        calibrated_(frame, planes, signed_planes);
    } else {
        check_signed_call(frame, settings(), planes, signed_planes);
        transform(frame, settings(), planes);
        compute_signed(whole(frame), settings(), signed_planes);
    }
}

void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes) {
    Signed_transform{settings, mode}(frame, planes, signed_planes);
}

} // namespace veldrane_mrv::polarization
