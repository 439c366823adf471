#include "veldrane_mrv/polarization/signed_transform.hpp"

#include "buffers.hpp"
#include "weighted_call.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/fast_transform.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"

#include <cfenv>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

// A sum that is exactly zero can round away from zero, and then does so in both halves.
void check_rounding_mode() {
    int const mode = std::fegetround();
    if (mode != FE_TONEAREST) {
        throw Argument_error{
            "the rounding mode", std::to_string(mode),
            "set rounding to nearest (FE_TONEAREST) for signed planes"};
    }
}

} // namespace

void check_signed_call(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes) {
    check_call(frame, settings, planes);
    check_plane("signed s1", signed_planes.s1, frame.pixels());
    check_plane("signed s2", signed_planes.s2, frame.pixels());
    std::vector<Buffer> buffers = buffers_of(frame, planes);
    buffers.emplace_back("signed s1", signed_planes.s1);
    buffers.emplace_back("signed s2", signed_planes.s2);
    check_overlap(std::move(buffers));
    if (!signed_planes.empty()) {
        check_rounding_mode();
    }
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
        compute_signed(frame, settings(), signed_planes);
    }
}

void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes) {
    Signed_transform{settings, mode}(frame, planes, signed_planes);
}

} // namespace veldrane_mrv::polarization
