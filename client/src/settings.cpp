#include "veldrane_mrv/polarization/settings.hpp"

namespace veldrane_mrv::polarization {

Settings ideal_settings(Mosaic const& mosaic, Scale const& scale) {
    return {mosaic, scale, ideal_matrices(mosaic)};
}

} // namespace veldrane_mrv::polarization
