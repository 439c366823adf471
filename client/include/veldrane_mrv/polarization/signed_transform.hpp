/// @file
/// S1 and S2 with their signs, in either mode.
#pragma once

#include "veldrane_mrv/polarization/calibrated_transform.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// Memory for signed planes: -full_scale to full_scale in the units of the 16-bit planes, which is
/// more than 16 bits with a sign can hold.
struct Signed_planes {
    std::vector<std::int32_t> s1;
    std::vector<std::int32_t> s2;

    /// Zeros for every pixel of a frame; S1 and S2 of `wanted` count.
    Signed_planes(std::size_t height, std::size_t width, Plane_set const& wanted);

    Signed_views views() { return {s1, s2}; }
};

/// The checks of a `Signed_transform` alone: those of `check_call`, the same for the signed planes,
/// and that the rounding mode is to nearest if there are any.
/// @throws Argument_error for the first violation
void check_signed_call(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes,
    Signed_views const& signed_planes);

/// Signed S1 and S2, with any other planes.
///
/// The processor stores only the positive half of S1 and S2. The other half is what it would store
/// for the opposite mosaic and for matrices with rows 1 and 2 negated; the difference of both,
/// which this layer computes without the detour, is the signed number. Negation is exact in
/// rounding to nearest, so no pixel is positive in both halves.
class Signed_transform {
public:
    explicit Signed_transform(
        Settings const& settings, Mode mode = Mode::fast,
        Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return calibrated_.settings(); }

    /// `Final_pixel` has a meaning in calibrated mode only. `planes` may hold S1 and S2 too: the
    /// positive halves.
    /// @throws Argument_error if a check fails, or if signed planes are wanted and the rounding
    ///         mode is not to nearest; nothing has been written then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes);

private:
    Mode mode_;
    Calibrated_transform calibrated_;
};

/// One frame through a `Signed_transform` of its own.
void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
