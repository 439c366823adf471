// The mosaic's orientation and the weights derived from it: 4 phases, 4 positions each.
#include "mosaic.hpp"

#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace polarize_tool;

TEST(Mosaic, top_left_cell_of_each_phase) {
    std::vector<std::vector<int>> const expected = {
        {0, 135, 45, 90}, {45, 90, 0, 135}, {90, 45, 135, 0}, {135, 0, 90, 45}};
    for (int phase = 0; phase < phase_count; ++phase) {
        std::vector<int> const& cell = expected[static_cast<std::size_t>(phase)];
        EXPECT_EQ(
            (std::vector<int>{
                polariser_angle(phase, 0, 0), polariser_angle(phase, 0, 1),
                polariser_angle(phase, 1, 0), polariser_angle(phase, 1, 1)}),
            cell)
            << "phase " << phase;
        EXPECT_EQ(polariser_angle(phase, 6, 9), cell[1]) << "phase " << phase;
    }
}

// Own, horizontal, vertical, diagonal: written out by hand for one cell of phase 1, 45 90 / 0 135.
TEST(Mosaic, weights_of_phase_1_written_out) {
    Mosaic_weights const weights(1);
    Calibration_matrices const matrices = weights.matrices();
    using Row = std::array<float, 16>;
    EXPECT_EQ(
        matrices.even_row_even_column, (Row{1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1, 0, 0, 0, 0}));
    EXPECT_EQ(
        matrices.even_row_odd_column, (Row{1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(
        matrices.odd_row_even_column, (Row{1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(matrices.odd_row_odd_column, (Row{1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1, 0, 0, 0, 0}));
}

// Light of S0 = 100, S1 = 24, S2 = -18 must come back from every position of every phase.
TEST(Mosaic, weights_recover_known_light_at_every_position) {
    int checked = 0;
    for (int phase = 0; phase < phase_count; ++phase) {
        Mosaic_weights const weights(phase);
        Calibration_matrices const m = weights.matrices();
        std::array<float, 16> const* const by_position[] = {
            &m.even_row_even_column, &m.even_row_odd_column, &m.odd_row_even_column,
            &m.odd_row_odd_column};
        for (std::size_t position = 0; position < 4; ++position) {
            std::size_t const row = position / 2;
            std::size_t const column = position % 2;
            float estimate[3] = {0, 0, 0};
            for (std::size_t sample = 0; sample < 4; ++sample) {
                int const angle = polariser_angle(phase, row + sample / 2, column + sample % 2);
                float const value = angle == 0    ? 62.0F
                                    : angle == 45 ? 41.0F
                                    : angle == 90 ? 38.0F
                                                  : 59.0F;
                for (std::size_t i = 0; i < 3; ++i) {
                    estimate[i] += (*by_position[position])[4 * i + sample] * value;
                }
            }
            EXPECT_EQ(estimate[0] / 2, 100.0F) << "phase " << phase << " position " << position;
            EXPECT_EQ(estimate[1], 24.0F) << "phase " << phase << " position " << position;
            EXPECT_EQ(estimate[2], -18.0F) << "phase " << phase << " position " << position;
            ++checked;
        }
    }
    std::printf("%d positions checked\n", checked);
    EXPECT_EQ(checked, 16);
}

} // namespace
