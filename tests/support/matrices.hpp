/// @file
/// Sets of four calibration matrices for the tests. Row 3 of every matrix holds NaNs, so that a
/// weight taken from there spoils a result.

#pragma once

#include <array>
#include <cstdint>

namespace support {

using Matrix = std::array<float, 16>;

/// In the order of the members of `Calibration_matrices`: even row even column, even row odd
/// column, odd row even column, odd row odd column.
using Matrix_set = std::array<Matrix, 4>;

/// The four weights of one estimate: own, horizontal, vertical and diagonal sample.
using Weights = std::array<float, 4>;

enum class Matrix_kind {
    /// The plain sums and differences that the vector blocks use in the same phase.
    ideal,
    /// Weights from -2 to 2, for every position others.
    random,
    /// As `random`, a third of the weights infinite, NaN, subnormal, zero or close to overflow.
    non_finite,
};

inline constexpr std::array every_matrix_kind{
    Matrix_kind::ideal, Matrix_kind::random, Matrix_kind::non_finite};

char const* name_of(Matrix_kind kind);

Matrix_set make_matrices(Matrix_kind kind, std::int32_t polar_phase, std::uint64_t seed);

/// A matrix of three given rows.
Matrix matrix_of(Weights const& twice_s0, Weights const& s1, Weights const& s2);

/// The same matrix at every position.
Matrix_set everywhere(Matrix const& matrix);

} // namespace support
