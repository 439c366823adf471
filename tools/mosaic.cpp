#include "mosaic.hpp"

namespace polarize_tool {
namespace {

// Top-left cell of each phase, row by row.
constexpr std::array<std::array<int, 4>, phase_count> cell_angles = {
    {{0, 135, 45, 90}, {45, 90, 0, 135}, {90, 45, 135, 0}, {135, 0, 90, 45}}};

// What a sample behind a polariser adds to the difference of the two ends of one diagonal.
float difference_weight(int angle, int positive, int negative) {
    if (angle == positive) {
        return 1.0F;
    }
    return angle == negative ? -1.0F : 0.0F;
}

std::array<float, 16> weights_at(int phase, std::size_t row, std::size_t column) {
    // Own, horizontal, vertical and diagonal sample. Left or right makes no difference: both
    // neighbours lie under polarisers of the same angle, as do the ones above and below.
    std::array<int, 4> const angles = {
        polariser_angle(phase, row, column), polariser_angle(phase, row, column + 1),
        polariser_angle(phase, row + 1, column), polariser_angle(phase, row + 1, column + 1)};
    std::array<float, 16> weights{};
    for (std::size_t sample = 0; sample < 4; ++sample) {
        weights[sample] = 1.0F;
        weights[4 + sample] = difference_weight(angles[sample], 0, 90);
        weights[8 + sample] = difference_weight(angles[sample], 45, 135);
    }
    return weights;
}

} // namespace

int polariser_angle(int phase, std::size_t row, std::size_t column) {
    return cell_angles.at(static_cast<std::size_t>(phase))[2 * (row & 1) + (column & 1)];
}

Mosaic_weights::Mosaic_weights(int phase)
    : by_position_{
          weights_at(phase, 0, 0), weights_at(phase, 0, 1), weights_at(phase, 1, 0),
          weights_at(phase, 1, 1)} {}

Calibration_matrices Mosaic_weights::matrices() const {
    return {by_position_[0], by_position_[1], by_position_[2], by_position_[3]};
}

} // namespace polarize_tool
