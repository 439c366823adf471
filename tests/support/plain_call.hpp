/// @file
/// One call of the transform on heap memory of exactly the right size. What a checker of memory
/// knows of the heap is all that guards it: the bytes around each buffer, and that an output plane
/// has no contents before the call.

#pragma once

#include "support/comparison.hpp"
#include "support/scene.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace support {

/// Four matrices whose last row is left as the heap gave it.
class Plain_matrices {
public:
    explicit Plain_matrices(Matrix_set const& matrices);

    Calibration_matrices references() const {
        return {*matrices_[0], *matrices_[1], *matrices_[2], *matrices_[3]};
    }

private:
    std::array<std::unique_ptr<Matrix>, 4> matrices_;
};

/// The planes that a scene wants. The 16-bit ones begin without contents, the float plane with
/// zeros, which show where no store reaches.
class Plain_planes {
public:
    explicit Plain_planes(Scene const& scene);

    /// `samples` are the scene's, or a copy that several calls share.
    Polarization_computation_arguments arguments(
        Scene const& scene, std::uint16_t const* samples) const;

    /// The first element that differs from the other planes of the same scene, these being
    /// expected.
    std::optional<Difference> difference_from(Plain_planes const& actual, Scene const& scene) const;

private:
    std::span<std::byte const> bytes(Plane plane, std::size_t pixels) const;

    std::unique_ptr<float[]> normalized_stokes_;
    std::array<std::unique_ptr<std::uint16_t[]>, 5> integer_planes_;
};

/// Calls the library, or what stands in for it, and the reference and compares their planes.
/// @return false after a line on standard error if anything differs
bool equals_the_reference(
    Scene const& scene, Transform transform = &qn_polarization_processor_transform_vector_avx2);

} // namespace support
