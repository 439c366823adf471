// What an inspection tells of frames whose making is known: depth, saturation, means, histogram,
// and the phase behind a polariser for every phase and angle.
#include "veldrane_mrv/polarization/inspection.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using polarization::inspect;
using polarization::Inspection;
using polarization::Phase_answer;
using Samples = std::vector<std::uint16_t>;

Inspection inspected(
    Samples const& samples, std::size_t height, std::size_t width,
    std::optional<int> bit_depth = std::nullopt) {
    return inspect(polarization::Frame_view(samples, height, width), bit_depth);
}

// Malus' law for analysers of a given diattenuation.
Samples behind_polariser(
    polarization::Mosaic const& mosaic, double polariser, double diattenuation,
    std::size_t side = 16) {
    Samples samples;
    for (std::size_t row = 0; row < side; ++row) {
        for (std::size_t column = 0; column < side; ++column) {
            double const apart = polariser - mosaic.angle(row, column);
            double const passed =
                1.0 + diattenuation * std::cos(2.0 * apart * std::numbers::pi / 180.0);
            samples.push_back(static_cast<std::uint16_t>(std::lround(1000.0 * passed)));
        }
    }
    return samples;
}

Phase_answer answered(Samples const& samples, double angle, std::size_t side = 16) {
    return polarization::phase_behind_polariser(inspected(samples, side, side).positions, angle);
}

TEST(Inspection, depth_of_right_and_left_aligned_samples) {
    struct Case {
        unsigned largest;
        int shift;
        int used_bits;
        int depth;
        unsigned full_scale;
    };
    for (Case const& wanted :
         {Case{255, 0, 8, 8, 255}, Case{300, 0, 9, 10, 1023}, Case{4095, 0, 12, 12, 4095},
          Case{4095, 4, 16, 12, 65520}, Case{1023, 6, 16, 10, 65472}, Case{16383, 2, 16, 14, 65532},
          Case{65535, 0, 16, 16, 65535}, Case{200, 8, 16, 8, 65280}}) {
        Samples samples(64, static_cast<std::uint16_t>(1U << wanted.shift));
        samples[5] = static_cast<std::uint16_t>(wanted.largest << wanted.shift);
        Inspection const found = inspected(samples, 8, 8);
        EXPECT_EQ(found.depth.used_bits, wanted.used_bits) << wanted.largest;
        EXPECT_EQ(found.depth.zero_low_bits, wanted.shift) << wanted.largest;
        EXPECT_EQ(found.depth.shift, wanted.shift) << wanted.largest;
        EXPECT_EQ(found.depth.assumed_depth, wanted.depth) << wanted.largest;
        EXPECT_EQ(found.full_scale(), wanted.full_scale) << wanted.largest;
        EXPECT_EQ(found.depth.distinct_values, 2U);
    }
}

TEST(Inspection, dim_even_samples_are_not_taken_for_left_aligned_ones) {
    Samples samples(64, 8);
    samples[0] = 24;
    EXPECT_EQ(inspected(samples, 8, 8).depth.shift, 0);
    EXPECT_EQ(inspected(samples, 8, 8).depth.assumed_depth, 8);
    EXPECT_EQ(inspected(Samples(64, 0), 8, 8).depth.used_bits, 0);
}

TEST(Inspection, saturation_counts_samples_at_the_full_scale_that_is_given) {
    Samples samples(100, 7);
    std::fill_n(samples.begin(), 9, std::uint16_t{255});
    EXPECT_EQ(inspected(samples, 10, 10).saturated, 9U);
    EXPECT_EQ(inspected(samples, 10, 10, 12).saturated, 0U);
    EXPECT_EQ(inspected(samples, 10, 10, 12).at_largest, 9U);
    EXPECT_EQ(inspected(samples, 10, 10, 4).saturated, 9U);
}

TEST(Inspection, samples_within_a_given_depth_are_not_left_aligned) {
    // 10 bits from a converter, moved up into 12.
    Samples samples(100, 4);
    samples[1] = 1000;
    std::fill_n(samples.begin() + 2, 9, std::uint16_t{4092});
    Inspection const found = inspected(samples, 10, 10, 12);
    EXPECT_EQ(found.depth.shift, 0);
    EXPECT_EQ(found.depth.assumed_depth, 12);
    EXPECT_EQ(found.full_scale(), 4095U);
    EXPECT_EQ(found.saturated, 9U);
    // The same at the upper end of 16 bits.
    for (std::uint16_t& sample : samples) {
        sample = static_cast<std::uint16_t>(sample << 4);
    }
    Inspection const moved = inspected(samples, 10, 10, 12);
    EXPECT_EQ(moved.depth.shift, 4);
    EXPECT_EQ(moved.full_scale(), 65520U);
    EXPECT_EQ(moved.saturated, 9U);
    EXPECT_EQ(inspected(samples, 10, 10, 16).depth.shift, 0);
    EXPECT_EQ(inspected(samples, 10, 10, 16).full_scale(), 65535U);
    // A flat frame's value is a multiple of itself.
    EXPECT_EQ(inspected(Samples(100, 2048), 10, 10, 12).saturated, 0U);
    EXPECT_EQ(inspected(Samples(100, 128), 10, 10, 8).saturated, 0U);
}

TEST(Inspection, means_and_extremes_of_each_position_for_odd_sizes) {
    // 3 rows of 5 columns: position (0, 0) has six samples, (1, 1) two.
    Samples samples(15);
    std::iota(samples.begin(), samples.end(), std::uint16_t{0});
    Inspection const found = inspected(samples, 3, 5);
    EXPECT_DOUBLE_EQ(found.positions[0].mean, (0 + 2 + 4 + 10 + 12 + 14) / 6.0);
    EXPECT_DOUBLE_EQ(found.positions[1].mean, (1 + 3 + 11 + 13) / 4.0);
    EXPECT_DOUBLE_EQ(found.positions[2].mean, (5 + 7 + 9) / 3.0);
    EXPECT_DOUBLE_EQ(found.positions[3].mean, (6 + 8) / 2.0);
    EXPECT_EQ(found.positions[2].smallest, 5U);
    EXPECT_EQ(found.positions[2].largest, 9U);
    EXPECT_DOUBLE_EQ(found.mean, 7.0);
}

TEST(Inspection, histogram_holds_every_sample_once) {
    Samples samples(256);
    std::iota(samples.begin(), samples.end(), std::uint16_t{0});
    Inspection const found = inspected(samples, 16, 16);
    EXPECT_EQ(found.histogram, std::vector<std::size_t>(32, 8));
    Inspection const beyond = inspected(samples, 16, 16, 4);
    EXPECT_EQ(std::accumulate(beyond.histogram.begin(), beyond.histogram.end(), 0U), 256U);
}

TEST(Inspection, a_frame_of_one_row_is_refused) {
    EXPECT_THROW(inspected(Samples(8), 1, 8), polarization::Argument_error);
}

TEST(Inspection, every_phase_is_told_behind_a_polariser_at_multiples_of_45_degrees) {
    unsigned answers = 0;
    for (polarization::Mosaic const& mosaic : polarization::all_mosaics()) {
        for (double const angle : {-45.0, 0.0, 45.0, 90.0, 135.0, 180.0}) {
            for (double const error : {-12.0, 0.0, 12.0}) {
                for (double const diattenuation : {0.5, 0.98}) {
                    Phase_answer const answer =
                        answered(behind_polariser(mosaic, angle + error, diattenuation), angle);
                    EXPECT_EQ(answer.phase, mosaic.phase()) << answer.explanation;
                    EXPECT_NEAR(answer.candidates[0].deviation, std::abs(error), 0.2);
                    EXPECT_NEAR(answer.degree, diattenuation, 0.01);
                    ++answers;
                }
            }
        }
    }
    std::printf("%u frames, each answered with its own phase\n", answers);
}

TEST(Inspection, no_phase_is_told_where_the_frame_does_not_decide) {
    polarization::Mosaic const mosaic = polarization::Mosaic::from_phase(1);
    // Halfway between two analysers two phases agree.
    Phase_answer const halfway = answered(behind_polariser(mosaic, 22.5, 0.9), 22.5);
    EXPECT_FALSE(halfway.phase);
    EXPECT_NE(halfway.explanation.find("equally near"), std::string::npos) << halfway.explanation;
    // The true angle is 22 degrees off what the user says.
    Phase_answer const wrong = answered(behind_polariser(mosaic, 22.0, 0.9), 0.0);
    EXPECT_FALSE(wrong.phase) << wrong.explanation;
    Phase_answer const weak = answered(behind_polariser(mosaic, 0.0, 0.1), 0.0);
    EXPECT_FALSE(weak.phase);
    EXPECT_NE(weak.explanation.find("10 per cent"), std::string::npos) << weak.explanation;
    EXPECT_FALSE(answered(Samples(256, 0), 0.0).phase);
}

} // namespace
