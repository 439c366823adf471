/// @file
/// How far S0, degree and angle of a pixel scatter: the plane `uncertainty`.
///
/// Of each of the four samples of a neighbourhood the noise model gives the variance; a sample that
/// is corrected by a gain has gain^2 times it. With W the weights of the pixel,
///
///   cov(S0, S1, S2) = W diag(variances) W^T
///
/// and linear propagation gives the covariance of (S1 / S0, S2 / S0), and from it the deviations
/// s_r of the degree P along and s_t across the direction that these two point to. Along P the
/// degree scatters, across it twice the angle does.
///
/// Linear propagation fails where P is not well above s_t. There the degree follows Rice's
/// distribution (Simmons and Stewart, Astron. Astrophys. 142, 100 (1985)),
///
///   var(x) = 2 + v^2 - pi / 2 L_{1/2}(-v^2 / 2)^2
///
/// in units of s_t with v the true ratio of degree to s_t, and the angle the distribution of
/// Naghizadeh-Khouei and Clarke (Astron. Astrophys. 274, 968 (1993)), which without polarisation is
/// uniform over half a turn: 180 / sqrt(12) = 51.96 degrees. The v that is put into them is the one
/// whose median is the measured ratio (Simmons and Stewart's median estimator; 0 up to
/// sqrt(2 ln 2) = 1.18). Both deviations are monotonic in v, so half of the frames of one scene
/// state more than the scatter and half less.
#pragma once

#include "veldrane_mrv/polarization/band.hpp"
#include "veldrane_mrv/polarization/settings.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// The noise model of the settings.
/// @throws Argument_error if there is none, or it is refused by `check`
Noise_model const& noise_of(Settings const& settings);

/// Factor by which the deviation of the degree is below that of linear propagation, for a measured
/// ratio of the degree to its deviation; within 0.2 per cent.
float degree_deviation_factor(float ratio);

/// Deviation of the angle in degrees for a measured ratio of the degree to the deviation across it;
/// within 0.3 per cent.
float angle_deviation(float ratio);

/// Keeps its workspace from frame to frame: 16 bytes a column. For one thread at a time.
class Uncertainty_estimator {
public:
    /// Fast mode has the weights of an ideal sensor, calibrated mode those of the settings.
    /// @throws Argument_error if the settings have no noise model, or one that is none
    Uncertainty_estimator(Settings const& settings, Mode mode);

    /// Fills `uncertainty` with three numbers a pixel: standard deviations of S0 in sample units,
    /// of the degree, and of the angle in degrees. Where S0 is not above 0 that of the degree is
    /// NaN. `frame` has passed `check_call`.
    void operator()(Frame_view const& frame, std::span<float> uncertainty) {
        (*this)(whole(frame), uncertainty);
    }
    /// Of a band; `uncertainty` begins with its first row.
    void operator()(Band const& band, std::span<float> uncertainty);

    /// Adds `bit` to the pixels of a band whose degree is below `weakest_ratio` times its deviation
    /// by linear propagation, or not to be had.
    void mark_weak(Band const& band, std::uint8_t bit, std::span<std::uint8_t> marks);

    /// Of unpolarised light 1.1 per cent of the pixels are above it: exp(-ratio^2 / 2).
    static constexpr float weakest_ratio = 3;

private:
    struct Eight_pixels;
    /// Samples less their dark levels times their gains, and the variances of these; behind the
    /// last column is the one that neighbours it, and room for whole vectors.
    struct Row {
        std::vector<float> signals;
        std::vector<float> variances;
    };

    void read_row(Band const& band, std::size_t row, Row& result) const;
    void read_corrected(
        std::uint16_t const* samples, std::size_t row, std::size_t width, float* signals,
        float* variances) const;
    template <class Consume>
    void for_each_eight(Band const& band, Consume const& consume);

    Settings settings_;
    bool has_tables_;
    float variance_per_count_;
    float dark_variance_;
    std::array<Row, 2> rows_;
};

} // namespace veldrane_mrv::polarization
