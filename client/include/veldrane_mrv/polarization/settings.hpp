/// @file
/// What frames of one recording have in common, and the modes of the transform.
#pragma once

#include "veldrane_mrv/polarization/matrices.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv/polarization/noise_model.hpp"
#include "veldrane_mrv/polarization/scale.hpp"

#include <memory>
#include <optional>

namespace veldrane_mrv::polarization {

class Sensor_tables;

/// All that frames of one recording have in common.
struct Settings {
    Mosaic mosaic;
    Scale scale;
    Matrices matrices;
    /// What differs from pixel to pixel, for calibrated mode; null if nothing does. Frames then
    /// have the size and the bit depth of the tables, and `matrices` are theirs.
    std::shared_ptr<Sensor_tables const> tables{};
    /// What `uncertainty` and the weak light of `validity` are judged by.
    std::optional<Noise_model> noise{};
};

/// With the weights of an ideal sensor.
Settings ideal_settings(Mosaic const& mosaic, Scale const& scale);

/// The matrix of the last pixel of the last row. Where height and width differ in parity, the
/// processor gives this one pixel the matrix of even rows and even columns, which is not that of
/// its position. With tables every pixel has the matrix of its place.
enum class Final_pixel {
    /// The matrix of the pixel's position, as for every other pixel.
    by_position,
    /// The pixel as the processor writes it.
    as_processed,
};

enum class Mode { fast, calibrated };

} // namespace veldrane_mrv::polarization
