// Dark frames: the mean of many, levels of positions, subtraction that stops at 0, refusals.

#include "refusal.hpp"

#include "veldrane_mrv/polarization/dark_frame.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <random>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

using Samples = std::vector<std::uint16_t>;

Samples levels_of(Dark_frame const& dark) {
    return {dark.levels().begin(), dark.levels().end()};
}

TEST(Dark_frame, is_the_mean_rounded_with_halves_up) {
    Samples const first = {10, 0, 65535, 3};
    Samples const second = {11, 0, 65535, 3};
    Samples const third = {11, 1, 65535, 5};
    std::vector<Frame_view> const frames = {{first, 2, 2}, {second, 2, 2}, {third, 2, 2}};
    EXPECT_EQ(levels_of(Dark_frame{frames}), (Samples{11, 0, 65535, 4}));
    EXPECT_EQ(levels_of(Dark_frame{std::span{frames}.first(2)}), (Samples{11, 0, 65535, 3}));
}

TEST(Dark_frame, of_65537_bright_frames_does_not_wrap_and_one_more_is_refused) {
    Samples const bright = {65535, 1, 65534, 40000};
    Frame_view const frame{bright, 2, 2};
    Dark_frame_average average;
    for (int count = 0; count < 65537; ++count) {
        average.add(frame);
    }
    EXPECT_EQ(levels_of(average.result()), bright);
    EXPECT_THROW(average.add(frame), Argument_error);
    EXPECT_EQ(average.frame_count(), 65537U);
    EXPECT_EQ(levels_of(average.result()), bright);
}

TEST(Dark_frame, the_mean_of_every_pixel_can_be_had_without_rounding) {
    Samples const first = {10, 0, 65535, 3};
    Samples const second = {11, 0, 65535, 6};
    Dark_frame_average average;
    EXPECT_THROW(average.means(), Argument_error);
    average.add({first, 2, 2});
    average.add({first, 2, 2});
    average.add({first, 2, 2});
    average.add({second, 2, 2});
    EXPECT_EQ(average.means(), (std::vector<float>{10.25F, 0, 65535, 3.75F}));
}

TEST(Dark_frame, of_positions_repeats_their_levels) {
    Dark_frame const dark{3, 5, {10.4, 20.5, 30, 0}};
    EXPECT_EQ(levels_of(dark), (Samples{10, 21, 10, 21, 10, 30, 0, 30, 0, 30, 10, 21, 10, 21, 10}));
    EXPECT_EQ(dark.means(), (std::array<double, 4>{10, 21, 30, 0}));
}

TEST(Dark_frame, subtraction_of_all_pairs_of_a_sweep_stops_at_0) {
    std::size_t compared = 0;
    Samples samples;
    Samples levels;
    for (unsigned sample = 0; sample < 65536; sample += 257) {
        for (unsigned level = 0; level < 65536; level += 255) {
            samples.push_back(static_cast<std::uint16_t>(sample));
            levels.push_back(static_cast<std::uint16_t>(level));
        }
    }
    Frame_view const frame{samples, 256, samples.size() / 256};
    std::vector<Frame_view> const dark_frames = {{levels, 256, levels.size() / 256}};
    Samples result(samples.size());
    subtract(frame, Dark_frame{dark_frames}, result);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel, ++compared) {
        int const difference = samples[pixel] - levels[pixel];
        ASSERT_EQ(result[pixel], std::max(difference, 0));
    }
    Samples in_place = samples;
    subtract(
        Frame_view{in_place, frame.height(), frame.width()}, Dark_frame{dark_frames}, in_place);
    EXPECT_EQ(in_place, result);
    std::cout << compared << " pairs\n";
}

TEST(Dark_frame, lifts_the_mean_of_dark_pixels_by_no_more_than_stated) {
    std::mt19937_64 random{3};
    constexpr double noise = 20;
    constexpr std::size_t pixels = 1000000;
    for (double const signal_in_noise : {0.0, 3.0, 5.0}) {
        std::normal_distribution<double> value{1000 + signal_in_noise * noise, noise};
        Samples samples(pixels);
        std::ranges::generate(
            samples, [&] { return static_cast<std::uint16_t>(std::lround(value(random))); });
        Samples result(pixels);
        subtract(
            Frame_view{samples, 1000, 1000}, Dark_frame{1000, 1000, {1000, 1000, 1000, 1000}},
            result);
        double sum = 0;
        for (std::uint16_t const sample : result) {
            sum += sample;
        }
        double const lift = sum / pixels / noise - signal_in_noise;
        EXPECT_NEAR(lift, signal_in_noise == 0 ? 0.399 : 0, 0.004) << signal_in_noise;
    }
}

TEST(Dark_frame, wrong_arguments_are_refused_and_nothing_is_written) {
    Samples samples(12, 500);
    Samples result(12, 7);
    Frame_view const frame{samples, 3, 4};
    Dark_frame const dark{3, 4, {1, 2, 3, 4}};
    EXPECT_EQ(
        refusal_of([&] {
            subtract(frame, Dark_frame{4, 3, {}}, result);
        }),
        "size of the frame is 4 x 3; give frames of the dark frame's size, 3 x 4");
    EXPECT_EQ(
        refusal_of([&] { subtract(frame, dark, std::span{result}.first(11)); }),
        "result is 11 elements; give the 12 elements of the frame");
    Samples longer(13, 500);
    EXPECT_NE(
        refusal_of([&] {
            subtract(Frame_view{longer.data(), 3, 4}, dark, std::span{longer}.subspan(1));
        }),
        "nothing");
    EXPECT_EQ(result, Samples(12, 7));
    EXPECT_EQ(longer, Samples(13, 500));
    EXPECT_EQ(
        refusal_of([] { Dark_frame{std::span<Frame_view const>{}}; }),
        "number of dark frames is 0; give at least one");
    std::vector<Frame_view> const unequal = {frame, {samples, 4, 3}};
    EXPECT_EQ(
        refusal_of([&] { Dark_frame{unequal}; }),
        "size of dark frame 1 is 3 x 4; give frames of the size of the first one, 4 x 3");
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (double const level : {-1.0, 65536.0, nan}) {
        EXPECT_NE(refusal_of([&] { Dark_frame{2, 2, {0, level, 0, 0}}; }), "nothing");
    }
    EXPECT_NE(refusal_of([] { Dark_frame{0, 2, {}}; }), "nothing");
    EXPECT_NE(refusal_of([] { Dark_frame{SIZE_MAX, 3, {}}; }), "nothing");
}

} // namespace
} // namespace client_test
