/// @file
/// Everything that decides the result of one call.

#pragma once

#include "support/matrices.hpp"
#include "support/plane_set.hpp"
#include "support/samples.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace support {

/// The four numbers of the arguments that speak of full scales.
struct Scale {
    std::int32_t bit_depth;
    float maximum_input_value;
    float maximum_output_value;
    std::int32_t maximum_output_value_integer;
};

/// Stokes planes in sample units, every 16-bit plane up to 65535.
inline constexpr Scale sample_units{16, 65535, 65535, 65535};

/// 12-bit samples that fill 16-bit planes: the rescaling variants.
inline constexpr Scale rescaled_12_bit{12, 4095, 65535, 65535};

struct Scene {
    std::size_t height;
    std::size_t width;
    Samples samples;
    Matrix_set matrices;
    std::int32_t polar_phase{0};
    Scale scale{sample_units};
    Plane_set wanted{all_planes};

    /// What to print to find the scene again when it was generated.
    char const* sample_name{"given"};
    char const* matrix_name{"given"};
    std::uint64_t seed{0};

    /// Whether a NaN of the float plane may be another NaN than expected. Which NaN leaves an
    /// operation on two of them depends on the order of its operands, which is the compiler's.
    bool any_nan_is_equal{false};

    std::size_t pixels() const { return height * width; }
};

/// A scene of generated samples and matrices; the other fields keep their defaults.
Scene make_scene(
    std::size_t height, std::size_t width, Sample_kind samples, Matrix_kind matrices,
    std::int32_t polar_phase, std::uint64_t seed);

/// A call on a scene: `samples` are the scene's or a copy, `planes` where the planes would lie.
/// Those that the scene does not want are null.
Polarization_computation_arguments arguments_of(
    Scene const& scene, std::uint16_t const* samples,
    std::array<void*, every_plane.size()> const& planes);

/// The library's transform, or one that stands in for it.
using Transform = int (*)(Polarization_computation_arguments const&, Calibration_matrices const&);

/// One line that tells a scene from every other.
std::string describe(Scene const& scene);

} // namespace support
