/// @file
/// The whole transform once more, written pixel by pixel from the formulas, for comparison with the
/// library bit by bit. Needs a processor with FMA, and the same processor as the library: the
/// approximate reciprocal differs between models.

#pragma once

#include "reference/fixed_pixel.hpp"
#include "reference/frame_rule.hpp"
#include "reference/weighted_pixel.hpp"
#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

namespace reference {

/// Whether the Stokes planes keep the units of the samples.
bool same_output_range(Polarization_computation_arguments const& arguments);

/// The samples of a pixel computed with a matrix, with its neighbours on the side that `place`
/// says.
Quartet quartet_at(
    Polarization_computation_arguments const& arguments, Position position,
    Pixel_place const& place);

/// S0, S1 and S2 of any pixel of the frame, by the arithmetic of its place.
Stokes stokes_at(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices,
    Position position, Pixel_place const& place);

/// Computes every requested plane. NaNs of the float plane have the right place; which payload and
/// sign one has is open where an operation meets several.
void transform(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices);

} // namespace reference
