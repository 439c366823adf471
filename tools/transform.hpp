/// @file
/// One frame through the polarisation processor, and the checks that have to come before it.
#ifndef VELDRANE_TOOLS_TRANSFORM_HPP
#define VELDRANE_TOOLS_TRANSFORM_HPP

#include "frame.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace polarize_tool {

enum class Plane { s0, s1, s2, azimuth, dolp, normalized_stokes };

inline constexpr std::array<std::string_view, 6> plane_names = {
    "s0", "s1", "s2", "azimuth", "dolp", "normalized_stokes"};

/// The name of a plane in file names and on the command line.
constexpr std::string_view name_of(Plane plane) {
    return plane_names[static_cast<std::size_t>(plane)];
}

/// The three numbers by which the processor scales its planes.
struct Output_scale {
    float maximum_input;
    float maximum_output;
    /// Equal to 2^bit_depth - 1 for Stokes planes in sample units, 0 for rescaled ones.
    std::int32_t maximum_output_integer;
};

/// Without `full_scale` 65535 stands for twice the sensor's full scale, the largest possible S0.
/// With it: 2^bit_depth - 1 keeps sample units, any other number stands for twice the sensor's full
/// scale. `bit_depth` is 1 to 16, `full_scale` 1 to 65535.
Output_scale output_scale(int bit_depth, std::optional<unsigned> full_scale);

struct Transform_settings {
    int phase = 0;
    int bit_depth = 8;
    std::optional<unsigned> full_scale;
    std::set<Plane> planes;
    unsigned repetitions = 1;
};

/// The planes of one frame; those not asked for are empty. The plane of floats holds NaN where the
/// processor stores nothing.
struct Transform_result {
    std::array<std::vector<std::uint16_t>, 5> integer_planes;
    std::vector<float> normalized_stokes;
    std::vector<double> milliseconds;

    std::vector<std::uint16_t> const& plane(Plane which) const {
        return integer_planes[static_cast<std::size_t>(which)];
    }
};

/// Empty if the processor can run the transform, else the instructions that it lacks.
std::string missing_instructions(bool has_avx2, bool has_fma);
std::string missing_instructions();

/// Empty if the transform accepts frames of this size, else what is wrong.
std::string size_problem(Frame const& frame);

/// Runs the transform. The frame's size and the processor must have been found fit.
Transform_result transform(Frame const& frame, Transform_settings const& settings);

} // namespace polarize_tool

#endif
