/// @file
/// Frame after frame in whichever way its options and the wanted planes ask for.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/signed_transform.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <memory>

namespace veldrane_mrv::polarization {

struct Transform_options {
    Mode mode = Mode::fast;
    /// Has a meaning in calibrated mode only.
    Final_pixel final_pixel = Final_pixel::by_position;
    /// Whether fast mode first puts NaN into all of `normalized_stokes`. It stores in the same
    /// places in each frame of a size, so memory that was filled once, as that of `Planes` is,
    /// needs no more.
    bool fills_normalized_stokes = true;
    /// Threads that share the rows of each frame, the calling one included; 0 stands for one a
    /// core. They wait between frames; where the system has no more, those that it has do the work.
    /// Frames with fewer than about 2^17 pixels a thread, or in fast mode 400 rows, take fewer. In
    /// fast mode one thread computes all of `normalized_stokes`, the others the other planes.
    unsigned threads = 1;
};

/// One frame after another. Signed planes come from the same pass as the others, in fast mode from
/// a second look at the samples; `validity` and `uncertainty` are computed beside them. The bits
/// are the same for any number of threads. Keeps its workspace from frame to frame: for each thread
/// a few rows, and with `Frame_rows` some 256 KB of them, or in fast mode with `normalized_stokes`
/// the whole frame. Can be moved; for one caller at a time.
class Frame_transform {
public:
    /// @throws Argument_error for a noise model that is none, or more than 1024 threads
    explicit Frame_transform(Settings const& settings, Transform_options const& options = {});
    ~Frame_transform();
    Frame_transform(Frame_transform&& other) noexcept;
    Frame_transform& operator=(Frame_transform&& other) noexcept;

    Settings const& settings() const;

    /// Fast mode leaves NaN wherever it stores no normalised Stokes value, whatever the plane held,
    /// unless the options say otherwise.
    /// @throws Argument_error as a `Signed_transform` does, and if `uncertainty` is wanted without
    ///         a noise model; nothing has been written then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes = {});

    /// The same planes of a frame whose rows are made on the way.
    /// @throws what `frame.fill` throws; some rows of the planes have been written then
    void operator()(
        Frame_rows const& frame, Plane_views const& planes, Signed_views const& signed_planes = {});

    /// A part of these planes, beginning with the band's first row: the bits of the whole frame.
    /// The calling thread alone computes it, but for `normalized_stokes` of a whole frame in fast
    /// mode, for which it has its other threads. In fast mode each call costs some four rows more.
    /// @throws Argument_error as above, for a band that is none, and for `normalized_stokes` of one
    ///         that is not the whole frame, since fast mode packs it over all rows
    void operator()(
        Band const& band, Plane_views const& planes, Signed_views const& signed_planes = {});

private:
    class Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace veldrane_mrv::polarization
