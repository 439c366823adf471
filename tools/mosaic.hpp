/// @file
/// The 2x2 mosaic of polarisers in its four orientations, and the weights that fit them.
#ifndef VELDRANE_TOOLS_MOSAIC_HPP
#define VELDRANE_TOOLS_MOSAIC_HPP

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>

namespace polarize_tool {

inline constexpr int phase_count = 4;

/// Angle in degrees (0, 45, 90 or 135) of the polariser over a pixel; `phase` is 0 to 3.
int polariser_angle(int phase, std::size_t row, std::size_t column);

/// The four weight matrices of an ideal sensor: the plain sums and differences that the vector
/// blocks use for the same phase, so that both parts of a plane fit without a seam.
class Mosaic_weights {
public:
    explicit Mosaic_weights(int phase);

    /// References into this object, which must outlive them.
    Calibration_matrices matrices() const;

private:
    std::array<std::array<float, 16>, 4> by_position_;
};

} // namespace polarize_tool

#endif
