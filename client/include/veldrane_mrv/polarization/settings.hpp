/// @file
/// What frames of one recording have in common, and the modes of the transform.
#pragma once

#include "veldrane_mrv/polarization/matrices.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/scale.hpp"

namespace veldrane_mrv::polarization {

/// All that frames of one recording have in common.
struct Settings {
    Mosaic mosaic;
    Scale scale;
    Matrices matrices;
};

/// With the weights of an ideal sensor.
Settings ideal_settings(Mosaic const& mosaic, Scale const& scale);

/// The matrix of the last pixel of the last row. Where height and width differ in parity, the
/// processor gives this one pixel the matrix of even rows and even columns, which is not that of
/// its position.
enum class Final_pixel {
    /// The matrix of the pixel's position, as for every other pixel.
    by_position,
    /// The pixel as the processor writes it.
    as_processed,
};

enum class Mode { fast, calibrated };

} // namespace veldrane_mrv::polarization
