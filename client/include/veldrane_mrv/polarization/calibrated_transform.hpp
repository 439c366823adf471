/// @file
/// Calibrated mode: every pixel through the matrix of its position, every plane at pixel positions.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldrane_mrv::polarization {

/// Calibrated mode. The processor applies the matrices in frames of up to 31 columns throughout, so
/// wider frames go through it in upright strips that overlap by the column whose neighbours are
/// turned; the results are joined, bit for bit what the processor's arithmetic of one pixel gives.
/// Keeps its workspace from frame to frame: 62 bytes for each row of the tallest frame so far, and
/// as many for every plane, 248 for one of two floats.
class Calibrated_transform {
public:
    explicit Calibrated_transform(
        Settings const& settings, Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return settings_; }
    Final_pixel final_pixel() const { return final_pixel_; }

    /// Nothing happens if no plane is wanted.
    /// @throws Argument_error if a check fails; nothing has been written then
    void operator()(Frame_view const& frame, Plane_views const& planes);

private:
    /// Dense memory of one strip.
    struct Strip {
        std::vector<std::uint16_t> samples;
        Per_plane<std::vector> planes;

        void reserve(std::size_t pixels, Plane_set const& wanted);
        Plane_views views(std::size_t pixels, Plane_set const& wanted);
    };

    void process_in_strips(Frame_view const& frame, Plane_views const& planes);
    void mend_final_pixel(Frame_view const& frame, Plane_views const& planes) const;

    Settings settings_;
    Final_pixel final_pixel_;
    Strip strip_;
};

} // namespace veldrane_mrv::polarization
