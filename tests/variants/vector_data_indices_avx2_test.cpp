/// @file
/// Covers the operand lists: what each phase makes of the cell in a vector block, and the sample of
/// phase 0 that comes from the row above.

#include "support/one_pixel.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace support;

constexpr std::size_t height{7};
constexpr std::size_t width{67};
constexpr std::size_t vector_rows{6};
constexpr std::size_t vector_columns{48};

Planes compute_in_phase(Sample_kind kind, std::int32_t polar_phase, std::uint64_t seed = 5) {
    return compute(make_scene(height, width, kind, Matrix_kind::ideal, polar_phase, seed));
}

template <typename Check>
void for_each_fixed_pixel(Check check) {
    for (std::size_t row = 0; row < vector_rows; ++row) {
        for (std::size_t column = 0; column < vector_columns; ++column) {
            check(row, column);
        }
    }
}

TEST(Operand_lists, phases_4_and_minus_1_act_as_phase_0) {
    Planes const phase_0 = compute_in_phase(Sample_kind::random_16_bit, 0);
    for (std::int32_t const phase : {4, -1}) {
        Planes const other = compute_in_phase(Sample_kind::random_16_bit, phase);
        EXPECT_EQ(other.s0, phase_0.s0);
        EXPECT_EQ(other.s1, phase_0.s1);
        EXPECT_EQ(other.s2, phase_0.s2);
        EXPECT_EQ(other.azimuth, phase_0.azimuth);
    }
}

TEST(Operand_lists, a_uniform_frame_has_no_polarisation_in_any_phase) {
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Pixel const pixel = fixed_pixel({1234, 1234, 1234, 1234}, phase);
        EXPECT_EQ(pixel.s0, 2468);
        EXPECT_EQ(pixel.s1, 0);
        EXPECT_EQ(pixel.s2, 0);
        EXPECT_EQ(pixel.azimuth, 32768);
        EXPECT_EQ(pixel.dolp, 0);
    }
}

TEST(Operand_lists, row_numbers_show_the_sample_from_the_row_above_in_phase_0_alone) {
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Planes const planes = compute_in_phase(Sample_kind::row_number, phase);
        for_each_fixed_pixel([&](std::size_t row, std::size_t column) {
            bool const from_above = phase == 0 && row % 2 == 1 && column % 16 < 8;
            EXPECT_EQ(planes.s0(row, column), from_above ? 2 * row : 2 * row + 1)
                << "phase " << phase << " at " << row << ", " << column;
        });
    }
}

TEST(Operand_lists, the_sample_from_the_row_above_leaves_s1_s2_and_azimuth_alone) {
    Scene scene = make_scene(3, 32, Sample_kind::random_12_bit, Matrix_kind::ideal, 0, 8);
    // Weakly polarised light: a DoLP that the clamp cuts off would hide the change.
    for (std::uint16_t& sample : scene.samples) {
        sample = static_cast<std::uint16_t>(3000 + sample / 4);
    }
    Planes const planes = compute(scene);
    // Row 0 enters the second row's S0 through the even columns only, S1 and S2 never.
    for (std::size_t column = 0; column < 32; ++column) {
        auto& sample = scene.samples[column];
        sample = static_cast<std::uint16_t>(sample + 100);
    }
    Planes const brighter_above = compute(scene);
    for (std::size_t column = 0; column < 16; ++column) {
        EXPECT_EQ(brighter_above.s0(1, column), planes.s0(1, column) + (column < 8 ? 50 : 0));
        EXPECT_EQ(brighter_above.s1(1, column), planes.s1(1, column));
        EXPECT_EQ(brighter_above.s2(1, column), planes.s2(1, column));
        EXPECT_EQ(brighter_above.azimuth(1, column), planes.azimuth(1, column));
        EXPECT_EQ(brighter_above.dolp(1, column) != planes.dolp(1, column), column < 8) << column;
    }
}

TEST(Operand_lists, phase_1_exchanges_the_stokes_planes_of_phase_0) {
    Planes const phase_0 = compute_in_phase(Sample_kind::random_16_bit, 0);
    Planes const phase_1 = compute_in_phase(Sample_kind::random_16_bit, 1);
    for_each_fixed_pixel([&](std::size_t row, std::size_t column) {
        EXPECT_EQ(phase_1.s1(row, column), phase_0.s2(row, column)) << row << ", " << column;
        EXPECT_EQ(phase_1.s2(row, column), phase_0.s1(row, column)) << row << ", " << column;
    });
}

TEST(Operand_lists, phase_2_turns_every_positive_s1_of_phase_0_into_0) {
    Planes const phase_0 = compute_in_phase(Sample_kind::random_16_bit, 0);
    Planes const phase_2 = compute_in_phase(Sample_kind::random_16_bit, 2);
    int positive = 0;
    for_each_fixed_pixel([&](std::size_t row, std::size_t column) {
        if (phase_0.s1(row, column) > 0) {
            ++positive;
            EXPECT_EQ(phase_2.s1(row, column), 0) << row << ", " << column;
        } else {
            EXPECT_GT(phase_2.s1(row, column), 0) << row << ", " << column;
        }
    });
    EXPECT_GT(positive, 50);
}

TEST(Operand_lists, phase_3_exchanges_the_stokes_planes_of_phase_2) {
    Planes const phase_2 = compute_in_phase(Sample_kind::random_16_bit, 2);
    Planes const phase_3 = compute_in_phase(Sample_kind::random_16_bit, 3);
    for_each_fixed_pixel([&](std::size_t row, std::size_t column) {
        EXPECT_EQ(phase_3.s1(row, column), phase_2.s2(row, column)) << row << ", " << column;
        EXPECT_EQ(phase_3.s2(row, column), phase_2.s1(row, column)) << row << ", " << column;
    });
}

TEST(Operand_lists, each_phase_takes_the_differences_of_its_mosaic) {
    Cell const cell{1000, 300, 700, 90};
    std::array<std::array<int, 2>, 4> const differences{
        {{1000 - 90, 700 - 300},
         {700 - 300, 1000 - 90},
         {90 - 1000, 300 - 700},
         {300 - 700, 90 - 1000}}};
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Pixel const pixel = fixed_pixel(cell, phase);
        auto const [s1, s2] = differences[static_cast<std::size_t>(phase)];
        EXPECT_EQ(pixel.s0, 1045) << phase;
        EXPECT_EQ(pixel.s1, std::max(s1, 0)) << phase;
        EXPECT_EQ(pixel.s2, std::max(s2, 0)) << phase;
        EXPECT_EQ(pixel.normalized_stokes[0], static_cast<float>(s1) / 1045.0F) << phase;
        EXPECT_EQ(pixel.normalized_stokes[1], static_cast<float>(s2) / 1045.0F) << phase;
    }
}

TEST(Operand_lists, every_pixel_takes_the_differences_of_its_own_neighbourhood) {
    Scene const scene =
        make_scene(height, width, Sample_kind::random_16_bit, Matrix_kind::ideal, 0, 21);
    Planes const planes = compute(scene);
    for_each_fixed_pixel([&](std::size_t row, std::size_t column) {
        auto const sample = [&](std::size_t row_parity, std::size_t column_parity) {
            std::size_t const r = row + (row % 2 == row_parity ? 0 : 1);
            std::size_t const c = column + (column % 2 == column_parity ? 0 : 1);
            return static_cast<int>(scene.samples[r * width + c]);
        };
        EXPECT_EQ(planes.s1(row, column), std::max(sample(0, 0) - sample(1, 1), 0));
        EXPECT_EQ(planes.s2(row, column), std::max(sample(1, 0) - sample(0, 1), 0));
    });
}

} // namespace
