/// @file
/// Covers the generators of inputs: ideal matrices give the sums and differences of their phase,
/// and a seed gives the same inputs again.

#include "support/scene.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using namespace support;

float estimate(Matrix const& matrix, std::size_t row, std::array<float, 4> const& samples) {
    float sum = 0;
    for (std::size_t sample = 0; sample < 4; ++sample) {
        sum += matrix[4 * row + sample] * samples[sample];
    }
    return sum;
}

TEST(Ideal_matrices, give_the_differences_of_their_phase_at_every_position) {
    // The samples at the positions of the cell: even even, even odd, odd even, odd odd.
    std::array<float, 4> const cell{1000, 300, 70, 9};
    std::array<std::array<float, 2>, 4> const expected{
        {{1000 - 9, 70 - 300}, {70 - 300, 1000 - 9}, {9 - 1000, 300 - 70}, {300 - 70, 9 - 1000}}};
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        Matrix_set const matrices = make_matrices(Matrix_kind::ideal, phase, 0);
        for (std::size_t position = 0; position < 4; ++position) {
            std::array<float, 4> const samples{
                cell[position], cell[position ^ 1], cell[position ^ 2], cell[position ^ 3]};
            auto const& matrix = matrices[position];
            auto const& [s1, s2] = expected[static_cast<std::size_t>(phase)];
            EXPECT_EQ(estimate(matrix, 0, samples), 1379) << phase << ", " << position;
            EXPECT_EQ(estimate(matrix, 1, samples), s1) << phase << ", " << position;
            EXPECT_EQ(estimate(matrix, 2, samples), s2) << phase << ", " << position;
        }
    }
}

TEST(Generated_matrices, hold_nans_in_the_row_that_is_never_read) {
    for (Matrix_kind const kind : every_matrix_kind) {
        for (Matrix const& matrix : make_matrices(kind, 0, 5)) {
            EXPECT_TRUE(std::all_of(matrix.begin() + 12, matrix.end(), [](float weight) {
                return std::isnan(weight);
            }));
        }
    }
}

TEST(Generated_matrices, of_the_non_finite_kind_hold_infinities_and_nans) {
    int infinities = 0;
    int nans = 0;
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        for (Matrix const& matrix : make_matrices(Matrix_kind::non_finite, 0, seed)) {
            for (std::size_t element = 0; element < 12; ++element) {
                infinities += std::isinf(matrix[element]) ? 1 : 0;
                nans += std::isnan(matrix[element]) ? 1 : 0;
            }
        }
    }
    EXPECT_GT(infinities, 20);
    EXPECT_GT(nans, 20);
}

TEST(Generated_scenes, are_the_same_for_a_seed_and_differ_between_seeds) {
    for (Matrix_kind const kind : every_matrix_kind) {
        auto const generate = [kind](std::uint64_t seed) {
            return make_scene(5, 7, Sample_kind::random_16_bit, kind, 2, seed);
        };
        Scene const scene = generate(3);
        EXPECT_NE(scene.samples, generate(4).samples);
        Scene const again = generate(3);
        EXPECT_EQ(scene.samples, again.samples);
        EXPECT_EQ(std::memcmp(&scene.matrices, &again.matrices, sizeof(Matrix_set)), 0);
    }
}

TEST(Generated_samples, keep_to_their_kind) {
    auto const maximum = [](Sample_kind kind) {
        Samples const samples = make_samples(kind, 40, 50, 9);
        return *std::ranges::max_element(samples);
    };
    EXPECT_LT(maximum(Sample_kind::random_12_bit), 4096);
    EXPECT_GT(maximum(Sample_kind::random_12_bit), 4000);
    EXPECT_GT(maximum(Sample_kind::random_16_bit), 65000);
    EXPECT_EQ(maximum(Sample_kind::all_zero), 0);
    EXPECT_EQ(maximum(Sample_kind::extremes), 65535);
    EXPECT_EQ(maximum(Sample_kind::row_number), 39);
    EXPECT_EQ(maximum(Sample_kind::few_levels), 3);
    Samples const equal = make_samples(Sample_kind::all_equal, 40, 50, 9);
    EXPECT_TRUE(std::ranges::all_of(equal, [&](auto sample) { return sample == equal.front(); }));
    Samples const rows = make_samples(Sample_kind::row_number, 4, 3, 0);
    EXPECT_EQ(rows, (Samples{0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3}));
}

} // namespace
