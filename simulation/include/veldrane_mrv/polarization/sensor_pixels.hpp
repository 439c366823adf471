/// @file
/// Pixels of a simulated sensor, of which no two are alike.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/scene.hpp"

#include <cstddef>
#include <vector>

namespace veldrane_mrv::polarization {

/// What makes a sample of light at every pixel. Immutable, made once for all frames.
class Sensor_pixels {
public:
    /// Of the maps' region. Bad pixels give their dark level whatever the light: hot ones have a
    /// high one, dead ones that of the others.
    /// @throws Argument_error if the calibration has no maps
    explicit Sensor_pixels(Calibration const& sensor);

    Size size() const { return size_; }
    /// Dark levels are in samples of this depth.
    int bit_depth() const { return bit_depth_; }

    /// Above the dark level, in the unit of the light; `index` is row * width + column.
    double signal(std::size_t index, Stokes const& light) const {
        Pixel const& pixel = pixels_[index];
        return static_cast<double>(pixel.s0) * light.s0 + static_cast<double>(pixel.s1) * light.s1 +
               static_cast<double>(pixel.s2) * light.s2;
    }
    double dark_level(std::size_t index) const {
        return static_cast<double>(pixels_[index].dark_level);
    }

private:
    /// T / 2 * (1, D cos 2 phi, D sin 2 phi), the analyser's row of the instrument matrix.
    struct Pixel {
        float s0;
        float s1;
        float s2;
        float dark_level;
    };

    Size size_;
    int bit_depth_;
    std::vector<Pixel> pixels_;
};

} // namespace veldrane_mrv::polarization
