#include "reference/weighted_pixel.hpp"

#include <cmath>
#include <immintrin.h>

namespace reference {

float rcp(float value) {
    return _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(value)));
}

float stokes_row(
    Quartet const& samples, std::array<float, 16> const& matrix, std::size_t estimate) {
    float const* const weights = matrix.data() + 4 * estimate;
    // Not the order of the samples: the horizontal neighbour's product is the one that is rounded
    // on its own.
    float sum = static_cast<float>(samples[1]) * weights[1];
    sum = std::fma(static_cast<float>(samples[0]), weights[0], sum);
    sum = std::fma(static_cast<float>(samples[2]), weights[2], sum);
    return std::fma(static_cast<float>(samples[3]), weights[3], sum);
}

Stokes stokes_weighted(Quartet const& samples, std::array<float, 16> const& matrix) {
    return {
        0.5f * stokes_row(samples, matrix, 0), stokes_row(samples, matrix, 1),
        stokes_row(samples, matrix, 2)};
}

float rescale_weighted(float stokes, float maximum_output_value, float maximum_input_value) {
    float const product = maximum_output_value * stokes;
    return product / maximum_input_value;
}

float arctangent_polynomial(float x) {
    float q = x * x;
    q = atan_cubic_coefficient * q;
    q = atan_linear_coefficient + q;
    return x * q;
}

float theta_weighted(float s1, float s2) {
    if (s1 == 0.0f) {
        if (s2 == 0.0f) {
            return 0.0f;
        }
        return s2 > 0.0f ? half_pi_constant : -half_pi_constant;
    }
    float const tangent = s2 * rcp(s1);
    if (std::fabs(s2) < std::fabs(s1)) {
        float const angle = arctangent_polynomial(tangent);
        if (s1 > 0.0f) {
            return angle + 0.0f;
        }
        return s2 >= 0.0f ? angle + pi_constant : angle - pi_constant;
    }
    // The cotangent is the reciprocal of the approximate tangent, so it carries both errors.
    float const cotangent = rcp(tangent);
    float const turned = 0.0f - arctangent_polynomial(cotangent);
    return s2 > 0.0f ? turned + half_pi_constant : turned - half_pi_constant;
}

float azimuth_of_angle_weighted(float theta, float maximum_output_value) {
    float degrees = theta * doubled_angle_to_degrees;
    degrees = degrees + azimuth_offset_degrees;
    float const product = degrees * maximum_output_value;
    return product / azimuth_range_degrees;
}

float azimuth_weighted(float s1, float s2, float maximum_output_value) {
    return azimuth_of_angle_weighted(theta_weighted(s1, s2), maximum_output_value);
}

float dolp_weighted(Stokes const& stokes, float maximum_output_value) {
    float const s1_squared = stokes.s1 * stokes.s1;
    float const s2_squared = stokes.s2 * stokes.s2;
    float const length = std::sqrt(s1_squared + s2_squared);
    float const ratio = stokes.s0 == 0.0f ? 0.0f : length * rcp(stokes.s0);
    return ratio * maximum_output_value;
}

std::uint16_t clamp_and_convert_weighted(float value, float maximum_output_value) {
    float const below = value < maximum_output_value ? value : maximum_output_value;
    float const clamped = below > 0.0f ? below : 0.0f;
    std::int32_t const integer = _mm_cvtss_si32(_mm_set_ss(clamped));
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(integer) & 0xFFFFu);
}

} // namespace reference
