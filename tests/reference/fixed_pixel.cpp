#include "reference/fixed_pixel.hpp"

#include <algorithm>
#include <cmath>
#include <immintrin.h>

namespace reference {
namespace {

constexpr std::size_t block_columns = 16;
constexpr std::size_t half_block_columns = 8;

/// Samples of the neighbourhood by the parity of their row, then of their column, on the sensor.
struct Mosaic_cell {
    float ee;
    float eo;
    float oe;
    float oo;
};

bool takes_s0_from_above(std::int32_t polar_phase, std::size_t row, std::size_t column) {
    bool const phase_zero = polar_phase != 1 && polar_phase != 2 && polar_phase != 3;
    return phase_zero && row % 2 == 1 && column % block_columns < half_block_columns;
}

/// S1 and S2 are the differences along the two diagonals of the mosaic cell.
Stokes with_differences(float s0, Mosaic_cell const& cell, std::int32_t polar_phase) {
    switch (polar_phase) {
    case 1:
        return {s0, cell.oe - cell.eo, cell.ee - cell.oo};
    case 2:
        return {s0, cell.oo - cell.ee, cell.eo - cell.oe};
    case 3:
        return {s0, cell.eo - cell.oe, cell.oo - cell.ee};
    default:
        return {s0, cell.ee - cell.oo, cell.oe - cell.eo};
    }
}

float smaller(float value, float limit) {
    return value < limit ? value : limit;
}

float polynomial_factor(float x) {
    return std::fma(x * x, atan_cubic_coefficient, atan_linear_coefficient);
}

float theta_fixed(float s1, float s2) {
    float const side = s2 > 0.0f ? half_pi_constant : -half_pi_constant;
    if (s1 == 0.0f) {
        return s2 == 0.0f ? 0.0f : side;
    }
    float const tangent = s2 * rcp(s1);
    if (std::fabs(s1) > std::fabs(s2)) {
        float base = 0.0f;
        if (!(s1 > 0.0f)) {
            base = s2 >= 0.0f ? pi_constant : -pi_constant;
        }
        return angle_from_tangent(tangent, base);
    }
    return angle_from_cotangent(rcp(tangent), side);
}

} // namespace

Stokes stokes_fixed(
    Polarization_computation_arguments const& arguments, std::size_t row, std::size_t column) {
    auto const sample = [&](std::size_t sample_row, std::size_t sample_column) {
        return static_cast<float>(
            arguments.raw_image[sample_row * arguments.width + sample_column]);
    };
    std::size_t const even_row = row + row % 2;
    std::size_t const odd_row = row + 1 - row % 2;
    std::size_t const even_column = column + column % 2;
    std::size_t const odd_column = column + 1 - column % 2;
    Mosaic_cell const cell{
        sample(even_row, even_column), sample(even_row, odd_column), sample(odd_row, even_column),
        sample(odd_row, odd_column)};
    float const ee_of_s0 = takes_s0_from_above(arguments.polar_phase, row, column)
                               ? sample(row - 1, even_column)
                               : cell.ee;
    float const s0 = ((cell.oe + cell.eo) + (ee_of_s0 + cell.oo)) * 0.5f;
    return with_differences(s0, cell, arguments.polar_phase);
}

float rescale_fixed(float stokes, float maximum_output_value, float maximum_input_value) {
    float const product = maximum_output_value * stokes;
    return product * rcp(maximum_input_value);
}

float angle_from_tangent(float tangent, float base) {
    return std::fma(tangent, polynomial_factor(tangent), base);
}

float angle_from_cotangent(float cotangent, float side) {
    // The sign belongs to the factor: in a directed mode the rounded product negated is another
    // number.
    return std::fma(-cotangent, polynomial_factor(cotangent), 0.0f) + side;
}

float azimuth_of_angle_fixed(float theta, float maximum_output_value) {
    float const azimuth_scale = maximum_output_value / azimuth_range_degrees;
    float const degrees = std::fma(theta, doubled_angle_to_degrees, azimuth_offset_degrees);
    float const value = smaller(degrees * azimuth_scale, maximum_output_value);
    return value > 0.0f ? value : 0.0f;
}

float azimuth_fixed(float s1, float s2, float maximum_output_value) {
    return azimuth_of_angle_fixed(theta_fixed(s1, s2), maximum_output_value);
}

float dolp_fixed(Stokes const& stokes, float maximum_output_value) {
    float const s1_squared = stokes.s1 * stokes.s1;
    float const length = std::sqrt(std::fma(stokes.s2, stokes.s2, s1_squared));
    float const ratio = stokes.s0 == 0.0f ? 0.0f : rcp(stokes.s0) * length;
    return maximum_output_value * ratio;
}

std::uint16_t clamp_and_convert_fixed(float value, float maximum_output_value) {
    std::int32_t const integer = _mm_cvtss_si32(_mm_set_ss(smaller(value, maximum_output_value)));
    return static_cast<std::uint16_t>(std::clamp(integer, 0, 65535));
}

} // namespace reference
