/// @file
/// Weights that turn the four samples of a 2x2 neighbourhood into Stokes quantities.
#pragma once

#include "veldrane_mrv/polarization/mosaic.hpp"
#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <array>
#include <cstddef>

namespace veldrane_mrv::polarization {

/// One matrix for each position in the mosaic's cell.
///
/// A matrix is row-major, 4 rows of 4. Element 4 * i + j weighs sample j in estimate i: rows 0, 1
/// and 2 give twice S0, S1 and S2; row 3 is never read. The samples are the pixel's own (j = 0),
/// its horizontal (1), its vertical (2) and its diagonal (3) neighbour.
struct Matrices {
    /// Indexed by `cell_position`: even row even column, even row odd column, odd row even column,
    /// odd row odd column.
    std::array<std::array<float, 16>, 4> by_position;

    /// The processor's record; it refers to this object, which must outlive it.
    Calibration_matrices references() const {
        return {by_position[0], by_position[1], by_position[2], by_position[3]};
    }

    bool operator==(Matrices const&) const = default;
};

/// Weights 1, -1 and 0 of an ideal sensor: the sums and differences by which the processor's vector
/// blocks work in the same phase, so that a plane of the fast mode has no seam but for last bits:
/// the blocks rescale S0, S1 and S2 with an approximate reciprocal where the others divide.
Matrices ideal_matrices(Mosaic const& mosaic);

/// The same matrices with S1 and S2 negated.
Matrices negated_rows_1_and_2(Matrices const& matrices);

/// The same matrices with S1 and S2 turned, so that angles count from the axis at `zero_direction`
/// degrees, counter-clockwise from the rows: S1' = S1 cos 2z + S2 sin 2z, S2' = S2 cos 2z - S1 sin
/// 2z.
/// @throws Argument_error if `zero_direction` is infinite or NaN
Matrices turned(Matrices const& matrices, double zero_direction);

/// Those of a frame that was cut out of a frame of these.
Matrices of_region(Matrices const& matrices, std::size_t row_offset, std::size_t column_offset);

/// Far above the weights of any sensor, far below what could overflow on the way to a plane.
inline constexpr float largest_weight = 65536;

/// @throws Argument_error if a weight of rows 0 to 2 is a NaN or its magnitude above
///        `largest_weight`, naming its row, column and position
void check(Matrices const& matrices);

} // namespace veldrane_mrv::polarization
