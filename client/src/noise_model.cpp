#include "veldrane_mrv/polarization/noise_model.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cmath>
#include <string>

namespace veldrane_mrv::polarization {

void check(Noise_model const& noise) {
    // Written so that a NaN fails.
    if (!(noise.electrons_per_count > 0) || !std::isfinite(noise.electrons_per_count)) {
        throw Argument_error{
            "the count of electrons per sample unit", std::to_string(noise.electrons_per_count),
            "give a finite number above 0"};
    }
    if (!(noise.read_noise >= 0) || !std::isfinite(noise.read_noise)) {
        throw Argument_error{
            "the read noise", std::to_string(noise.read_noise),
            "give a finite number of electrons, at least 0"};
    }
}

} // namespace veldrane_mrv::polarization
