/// @file
/// Frame after frame in whichever way its options and the wanted planes ask for.
#pragma once

#include "veldrane_mrv/polarization/signed_transform.hpp"
#include "veldrane_mrv/polarization/uncertainty.hpp"
#include "veldrane_mrv/polarization/validity.hpp"

#include <optional>

namespace veldrane_mrv::polarization {

struct Transform_options {
    Mode mode = Mode::fast;
    /// Has a meaning in calibrated mode only.
    Final_pixel final_pixel = Final_pixel::by_position;
    /// Whether fast mode first puts NaN into all of `normalized_stokes`. It stores in the same
    /// places in each frame of a size, so memory that was filled once, as that of `Planes` is,
    /// needs no more.
    bool fills_normalized_stokes = true;
};

/// One frame after another. Signed planes come from the same pass as the others, in fast mode from
/// a second look at the samples; `validity` and `uncertainty` are computed beside them. Keeps its
/// workspace from frame to frame. Can be moved; for one thread at a time.
class Frame_transform {
public:
    /// @throws Argument_error for a noise model that is none
    explicit Frame_transform(Settings const& settings, Transform_options const& options = {});

    Settings const& settings() const { return transform_.settings(); }

    /// Fast mode leaves NaN wherever it stores no normalised Stokes value, whatever the plane held,
    /// unless the options say otherwise.
    /// @throws Argument_error as a `Signed_transform` does, and if `uncertainty` is wanted without
    /// a
    ///         noise model; nothing has been written then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes = {});

private:
    Mode mode_;
    bool fills_normalized_stokes_;
    Signed_transform transform_;
    Validity_marker validity_;
    std::optional<Uncertainty_estimator> uncertainty_;
};

} // namespace veldrane_mrv::polarization
