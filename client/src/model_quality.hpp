/// @file
/// What the models make of a frame that they were not fitted to.
#pragma once

#include "bad_pixels.hpp"
#include "pixel_fit.hpp"

#include "veldrane_mrv/polarization/calibration.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// A frame of the series.
struct Held_out_frame {
    std::vector<std::uint16_t> samples;
    std::size_t width = 0;
    double polariser_angle = 0;
    /// Its row of the fit.
    Eigen::Vector3d design;
};

/// All without the frame; positions are those of the frame.
struct Fitted_models {
    Calibration const& positions;
    Pixel_fits const& pixels;
    std::span<float const> dark_levels;
    std::span<std::uint8_t const> bad_pixels;
};

/// In the order of `all_calibration_models`.
std::vector<Model_quality> judge_models(
    Fitted_models const& models, Held_out_frame const& frame, double source_degree);

} // namespace veldrane_mrv::polarization
