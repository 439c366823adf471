/// @file
/// Results of single calls of the library, or of what stands in for it, for tests that know the
/// right values.

#pragma once

#include "support/guarded_frame.hpp"
#include "support/scene.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace support {

/// A plane by row and column.
template <typename Element>
struct Grid {
    std::size_t width;
    std::vector<Element> elements;

    Element const& operator()(std::size_t row, std::size_t column) const {
        return elements[row * width + column];
    }

    std::span<std::byte const> bits() const { return std::as_bytes(std::span{elements}); }

    /// To the bit: floats of one value may differ in the sign of a zero, and no NaN has one.
    bool operator==(Grid const& other) const {
        return width == other.width && std::ranges::equal(bits(), other.bits());
    }
};

using Counts = Grid<std::uint16_t>;

/// S1 / S0 and S2 / S0.
using Ratios = std::array<float, 2>;

/// The planes that a scene asked for; the others are empty.
struct Planes {
    Grid<Ratios> normalized_stokes;
    Counts s0;
    Counts s1;
    Counts s2;
    Counts azimuth;
    Counts dolp;
};

/// Runs the transform on guarded memory at both edges, on opposite fills. Reports a test failure if
/// a call returns anything but 0, leaves an element of a 16-bit plane unwritten or touches a plane
/// unasked, or if the edges differ. What no store reached in the float plane is `untouched_ratio`.
Planes compute(
    Scene const& scene, Transform transform = &qn_polarization_processor_transform_vector_avx2);

/// Whether the planes of a set are those of a result with more of them, or the same, and all others
/// are absent.
bool is_part_of(Planes const& part, Planes const& whole, Plane_set part_set);

/// What an untouched pair of the float plane holds at a float index.
float untouched_ratio(std::size_t float_index);

} // namespace support
