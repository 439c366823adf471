/// @file
/// S1 and S2 with their signs, by two passes of either mode.
#pragma once

#include "veldrane_mrv/polarization/calibrated_transform.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// Where signed S1 and S2 go; an empty span says that one is not wanted.
struct Signed_views {
    std::span<std::int32_t> s1{};
    std::span<std::int32_t> s2{};
};

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

/// Signed S1 and S2, with any other planes of the first pass.
///
/// The processor stores only the positive half of S1 and S2. A second pass with the opposite mosaic
/// and with rows 1 and 2 of all matrices negated gives the other half; it takes both, since a
/// mosaic's phase reaches only the pixels of vector blocks and matrices only the others. The
/// negation is exact in rounding to nearest, so no pixel is positive in both.
class Signed_transform {
public:
    explicit Signed_transform(
        Settings const& settings, Mode mode = Mode::fast,
        Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return positive_pass_.settings(); }

    /// `Final_pixel` has a meaning in calibrated mode only. `planes` may hold S1 and S2 too: the
    /// positive halves.
    /// @throws Argument_error if a check fails, or if signed planes are wanted and the rounding
    ///         mode is not to nearest; nothing has been written then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes);

private:
    void run_pass(
        Calibrated_transform& pass, Frame_view const& frame, Plane_views const& planes) const;

    Mode mode_;
    Calibrated_transform positive_pass_;
    Calibrated_transform negative_pass_;
    /// Halves of S1 and of S2 that the caller has no plane for.
    std::array<std::vector<std::uint16_t>, 2> positive_;
    std::array<std::vector<std::uint16_t>, 2> negative_;
};

/// One frame through a `Signed_transform` of its own.
void transform_signed(
    Frame_view const& frame, Settings const& settings, Mode mode, Plane_views const& planes,
    Signed_views const& signed_planes);

} // namespace veldrane_mrv::polarization
