#include "veldrane_mrv/polarization/matrices.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cmath>
#include <numbers>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

// What a sample behind a polariser adds to the difference of two orthogonal ones.
float difference_weight(int angle, int positive, int negative) {
    if (angle == positive) {
        return 1.0F;
    }
    return angle == negative ? -1.0F : 0.0F;
}

std::array<float, 16> ideal_weights(Mosaic const& mosaic, std::size_t row, std::size_t column) {
    // Left or right, above or below makes no difference to the polariser over a neighbour.
    std::array<int, 4> const angles = {
        mosaic.angle(row, column), mosaic.angle(row, column + 1), mosaic.angle(row + 1, column),
        mosaic.angle(row + 1, column + 1)};
    std::array<float, 16> weights{};
    for (std::size_t sample = 0; sample < 4; ++sample) {
        weights[sample] = 1.0F;
        weights[4 + sample] = difference_weight(angles[sample], 0, 90);
        weights[8 + sample] = difference_weight(angles[sample], 45, 135);
    }
    return weights;
}

} // namespace

Matrices ideal_matrices(Mosaic const& mosaic) {
    return {
        {ideal_weights(mosaic, 0, 0), ideal_weights(mosaic, 0, 1), ideal_weights(mosaic, 1, 0),
         ideal_weights(mosaic, 1, 1)}};
}

Matrices negated_rows_1_and_2(Matrices const& matrices) {
    Matrices negated = matrices;
    for (std::array<float, 16>& weights : negated.by_position) {
        for (std::size_t element = 4; element < 12; ++element) {
            weights[element] = -weights[element];
        }
    }
    return negated;
}

Matrices turned(Matrices const& matrices, double zero_direction) {
    if (!std::isfinite(zero_direction)) {
        throw Argument_error{
            "the direction of zero", std::to_string(zero_direction),
            "give degrees, a finite number"};
    }
    double const twice = std::remainder(zero_direction, 180) * std::numbers::pi / 90;
    double const cosine = std::cos(twice);
    double const sine = std::sin(twice);
    Matrices result = matrices;
    for (std::array<float, 16>& weights : result.by_position) {
        for (std::size_t sample = 4; sample < 8; ++sample) {
            double const s1 = static_cast<double>(weights[sample]);
            double const s2 = static_cast<double>(weights[sample + 4]);
            weights[sample] = static_cast<float>(s1 * cosine + s2 * sine);
            weights[sample + 4] = static_cast<float>(s2 * cosine - s1 * sine);
        }
    }
    return result;
}

Matrices of_region(Matrices const& matrices, std::size_t row_offset, std::size_t column_offset) {
    Matrices result{};
    std::size_t const moved = cell_position(row_offset, column_offset);
    for (std::size_t position = 0; position < result.by_position.size(); ++position) {
        result.by_position[position] = matrices.by_position[position ^ moved];
    }
    return result;
}

void check(Matrices const& matrices) {
    for (std::size_t position = 0; position < matrices.by_position.size(); ++position) {
        for (std::size_t element = 0; element < 12; ++element) {
            float const weight = matrices.by_position[position][element];
            // A NaN fails the comparison too.
            if (!(std::abs(weight) <= largest_weight)) {
                throw Argument_error{
                    "weight (" + std::to_string(element / 4) + ", " + std::to_string(element % 4) +
                        ") of the matrix for " + (position < 2 ? "even" : "odd") + " rows and " +
                        (position % 2 == 0 ? "even" : "odd") + " columns",
                    std::to_string(weight),
                    "give weights of at most 65536; those of a sensor are near 1"};
            }
        }
    }
}

} // namespace veldrane_mrv::polarization
