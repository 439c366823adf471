#include "support/matrices.hpp"

#include "support/random_stream.hpp"

#include <cstddef>
#include <limits>

namespace support {
namespace {

constexpr float quiet_nan{std::numeric_limits<float>::quiet_NaN()};
constexpr float infinity{std::numeric_limits<float>::infinity()};

/// Cell positions are numbered 2 * (row & 1) + (column & 1). A Stokes quantity of the sensor is the
/// difference of the samples at two of them.
struct Difference_of_positions {
    std::size_t minuend;
    std::size_t subtrahend;
};

struct Orientation {
    Difference_of_positions s1;
    Difference_of_positions s2;
};

Orientation orientation_of(std::int32_t polar_phase) {
    switch (polar_phase) {
    case 1:
        return {{2, 1}, {0, 3}};
    case 2:
        return {{3, 0}, {1, 2}};
    case 3:
        return {{1, 2}, {3, 0}};
    default:
        return {{0, 3}, {2, 1}};
    }
}

/// Sample j of the pixel at a cell position lies at position ^ j: j = 1 turns the column's parity
/// about, j = 2 the row's, j = 3 both.
Weights difference_weights(Difference_of_positions const& difference, std::size_t position) {
    Weights weights{};
    weights[position ^ difference.minuend] = 1;
    weights[position ^ difference.subtrahend] = -1;
    return weights;
}

Matrix ideal_matrix(std::int32_t polar_phase, std::size_t position) {
    Orientation const orientation = orientation_of(polar_phase);
    return matrix_of(
        {1, 1, 1, 1}, difference_weights(orientation.s1, position),
        difference_weights(orientation.s2, position));
}

float peculiar_weight(Random_stream& random) {
    constexpr std::array peculiar{
        infinity,
        -infinity,
        quiet_nan,
        -quiet_nan,
        std::numeric_limits<float>::denorm_min(),
        -std::numeric_limits<float>::denorm_min(),
        0.0F,
        -0.0F,
        std::numeric_limits<float>::max(),
        -std::numeric_limits<float>::max()};
    return random.below(3) == 0 ? peculiar[random.below(peculiar.size())] : random.weight();
}

} // namespace

char const* name_of(Matrix_kind kind) {
    constexpr std::array names{"ideal", "random", "non_finite"};
    return names[static_cast<std::size_t>(kind)];
}

Matrix_set make_matrices(Matrix_kind kind, std::int32_t polar_phase, std::uint64_t seed) {
    Random_stream random{seed};
    Matrix_set matrices{};
    for (std::size_t position = 0; position < matrices.size(); ++position) {
        matrices[position] = ideal_matrix(polar_phase, position);
        if (kind == Matrix_kind::ideal) {
            continue;
        }
        for (std::size_t element = 0; element < 12; ++element) {
            matrices[position][element] =
                kind == Matrix_kind::random ? random.weight() : peculiar_weight(random);
        }
    }
    return matrices;
}

Matrix matrix_of(Weights const& twice_s0, Weights const& s1, Weights const& s2) {
    Matrix matrix{};
    for (std::size_t sample = 0; sample < 4; ++sample) {
        matrix[sample] = twice_s0[sample];
        matrix[4 + sample] = s1[sample];
        matrix[8 + sample] = s2[sample];
        matrix[12 + sample] = quiet_nan;
    }
    return matrix;
}

Matrix_set everywhere(Matrix const& matrix) {
    return {matrix, matrix, matrix, matrix};
}

} // namespace support
