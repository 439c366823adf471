/// @file
/// The planes that come out if every pixel goes through a matrix, computed pixel by pixel with the
/// reference arithmetic and without any notion of blocks or strips.
#pragma once

#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include "reference/weighted_pixel.hpp"

#include <cstddef>
#include <cstdint>

namespace client_test {

namespace polarization = veldrane_mrv::polarization;

/// A sample after the correction, in units of 2^-f; by division where the transform shifts.
std::uint16_t corrected(
    polarization::Sensor_tables const& tables, std::size_t row, std::size_t column,
    std::uint16_t sample);

/// S0, S1 and S2 of a pixel: neighbours to the right and below, in the last column to the left, in
/// the last row above.
reference::Stokes stokes_at(
    polarization::Frame_view const& frame, polarization::Settings const& settings,
    polarization::Final_pixel final_pixel, std::size_t row, std::size_t column);

/// A Stokes quantity as its 16-bit plane stores it.
std::uint16_t stored_stokes(float stokes, polarization::Scale const& scale);

/// All six planes.
polarization::Planes expected_planes(
    polarization::Frame_view const& frame, polarization::Settings const& settings,
    polarization::Final_pixel final_pixel);

} // namespace client_test
