/// @file
/// How samples scatter.
#pragma once

namespace veldrane_mrv::polarization {

/// The variance of a sample I, in counts squared, is
///
///   (I - dark level) / electrons_per_count + (read_noise / electrons_per_count)^2 + 1 / 12
///
/// shot noise, read noise and rounding to whole counts: the photon transfer curve (Janesick, Photon
/// Transfer, SPIE Press 2007; EMVA Standard 1288).
struct Noise_model {
    /// Conversion gain, above 0.
    double electrons_per_count = 1;
    /// Standard deviation in electrons, at least 0.
    double read_noise = 0;

    bool operator==(Noise_model const&) const = default;
};

/// @throws Argument_error unless electrons per count are above 0, read noise at least 0, and both
///         finite
void check(Noise_model const& noise);

} // namespace veldrane_mrv::polarization
