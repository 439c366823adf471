#include "veldrane_mrv/polarization/signed_transform.hpp"

#include "buffers.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/fast_transform.hpp"
#include "veldrane_mrv/polarization/guarantees.hpp"

#include <cfenv>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

Settings negated(Settings const& settings) {
    return {settings.mosaic.opposite(), settings.scale, negated_rows_1_and_2(settings.matrices)};
}

// A sum that is exactly zero can round away from zero, and then does so in both passes.
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
    if (!signed_planes.s1.empty() || !signed_planes.s2.empty()) {
        check_rounding_mode();
    }
}

Signed_planes::Signed_planes(std::size_t height, std::size_t width, Plane_set const& wanted)
    : s1(wanted.contains(Plane::s1) ? height * width : 0),
      s2(wanted.contains(Plane::s2) ? height * width : 0) {}

Signed_transform::Signed_transform(Settings const& settings, Mode mode, Final_pixel final_pixel)
    : mode_{mode}, positive_pass_{settings, final_pixel}, negative_pass_{
                                                              negated(settings), final_pixel} {}

void Signed_transform::operator()(
    Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes) {
    if (signed_planes.s1.empty() && signed_planes.s2.empty()) {
        run_pass(positive_pass_, frame, planes);
        return;
    }
    check_signed_call(frame, settings(), planes, signed_planes);
    std::array<std::span<std::int32_t>, 2> const results = {signed_planes.s1, signed_planes.s2};
    std::array<Plane, 2> const names = {Plane::s1, Plane::s2};
    Plane_views positive = planes;
    Plane_views negative;
    for (std::size_t i = 0; i < results.size(); ++i) {
        if (results[i].empty()) {
            continue;
        }
        negative_[i].resize(frame.pixels());
        negative.integer_plane(names[i]) = negative_[i];
        if (planes.integer_plane(names[i]).empty()) {
            positive_[i].resize(frame.pixels());
            positive.integer_plane(names[i]) = positive_[i];
        }
    }
    run_pass(positive_pass_, frame, positive);
    run_pass(negative_pass_, frame, negative);
    for (std::size_t i = 0; i < results.size(); ++i) {
        std::span<std::uint16_t const> const plus = positive.integer_plane(names[i]);
        for (std::size_t pixel = 0; pixel < results[i].size(); ++pixel) {
            results[i][pixel] = std::int32_t{plus[pixel]} - std::int32_t{negative_[i][pixel]};
        }
    }
}

void Signed_transform::run_pass(
    Calibrated_transform& pass, Frame_view const& frame, Plane_views const& planes) const {
    if (mode_ == Mode::calibrated) {
        pass(frame, planes);
    } else {
        transform(frame, pass.settings(), planes);
    }
}

void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes) {
    Signed_transform{settings, mode}(frame, planes, signed_planes);
}

} // namespace veldrane_mrv::polarization
