// Covers whole frames: which arithmetic and which matrix reach which pixel, the settings that
// select the rescaling, requested and unrequested planes, and the float plane's order of stores.

#include "reference/arithmetic_mode.hpp"
#include "reference/reference_transform.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace {

using namespace reference;

constexpr std::uint16_t untouched = 0xBEEF;
constexpr float untouched_float = -12345.5f;

using Matrix = std::array<float, 16>;
using Plane = std::vector<std::uint16_t>;

/// Row 0 of matrix number n weighs with 2 (n + 1) on the own sample: S0 tells which matrix was
/// used.
Matrix own_sample_times(float factor) {
    return {2 * factor, 0, 0, 0, factor, 0, 0, 0, 0, 0, 0, 0};
}

Matrix const first = own_sample_times(1), second = own_sample_times(2), third = own_sample_times(3),
             fourth = own_sample_times(4);
Calibration_matrices const telling_matrices{first, second, third, fourth};

/// A frame with all its planes, filled with a pattern that no store leaves.
struct Frame {
    Frame(std::size_t rows, std::size_t columns)
        : raw(rows * columns, 1000), s0(rows * columns, untouched), s1(s0), s2(s0), azimuth(s0),
          dolp(s0), normalized(2 * rows * columns, untouched_float) {
        arguments.height = rows;
        arguments.width = columns;
        arguments.raw_image = raw.data();
        arguments.bit_depth = 16;
        arguments.maximum_input_value = 65535.0f;
        arguments.maximum_output_value = 65535.0f;
        arguments.maximum_output_value_integer = 65535;
        arguments.normalized_stokes_image = normalized.data();
        arguments.s0_image = s0.data();
        arguments.s1_image = s1.data();
        arguments.s2_image = s2.data();
        arguments.azimuth_image = azimuth.data();
        arguments.dolp_image = dolp.data();
    }
    Frame(Frame const&) = delete;
    Frame& operator=(Frame const&) = delete;

    void randomise(std::uint32_t seed) {
        std::mt19937 generator(seed);
        for (auto& sample : raw) {
            sample = static_cast<std::uint16_t>(generator() & 0xFFFFu);
        }
    }

    std::size_t index(std::size_t row, std::size_t column) const {
        return row * arguments.width + column;
    }

    Plane raw, s0, s1, s2, azimuth, dolp;
    std::vector<float> normalized;
    Polarization_computation_arguments arguments{};
};

TEST(Transform, uses_matrices_outside_the_blocks_only) {
    Frame frame(6, 50);
    transform(frame.arguments, telling_matrices);
    for (std::size_t row = 0; row < 6; ++row) {
        for (std::size_t column = 0; column < 50; ++column) {
            std::size_t const matrix = 2 * (row % 2) + column % 2;
            bool const in_block = row < 4 && column < 32;
            EXPECT_EQ(frame.s0[frame.index(row, column)], in_block ? 2000 : 1000 * (matrix + 1));
        }
    }
}

TEST(Transform, last_pixel_takes_the_first_matrix_unless_both_sizes_are_even) {
    for (std::size_t height = 2; height <= 5; ++height) {
        for (std::size_t width = 16; width <= 49; ++width) {
            Frame frame(height, width);
            transform(frame.arguments, telling_matrices);
            bool const both_even = height % 2 == 0 && width % 2 == 0;
            EXPECT_EQ(frame.s0.back(), both_even ? 4000 : 1000) << height << " x " << width;
            EXPECT_EQ(
                frame.s0[frame.index(height - 2, width - 1)],
                1000 * (1 + 2 * (height % 2) + (width + 1) % 2))
                << height << " x " << width;
        }
    }
}

TEST(Transform, of_two_by_two_reads_the_same_samples_in_four_orders) {
    Frame frame(2, 2);
    frame.raw = {1, 2, 3, 4};
    frame.arguments.raw_image = frame.raw.data();
    Matrix const decimal{2000, 200, 20, 2, 0, 0, 0, 0, 0, 0, 0, 0};
    transform(frame.arguments, {decimal, decimal, decimal, decimal});
    EXPECT_EQ(frame.s0, (Plane{1234, 2143, 3412, 4321}));
}

TEST(Transform, of_row_numbers_shows_the_irregular_s0_of_phase_0) {
    for (std::int32_t const phase : {0, 1, 2, 3, 7, -1}) {
        Frame frame(6, 64);
        for (std::size_t i = 0; i < frame.raw.size(); ++i) {
            frame.raw[i] = static_cast<std::uint16_t>(i / 64);
        }
        frame.arguments.polar_phase = phase;
        transform(frame.arguments, telling_matrices);
        bool const irregular = phase < 1 || phase > 3;
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t column = 0; column < 48; ++column) {
                bool const from_above = irregular && row % 2 == 1 && column % 16 < 8;
                EXPECT_EQ(frame.s0[frame.index(row, column)], 2 * row + (from_above ? 0 : 1))
                    << phase << ' ' << row << ' ' << column;
            }
        }
    }
}

TEST(Transform, in_phase_1_exchanges_s1_and_s2_of_phase_0_inside_the_blocks) {
    Frame zero(5, 48);
    Frame one(5, 48);
    zero.randomise(1);
    one.randomise(1);
    one.arguments.polar_phase = 1;
    transform(zero.arguments, telling_matrices);
    transform(one.arguments, telling_matrices);
    for (std::size_t row = 0; row < 5; ++row) {
        for (std::size_t column = 0; column < 48; ++column) {
            std::size_t const i = zero.index(row, column);
            bool const in_block = row < 4 && column < 32;
            EXPECT_EQ(zero.s1[i], in_block ? one.s2[i] : one.s1[i]);
            EXPECT_EQ(zero.s2[i], in_block ? one.s1[i] : one.s2[i]);
        }
    }
}

TEST(Transform, in_phase_2_stores_the_negative_halves_of_phase_0) {
    Frame zero(5, 48);
    Frame two(5, 48);
    zero.randomise(2);
    two.randomise(2);
    two.arguments.polar_phase = 2;
    transform(zero.arguments, telling_matrices);
    transform(two.arguments, telling_matrices);
    unsigned positive = 0;
    for (std::size_t column = 0; column < 32; ++column) {
        std::size_t const i = zero.index(1, column);
        EXPECT_TRUE(zero.s1[i] == 0 || two.s1[i] == 0) << column;
        positive += zero.s1[i] != 0 || two.s1[i] != 0 ? 1u : 0u;
    }
    EXPECT_EQ(positive, 32u);
}

TEST(Transform, of_32_columns_and_4_rows_leaves_the_floats_that_nothing_stores) {
    Frame frame(4, 32);
    frame.randomise(3);
    frame.arguments.polar_phase = 1;
    transform(frame.arguments, telling_matrices);
    for (std::size_t index = 0; index < frame.normalized.size(); ++index) {
        bool const in_gap = (index >= 16 && index < 32) || (index >= 80 && index < 96);
        EXPECT_EQ(frame.normalized[index] == untouched_float, in_gap) << index;
    }
    // Floats 8 and 9 hold pixel 10 of the block: S1 and S2 of phase 1 from its four samples.
    auto const sample = [&](std::size_t row, std::size_t column) {
        return static_cast<float>(frame.raw[frame.index(row, column)]);
    };
    float const s0 = (sample(0, 10) + sample(0, 11) + sample(1, 10) + sample(1, 11)) / 2.0f;
    EXPECT_EQ(frame.normalized[8], (sample(1, 10) - sample(0, 11)) / s0);
    EXPECT_EQ(frame.normalized[9], (sample(0, 10) - sample(1, 11)) / s0);
}

TEST(Transform, stores_infinities_and_nans_of_a_zero_s0_as_they_fall) {
    Frame frame(2, 2);
    Matrix const no_s0{0, 0, 0, 0, 5, 0, 0, 0, -5, 0, 0, 0};
    transform(frame.arguments, {no_s0, no_s0, no_s0, own_sample_times(0)});
    EXPECT_EQ(frame.normalized[0], std::numeric_limits<float>::infinity());
    EXPECT_EQ(frame.normalized[1], -std::numeric_limits<float>::infinity());
    EXPECT_EQ(std::bit_cast<std::uint32_t>(frame.normalized[6]), 0xFFC00000u);
    EXPECT_EQ(frame.dolp, (Plane{0, 0, 0, 0}));
}

TEST(Transform, writes_each_requested_plane_alike_in_every_set_of_planes) {
    for (auto const& [height, width] : {std::pair<std::size_t, std::size_t>{5, 50}, {6, 49}}) {
        Frame all(height, width);
        all.randomise(4);
        transform(all.arguments, telling_matrices);
        for (unsigned set = 0; set < 64; ++set) {
            Frame some(height, width);
            some.randomise(4);
            auto& a = some.arguments;
            a.normalized_stokes_image = (set & 1u) != 0 ? a.normalized_stokes_image : nullptr;
            a.s0_image = (set & 2u) != 0 ? a.s0_image : nullptr;
            a.s1_image = (set & 4u) != 0 ? a.s1_image : nullptr;
            a.s2_image = (set & 8u) != 0 ? a.s2_image : nullptr;
            a.azimuth_image = (set & 16u) != 0 ? a.azimuth_image : nullptr;
            a.dolp_image = (set & 32u) != 0 ? a.dolp_image : nullptr;
            transform(a, telling_matrices);
            Plane const none(height * width, untouched);
            std::vector<float> const no_floats(2 * height * width, untouched_float);
            EXPECT_EQ(some.normalized, (set & 1u) != 0 ? all.normalized : no_floats) << set;
            EXPECT_EQ(some.s0, (set & 2u) != 0 ? all.s0 : none) << set;
            EXPECT_EQ(some.s1, (set & 4u) != 0 ? all.s1 : none) << set;
            EXPECT_EQ(some.s2, (set & 8u) != 0 ? all.s2 : none) << set;
            EXPECT_EQ(some.azimuth, (set & 16u) != 0 ? all.azimuth : none) << set;
            EXPECT_EQ(some.dolp, (set & 32u) != 0 ? all.dolp : none) << set;
        }
    }
}

TEST(Same_output_range, compares_with_a_masked_32_bit_shift) {
    struct Entry {
        std::int32_t bit_depth;
        std::int32_t maximum;
        bool same;
    };
    constexpr Entry entries[] = {{16, 65535, true},      {12, 4095, true}, {31, 2147483647, true},
                                 {32, 0, true},          {0, 0, true},     {33, 1, true},
                                 {-1, 2147483647, true}, {16, 255, false}, {12, 65535, false},
                                 {32, -1, false},        {8, 4095, false}};
    for (Entry const& entry : entries) {
        Polarization_computation_arguments arguments{};
        arguments.bit_depth = entry.bit_depth;
        arguments.maximum_output_value_integer = entry.maximum;
        EXPECT_EQ(same_output_range(arguments), entry.same)
            << entry.bit_depth << ' ' << entry.maximum;
    }
}

TEST(Transform, rescales_the_stokes_planes_and_no_other) {
    Frame plain(5, 50);
    Frame rescaled(5, 50);
    for (Frame* frame : {&plain, &rescaled}) {
        frame->randomise(5);
        frame->arguments.bit_depth = 12;
        frame->arguments.maximum_output_value = 4095.0f;
        frame->arguments.maximum_output_value_integer = 4095;
        frame->arguments.maximum_input_value = 65535.0f;
    }
    rescaled.arguments.maximum_output_value_integer = 4096;
    transform(plain.arguments, telling_matrices);
    transform(rescaled.arguments, telling_matrices);
    EXPECT_NE(plain.s0, rescaled.s0);
    EXPECT_NE(plain.s1, rescaled.s1);
    EXPECT_EQ(plain.azimuth, rescaled.azimuth);
    EXPECT_EQ(plain.dolp, rescaled.dolp);
    EXPECT_EQ(plain.normalized, rescaled.normalized);
}

TEST(Transform, neither_masks_samples_nor_reads_an_unneeded_input_maximum) {
    Frame frame(2, 16);
    frame.raw.assign(frame.raw.size(), 5000);
    frame.arguments.bit_depth = 12;
    frame.arguments.maximum_output_value_integer = 4095;
    frame.arguments.maximum_input_value = 0.0f;
    transform(frame.arguments, {first, first, first, first});
    EXPECT_EQ(frame.s0, Plane(32, 5000));
}

TEST(Transform, ignores_the_fourth_row_of_a_matrix) {
    Frame with(5, 33);
    Frame without(5, 33);
    with.randomise(6);
    without.randomise(6);
    Matrix marked = first;
    std::fill(marked.begin() + 12, marked.end(), std::numeric_limits<float>::quiet_NaN());
    transform(with.arguments, {marked, marked, marked, marked});
    transform(without.arguments, {first, first, first, first});
    EXPECT_EQ(with.s0, without.s0);
    EXPECT_EQ(with.azimuth, without.azimuth);
    EXPECT_EQ(with.normalized, without.normalized);
}

TEST(Transform, with_matching_matrices_has_no_seam) {
    // Sums and differences of phase 0, with the samples in the order of each position's quartet.
    Matrix const ee{1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0};
    Matrix const eo{1, 1, 1, 1, 0, 1, -1, 0, -1, 0, 0, 1};
    Matrix const oe{1, 1, 1, 1, 0, -1, 1, 0, 1, 0, 0, -1};
    Matrix const oo{1, 1, 1, 1, -1, 0, 0, 1, 0, 1, -1, 0};
    Frame frame(6, 64);
    for (std::size_t i = 0; i < frame.raw.size(); ++i) {
        static constexpr std::uint16_t cell[2][2] = {{1000, 200}, {330, 400}};
        frame.raw[i] = cell[i / 64 % 2][i % 2];
    }
    transform(frame.arguments, {ee, eo, oe, oo});
    EXPECT_EQ(frame.s0, Plane(6 * 64, 965));
    EXPECT_EQ(frame.s1, Plane(6 * 64, 600));
    EXPECT_EQ(frame.s2, Plane(6 * 64, 130));
    auto const [lowest, highest] = std::minmax_element(frame.azimuth.begin(), frame.azimuth.end());
    EXPECT_LE(*highest - *lowest, 1);
}

TEST(Transform, rounds_halves_of_s0_as_the_mode_says) {
    auto const stored_in = [](unsigned mode) {
        Frame frame(3, 32);
        frame.raw[0] = 1001;
        Matrix const sum{1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};
        frame.raw[31] = 1001;
        Arithmetic_mode const set(mode);
        transform(frame.arguments, {sum, sum, sum, sum});
        return std::pair(frame.s0[0], frame.s0[31]);
    };
    EXPECT_EQ(stored_in(nearest), (std::pair<std::uint16_t, std::uint16_t>{2000, 2000}));
    EXPECT_EQ(stored_in(upward), (std::pair<std::uint16_t, std::uint16_t>{2001, 2001}));
    EXPECT_EQ(stored_in(toward_zero), (std::pair<std::uint16_t, std::uint16_t>{2000, 2000}));
}

} // namespace
