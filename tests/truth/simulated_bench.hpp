/// @file
/// A bench with a simulated sensor of which no two pixels are alike, its calibrations, and how far
/// what they make of frames is from the light.
#pragma once

#include "veldrane_mrv/polarization/imperfect_pixels.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace truth {

namespace polarization = veldrane_mrv::polarization;

/// Uniform light.
struct Known_light {
    double degree;
    double angle; // degrees
};

/// Root mean squares over pixels and lights.
struct Errors {
    double degree = 0;
    double angle = 0; // degrees
    std::size_t pixels = 0;
};

class Bench {
public:
    Bench();

    polarization::Calibration const& true_sensor() const { return sensor_; }
    polarization::Simulation_settings const& settings() const { return settings_; }

    /// By a series with noise, of the rows from `region.row` on alone if one is given.
    polarization::Measured_calibration calibrated(
        polarization::Calibration_model model,
        std::optional<polarization::Region> region = std::nullopt) const;

    /// Of calibrated mode, for pixels whose neighbourhood has no bad pixel; without noise what
    /// is left is systematic.
    Errors errors(polarization::Calibration const& calibration, bool noise) const;

private:
    std::vector<float> dark_levels(polarization::Region const& region) const;
    polarization::Frame recorded(Known_light const& light, bool noise) const;
    bool is_good(std::size_t row, std::size_t column) const;

    polarization::Simulation_settings settings_;
    polarization::Calibration sensor_;
    std::vector<bool> bad_;
};

/// The degree and the angle in degrees at every pixel of a frame.
struct Measured_light {
    std::vector<double> degrees;
    std::vector<double> angles;
};

/// Calibrated mode, with the positions' mean dark levels taken off first for the model `position`.
/// @param region of the sensor that the frame shows
Measured_light measured_light(
    polarization::Frame frame, polarization::Calibration const& calibration,
    polarization::Region const& region);

/// Rows of a frame as wide as the region.
polarization::Frame rows_of(polarization::Frame const& frame, polarization::Region const& region);

} // namespace truth
