/// @file
/// Arithmetic of a fixed pixel, one of a vector block, for one pixel at a time. It rounds in other
/// places than the arithmetic of weighted pixels, and both stand side by side in a frame.

#pragma once

#include "reference/weighted_pixel.hpp"
#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

namespace reference {

/// S0, S1 and S2 from the samples of columns `column` and `column` + 1 in rows `row` and `row` + 1.
/// All three are exact: sums of four samples stay below 2^24.
///
/// In phase 0 alone, S0 of an odd row in the first eight columns of a block takes the even-column
/// sample of its even row from `row` - 1 and not from `row` + 1.
Stokes stokes_fixed(
    Polarization_computation_arguments const& arguments, std::size_t row, std::size_t column);

/// A Stokes quantity brought to the output's full scale, through the approximate reciprocal.
float rescale_fixed(float stokes, float maximum_output_value, float maximum_input_value);

/// atan(`tangent`) + `base` for -1 .. 1, with one rounding at the end.
float angle_from_tangent(float tangent, float base);

/// `side` - atan(`cotangent`) for -1 .. 1, the arctangent rounded before it is taken off.
float angle_from_cotangent(float cotangent, float side);

/// Azimuth of the angle `theta` in units of the output, clamped to 0 .. `maximum_output_value`.
float azimuth_of_angle_fixed(float theta, float maximum_output_value);

/// Azimuth of the point (s1, s2) in units of the output, clamped to 0 .. `maximum_output_value`.
float azimuth_fixed(float s1, float s2, float maximum_output_value);

/// Degree of polarisation in units of the output before its clamp; 0 where S0 is 0.
float dolp_fixed(Stokes const& stokes, float maximum_output_value);

/// What a 16-bit plane stores: negative values saturate to 0, values above 65535 to 65535. An
/// integer beyond 32 bits counts as negative.
std::uint16_t clamp_and_convert_fixed(float value, float maximum_output_value);

} // namespace reference
