// The three pairings in scenes of a known mosaic.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/balance.hpp"
#include "veldrane_mrv/polarization/mosaic.hpp"

#include "support/random_stream.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <iostream>
#include <numbers>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;
using Verdict = Balance::Verdict;

struct Scene {
    Mosaic::Layout layout = {90, 45, 135, 0};
    double degree = 0.3;
    /// Change of the angle across the frame, which keeps it from one lucky value.
    double first_angle = 10;
    double last_angle = 80;
    double noise = 20;
    std::size_t height = 128;
    std::size_t width = 160;
};

std::vector<std::uint16_t> frame_of(Scene const& scene, std::uint64_t seed) {
    support::Random_stream random{seed};
    std::vector<std::uint16_t> samples(scene.height * scene.width);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        std::size_t const row = pixel / scene.width;
        std::size_t const column = pixel % scene.width;
        double const along = static_cast<double>(column) / static_cast<double>(scene.width);
        double const angle = scene.first_angle + along * (scene.last_angle - scene.first_angle);
        double const to_polariser =
            (angle - scene.layout[cell_position(row, column)]) * std::numbers::pi / 180;
        // Brighter to the right, so that the figures have a slope to cope with.
        double const light = 500 + 2000 * along;
        double const sample = light * (1 + scene.degree * std::cos(2 * to_polariser)) +
                              scene.noise * static_cast<double>(random.weight());
        samples[pixel] = static_cast<std::uint16_t>(std::lround(sample));
    }
    return samples;
}

Balance balance_of(Scene const& scene, std::uint64_t seed = 1) {
    return check_balance({frame_of(scene, seed), scene.height, scene.width});
}

TEST(Balance, is_on_the_diagonals_of_all_four_mosaics_alike) {
    for (Mosaic const& mosaic : all_mosaics()) {
        Balance const balance = balance_of({.layout = mosaic.layout()});
        EXPECT_EQ(balance.verdict, Verdict::possible);
        EXPECT_LT(balance.of(Pairing::diagonals), 0.01);
        EXPECT_GT(balance.of(Pairing::rows), 0.1);
        EXPECT_GT(balance.of(Pairing::columns), 0.1);
        EXPECT_NE(balance.explanation().find("no frame can tell"), std::string::npos);
    }
}

TEST(Balance, has_a_name_for_every_verdict) {
    EXPECT_EQ(name_of(Verdict::possible), "possible");
    EXPECT_EQ(name_of(Verdict::unlikely), "unlikely");
    EXPECT_EQ(name_of(Verdict::undecided), "undecided");
}

TEST(Balance, is_elsewhere_for_other_layouts) {
    Balance const in_rows = balance_of({.layout = {0, 90, 45, 135}});
    EXPECT_EQ(in_rows.verdict, Verdict::unlikely);
    EXPECT_LT(in_rows.of(Pairing::rows), 0.01);
    EXPECT_NE(in_rows.explanation().find("rows"), std::string::npos);
    Balance const in_columns = balance_of({.layout = {0, 45, 90, 135}});
    EXPECT_EQ(in_columns.verdict, Verdict::unlikely);
    EXPECT_LT(in_columns.of(Pairing::columns), 0.02);
    EXPECT_NE(in_columns.explanation().find("columns"), std::string::npos);
}

TEST(Balance, is_undecided_without_polarisation_or_halfway_between_polarisers) {
    int undecided = 0;
    for (std::uint64_t seed = 1; seed <= 100; ++seed) {
        // A slope would show up as a difference of columns.
        support::Random_stream random{seed};
        std::vector<std::uint16_t> samples(64 * 64);
        for (std::uint16_t& sample : samples) {
            sample = static_cast<std::uint16_t>(2000 + random.below(200));
        }
        undecided += check_balance({samples, 64, 64}).verdict == Verdict::undecided ? 1 : 0;
    }
    EXPECT_GE(undecided, 98);
    EXPECT_EQ(
        balance_of({.first_angle = 22.5, .last_angle = 22.5, .noise = 200}).verdict,
        Verdict::undecided);
    std::vector<std::uint16_t> const dark(64 * 64, 0);
    Balance const none = check_balance({dark, 64, 64});
    EXPECT_EQ(none.verdict, Verdict::undecided);
    EXPECT_EQ(none.imbalance, (std::array<double, 3>{0, 0, 0}));
    std::cout << undecided << " of 100 unpolarised frames undecided\n";
}

TEST(Balance, counts_every_whole_cell_once) {
    // One cell: pairs of 10 + 40 and 20 + 30, 10 + 20 and 30 + 40, 10 + 30 and 20 + 40.
    std::array<std::uint16_t, 4> const cell = {10, 20, 30, 40};
    Balance const one = check_balance({cell, 2, 2});
    EXPECT_DOUBLE_EQ(one.of(Pairing::diagonals), 0);
    EXPECT_DOUBLE_EQ(one.of(Pairing::rows), 0.4);
    EXPECT_DOUBLE_EQ(one.of(Pairing::columns), 0.2);
    // The same cell all over gives the same figures at any size; a last odd row or column is left
    // out.
    for (std::size_t const height : std::array<std::size_t, 4>{16, 17, 18, 33}) {
        for (std::size_t const width : std::array<std::size_t, 4>{16, 19, 31, 34}) {
            std::vector<std::uint16_t> samples(height * width);
            for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
                std::size_t const row = pixel / width;
                std::size_t const column = pixel % width;
                bool const in_a_cell = row < height / 2 * 2 && column < width / 2 * 2;
                samples[pixel] = in_a_cell ? cell[cell_position(row, column)] : 60000;
            }
            Balance const balance = check_balance({samples, height, width});
            EXPECT_NEAR(balance.of(Pairing::rows), 0.4, 1e-12) << height << " x " << width;
            EXPECT_NEAR(balance.of(Pairing::columns), 0.2, 1e-12) << height << " x " << width;
        }
    }
}

TEST(Balance, refuses_frames_without_a_cell) {
    std::vector<std::uint16_t> const samples(8);
    EXPECT_THROW(check_balance({samples, 1, 8}), Argument_error);
    EXPECT_THROW(check_balance({samples, 8, 1}), Argument_error);
}

} // namespace
