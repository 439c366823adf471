/// @file
/// Calibrated mode: every pixel through a matrix, every plane at pixel positions.
#pragma once

#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <cstdint>
#include <vector>

namespace veldrane_mrv::polarization {

/// Calibrated mode: every pixel is, bit for bit, what the processor's arithmetic of a weighted
/// pixel gives with the matrix of its position or, if the settings have tables, for the corrected
/// samples and with the pixel's own matrix. A pixel depends on nothing but its quartet and its
/// matrix. Keeps its workspace from frame to frame: none without tables, two rows of samples with
/// them.
class Calibrated_transform {
public:
    explicit Calibrated_transform(
        Settings const& settings, Final_pixel final_pixel = Final_pixel::by_position);

    Settings const& settings() const { return settings_; }
    Final_pixel final_pixel() const { return final_pixel_; }

    /// Nothing happens if no plane is wanted.
    /// @throws Argument_error if a check fails, as `check_signed_call` does; nothing has been
    /// written
    ///         then
    void operator()(
        Frame_view const& frame, Plane_views const& planes, Signed_views const& signed_planes = {});

private:
    Settings settings_;
    Final_pixel final_pixel_;
    std::vector<std::uint16_t> workspace_;
};

} // namespace veldrane_mrv::polarization
