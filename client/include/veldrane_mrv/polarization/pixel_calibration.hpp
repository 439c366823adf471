/// @file
/// Dark level, gain and analyser of every pixel, from the series that measures the four positions.
///
/// For each pixel the sample less the dark level is, as for the means of a position
/// (calibration_estimate.hpp),
///
///   I(theta) = x0 + x1 cos(2 theta) + x2 sin(2 theta)
///
/// and least squares over all frames gives T * L = 2 x0, D = |(x1, x2)| / x0 and phi = atan2(x2,
/// x1) / 2, after Powell and Gruev, "Calibration methods for division-of-focal-plane polarimeters",
/// Optics Express 21, 21039 (2013). L is that of the four positions, so throughputs of pixels are
/// relative to the same mean of 1. Of the frames only the normal equations are kept.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/calibration_measure.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

struct Pixel_calibration_options {
    /// As for the four positions, which are measured too. Its `region` is a part of the frames; its
    /// dark levels, if not given, are the means of the map over that part.
    Estimation_options estimation;
    /// Of the frames that the calibration is for.
    Size sensor{};
    /// The part of it that the frames of the series show.
    Region region{};
    /// Sample without light of every pixel of `region`, row by row, not rounded; empty if unknown.
    std::vector<float> dark_levels{};
    /// Known ones, row * region.width + column in any order.
    std::vector<std::uint32_t> bad_pixels{};
};

/// How many pixels tell nothing, each counted under the first reason that applies.
struct Bad_pixel_counts {
    /// In the caller's list.
    std::size_t known = 0;
    /// Dark level above median + 8 * 1.4826 * (median absolute deviation) of all pixels.
    std::size_t hot = 0;
    /// At the full scale in a frame of the series.
    std::size_t saturated = 0;
    /// Throughput at most 0.5 or above 1.5 of its position's: dead, or beyond what can be
    /// corrected.
    std::size_t weak_or_strong = 0;
    /// Diattenuation below 0.2 or above 1.2 of its position's, or an orientation farther from it
    /// than `farthest_orientation`.
    std::size_t other_analyser = 0;
    /// Residual far above the others', by the rule for dark levels.
    std::size_t noisy = 0;

    bool operator==(Bad_pixel_counts const&) const = default;
};

struct Measured_calibration {
    Calibration calibration;
    /// Of every pixel, bad or not: root mean square of measured minus fitted samples, as a fraction
    /// of the mean signal; divided by the degrees of freedom, 0 if there are none.
    std::vector<float> residuals;
    Bad_pixel_counts bad_pixels;
};

/// Which frame of a series to hold out: the one in the middle of the sorted angles, or the next to
/// it whose leaving out leaves angles enough. None if there is no such frame.
std::optional<std::size_t> frame_to_hold_out(std::span<double const> polariser_angles);

/// Takes the frames of a series one by one. Memory: 37 bytes a pixel, the frame held out, and 4 kB
/// of each frame; `finish` takes about as much again.
class Pixel_calibration {
public:
    /// @param mosaic of the whole sensor, as is that of the calibration
    /// @throws Argument_error if the region leaves the sensor or holds less than one cell, if there
    ///         is not one dark level for each pixel or one is not a sample, or if a bad pixel is
    ///         none of the region
    Pixel_calibration(Mosaic const& mosaic, Pixel_calibration_options options);
    ~Pixel_calibration();
    Pixel_calibration(Pixel_calibration&&) noexcept;
    Pixel_calibration& operator=(Pixel_calibration&&) noexcept;

    /// What of the frame enters the fit of the four positions.
    /// @throws Argument_error as `measure` does; if the frame does not have the region's size, or a
    ///         sample above the full scale. The series is then as it was.
    Series_point const& add(Uniform_frame const& frame);

    /// Adds a frame that the models are first judged by, one of a series at most. It is copied.
    /// @throws Argument_error as above, or if there is such a frame
    Series_point const& hold_out(Uniform_frame const& frame);

    /// All frames so far, in their order.
    std::span<Series_point const> series() const;

    /// The calibration from all frames, the one held out included, after its models were judged by
    /// it. To be called once, at the end.
    /// @throws Argument_error as `estimate_calibration` does; if the frames without the one held
    /// out
    ///         do not tell the analysers; for a model with maps if, of seven frames or more, one is
    ///         2.5 times as far from the fits of pixels as is usual and by more than 1 % of the
    ///         mean signal: the camera was moved, the light changed, or its angle is wrong
    Measured_calibration finish(Calibration_model model);

private:
    class State;
    std::unique_ptr<State> state_;
};

} // namespace veldrane_mrv::polarization
