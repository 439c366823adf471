#pragma once

#include <bit>
#include <cstdint>

/// Constants of the angle's arithmetic, shared by weighted and fixed pixels. The bit patterns are
/// binding: results are defined by them.
namespace constants {

/// P(x) = x * (linear + cubic * x^2), within 0.00496 radians of atan(x) for |x| <= 1.
inline constexpr float atan_linear_coefficient = std::bit_cast<float>(std::uint32_t{0x3F78EED2});
inline constexpr float atan_cubic_coefficient = std::bit_cast<float>(std::uint32_t{0xBE448E01});

inline constexpr float pi_constant = std::bit_cast<float>(std::uint32_t{0x40490FDB});
inline constexpr float half_pi_constant = std::bit_cast<float>(std::uint32_t{0x3FC90FDB});

/// 90 / pi, one unit in the last place below the nearest float: with this pattern the product with
/// `pi_constant` is exactly 90 and with `half_pi_constant` exactly 45, so that the limits of the
/// quadrants fall on whole degrees.
inline constexpr float doubled_angle_to_degrees = std::bit_cast<float>(std::uint32_t{0x41E52EE0});

inline constexpr float azimuth_offset_degrees = 90.0F;
inline constexpr float azimuth_range_degrees = 180.0F;

/// S0 is half the sum of a quartet.
inline constexpr float s0_factor = 0.5F;

} // namespace constants
