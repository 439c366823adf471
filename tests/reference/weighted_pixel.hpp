/// @file
/// Arithmetic of a weighted pixel, computed with a matrix, one function a formula. Every function
/// follows the rounding mode and the FTZ and DAZ bits that are in force when it is called, so none
/// of them is inline: the caller's own compiler flags must not reach the arithmetic.

#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace reference {

/// The polynomial's coefficients are a fit over -1 .. 1 with no closed form.
inline constexpr float atan_linear_coefficient = std::bit_cast<float>(0x3F78EED2u);
inline constexpr float atan_cubic_coefficient = std::bit_cast<float>(0xBE448E01u);
inline constexpr float pi_constant = std::bit_cast<float>(0x40490FDBu);
inline constexpr float half_pi_constant = std::bit_cast<float>(0x3FC90FDBu);

/// One unit below the float nearest to 90 / pi: only this one takes `pi_constant` to exactly 90 and
/// `half_pi_constant` to exactly 45.
inline constexpr float doubled_angle_to_degrees = std::bit_cast<float>(0x41E52EE0u);
inline constexpr float azimuth_offset_degrees = std::bit_cast<float>(0x42B40000u);
inline constexpr float azimuth_range_degrees = std::bit_cast<float>(0x43340000u);

struct Stokes {
    float s0;
    float s1;
    float s2;
};

/// The pixel's own sample, its horizontal, its vertical and its diagonal neighbour.
using Quartet = std::array<std::uint16_t, 4>;

/// The processor's approximate reciprocal, relative error at most 1.5 * 2^-12. Zeros and subnormals
/// give an infinity of their sign, infinities a zero of theirs.
float rcp(float value);

/// Weighted sum of the samples with row `estimate` of `matrix`: twice S0, S1 or S2 for 0, 1 or 2.
float stokes_row(Quartet const& samples, std::array<float, 16> const& matrix, std::size_t estimate);

Stokes stokes_weighted(Quartet const& samples, std::array<float, 16> const& matrix);

/// A Stokes quantity brought to the output's full scale.
float rescale_weighted(float stokes, float maximum_output_value, float maximum_input_value);

/// Approximation of atan(x) for -1 .. 1, error at most 0.00496 radians.
float arctangent_polynomial(float x);

/// Angle of the point (s1, s2), -pi .. pi. Both zero gives 0, a NaN in `s1` gives a NaN.
float theta_weighted(float s1, float s2);

/// Azimuth of the angle `theta` in units of the output before its clamp.
float azimuth_of_angle_weighted(float theta, float maximum_output_value);

/// Azimuth of the point (s1, s2) in units of the output before its clamp.
float azimuth_weighted(float s1, float s2, float maximum_output_value);

/// Degree of polarisation in units of the output before its clamp; 0 where S0 is 0.
float dolp_weighted(Stokes const& stokes, float maximum_output_value);

/// What a 16-bit plane stores: a NaN as the maximum, a negative value as 0, anything above 65535
/// with its low 16 bits.
std::uint16_t clamp_and_convert_weighted(float value, float maximum_output_value);

} // namespace reference
