/// @file
/// How samples scatter, measured from pairs of frames of the same light.
///
/// The difference of two frames of the same light holds noise alone: fixed patterns, dark levels
/// and uneven light cancel, and its variance is twice that of a sample. Over pairs of several
/// levels the variance follows the line
///
///   variance = level / K + (read noise / K)^2 + 1 / 12
///
/// of photon transfer with K electrons per count; the 1 / 12 is rounding to whole samples. Sources:
/// J. R. Janesick, Photon Transfer, SPIE Press (2007); EMVA Standard 1288. The line is straight, so
/// only means of both over the pixels matter, and the light may differ from pixel to pixel.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/noise_model.hpp"
#include "veldrane_mrv/polarization/views.hpp"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {

/// Two frames taken one after the other in the same steady light, or without any.
struct Flat_pair {
    Frame_view first;
    Frame_view second;
    /// Name for messages.
    std::string source{};
};

struct Photon_transfer_options {
    /// Significant bits of the samples; decides which are clipped.
    int bit_depth = 16;
    /// Mean samples without light, indexed by `cell_position`.
    std::array<double, 4> dark_levels{};
    /// All of the frames if not given.
    std::optional<Region> region{};
};

/// What of a pair enters the fit.
struct Photon_transfer_point {
    /// Mean of both frames less the dark level, in samples.
    double level = 0;
    /// Half the variance of the difference, in samples squared.
    double variance = 0;
    /// Of the variance, which n differences of normal noise tell to variance * sqrt(2 / (n - 1)).
    double standard_error = 0;
    /// Share of the samples at 0 or at the full scale; they are in none of the figures above.
    double clipped_share = 0;
    std::string source{};
};

struct Photon_transfer {
    Noise_model noise;
    /// Those that were fitted, in ascending order of their levels.
    std::vector<Photon_transfer_point> points;
    /// With more than one sample in a thousand clipped: left out, since their variance is too
    /// small.
    std::vector<Photon_transfer_point> clipped;
    /// Largest distance of a variance from the line, as a fraction of the line's.
    double largest_deviation = 0;
};

/// @throws Argument_error if the frames differ in size, the region leaves them or holds fewer than
///        100 pixels that are not clipped in either frame, their means differ by more than 2 % of
///        the level and a count, or a dark level or the bit depth is not usable
Photon_transfer_point measure_pair(Flat_pair const& pair, Photon_transfer_options const& options);

/// The line by least squares, weighted by the standard errors. Where it would leave a variance
/// below 0 without light, read noise is 0 and the line goes through the rounding alone.
/// @throws Argument_error if fewer than three levels are left, which differ by at least 2 % of the
///        largest, or the lowest is above half the largest; if the variance does not grow with the
///        level; if the pair that is farthest from the line is so by more than 10 % and five
///        standard errors
Photon_transfer fit_photon_transfer(std::span<Photon_transfer_point const> points);

} // namespace veldrane_mrv::polarization
