/// @file
/// From the numbers in the planes to physical units, and back.
///
/// Angle of polarisation
///   0 lies along the rows, in the direction of growing columns. The angle grows counter-clockwise
///   on a picture whose row 0 is at the top: light at 45 degrees swings along the diagonal from
///   bottom left to top right, that is towards growing columns and falling rows. This is the sense
///   of the mosaic's angles on sensors seen from the side of the lens, as data sheets draw them. It
///   has no direction, so it lies in [0, 180) degrees or [0, pi) radians. The azimuth plane is
///   offset: azimuth = (angle + 90 degrees) modulo 180 degrees, and 180 degrees are the full scale.
/// Degree of polarisation
///   A fraction, 0 to 1; the plane has the full scale for 1.
/// Stokes quantities
///   In units of samples; S0 is half the sum of a cell's four samples.
///
/// Where there is no light or no polarisation
///   A degree of 0 / 0 stands as 0 in its plane, and the angle of S1 = S2 = 0 as that of 0 degrees:
///   neither plane can be told from one of a dark, or an unpolarised, or a 0 degree scene by
///   itself. The functions on planes therefore take a companion plane, which may be empty: a degree
///   is shown as NaN where S0 is stored as 0, an angle as NaN where the degree is stored as 0.
///   Without the companion the stored number is converted as it is.
#pragma once

#include "veldrane_mrv/polarization/scale.hpp"

#include <cstdint>
#include <span>

namespace veldrane_mrv::polarization {

enum class Angle_unit { degrees, radians };

/// The angle modulo half a turn: in [0, 180) or [0, pi), never -0; NaN of an infinity or a NaN.
double within_half_turn(double angle, Angle_unit unit = Angle_unit::degrees);

/// Angle of an element of the azimuth plane, in [0, 180) or [0, pi). Both ends of the plane's
/// range, 0 and the full scale, are 90 degrees.
/// @throws Argument_error if `azimuth` is above the full scale
double angle_of_azimuth(
    std::uint16_t azimuth, Scale const& scale, Angle_unit unit = Angle_unit::degrees);

/// The element that is nearest to an angle, which may be any finite number: it is taken modulo half
/// a turn. 90 degrees give the full scale, as in the processor.
/// @throws Argument_error for an infinity or a NaN
std::uint16_t azimuth_of_angle(
    double angle, Scale const& scale, Angle_unit unit = Angle_unit::degrees);

/// Degree of polarisation of an element of the plane of degrees.
/// @throws Argument_error if `dolp` is above the full scale
double degree_of_dolp(std::uint16_t dolp, Scale const& scale);

/// @throws Argument_error unless `degree` is 0 to 1
std::uint16_t dolp_of_degree(double degree, Scale const& scale);

/// An element of a Stokes plane, signed or not, in sample units.
double stokes_in_samples(std::int32_t element, Scale const& scale);

/// The nearest element of a signed Stokes plane, between minus and plus the full scale.
/// @throws Argument_error for an infinity or a NaN
std::int32_t stokes_element(double samples, Scale const& scale);

/// Whole planes. All spans have the same size, but a companion may be empty.
/// @throws Argument_error if sizes differ or an element is above the full scale
void angles(
    std::span<std::uint16_t const> azimuth, std::span<std::uint16_t const> dolp, Scale const& scale,
    Angle_unit unit, std::span<float> result);
void degrees_of_polarization(
    std::span<std::uint16_t const> dolp, std::span<std::uint16_t const> s0, Scale const& scale,
    std::span<float> result);
void stokes_in_samples(
    std::span<std::uint16_t const> stokes, Scale const& scale, std::span<float> result);
void stokes_in_samples(
    std::span<std::int32_t const> stokes, Scale const& scale, std::span<float> result);

} // namespace veldrane_mrv::polarization
