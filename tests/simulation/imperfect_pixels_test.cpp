// Sensors drawn pixel by pixel: statistics of the draw, and that a pixel's figures are its own.
#include "veldrane_mrv/polarization/imperfect_pixels.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using namespace polarization;

Simulation_settings settings_of(std::size_t width, std::size_t height, int phase = 0) {
    Simulation_settings settings;
    settings.width = width;
    settings.height = height;
    settings.phase = phase;
    return settings;
}

struct Statistics {
    double mean;
    double deviation;
};

Statistics statistics(std::vector<double> const& numbers) {
    auto const count = static_cast<double>(numbers.size());
    double const mean = std::accumulate(numbers.begin(), numbers.end(), 0.0) / count;
    double squares = 0.0;
    for (double const number : numbers) {
        squares += (number - mean) * (number - mean);
    }
    return {mean, std::sqrt(squares / count)};
}

double correlation(std::vector<double> const& a, std::vector<double> const& b) {
    Statistics const of_a = statistics(a);
    Statistics const of_b = statistics(b);
    double sum = 0.0;
    for (std::size_t index = 0; index < a.size(); ++index) {
        sum += (a[index] - of_a.mean) * (b[index] - of_b.mean);
    }
    return sum / (static_cast<double>(a.size()) * of_a.deviation * of_b.deviation);
}

std::vector<double> as_doubles(std::vector<float> const& map) {
    return {map.begin(), map.end()};
}

std::vector<double> off_the_mosaic(Calibration const& sensor) {
    std::vector<double> off;
    std::size_t const width = sensor.maps->region.width;
    for (std::size_t index = 0; index < sensor.maps->orientation.size(); ++index) {
        off.push_back(std::remainder(
            static_cast<double>(sensor.maps->orientation[index]) -
                sensor.mosaic.angle(index / width, index % width),
            180.0));
    }
    return off;
}

TEST(Imperfect_pixels, maps_have_the_spread_asked_for) {
    Pixel_spread spread;
    spread.mean_diattenuation = 0.8; // out of reach of the cut at 1
    Calibration const sensor = imperfect_pixels(settings_of(400, 300, 2), spread);
    Calibration_maps const& maps = *sensor.maps;
    std::vector<std::vector<double>> const quantities = {
        as_doubles(maps.throughput), as_doubles(maps.diattenuation), off_the_mosaic(sensor),
        as_doubles(maps.dark_level)};
    std::vector<Statistics> const expected = {{1.0, 0.02}, {0.8, 0.03}, {0.0, 1.0}, {16.0, 2.0}};
    for (std::size_t which = 0; which < quantities.size(); ++which) {
        Statistics const found = statistics(quantities[which]);
        std::printf("%.4f +- %.4f\n", found.mean, found.deviation);
        EXPECT_NEAR(found.mean, expected[which].mean, 0.015 * expected[which].deviation) << which;
        EXPECT_NEAR(found.deviation, expected[which].deviation, 0.01 * expected[which].deviation);
        for (std::size_t other = 0; other < which; ++other) {
            EXPECT_NEAR(correlation(quantities[which], quantities[other]), 0.0, 0.015);
        }
    }
    EXPECT_EQ(sensor.model, Calibration_model::pixel);
    EXPECT_EQ(maps.region, region_of(maps.sensor));
    EXPECT_EQ(maps.bit_depth, 12);
    EXPECT_TRUE(maps.bad_pixels.empty());
    EXPECT_EQ(sensor.noise, (Noise_model{10500.0 / 4095.0, 2.4}));
}

TEST(Imperfect_pixels, figures_stay_in_their_ranges_however_wide_the_spread) {
    Pixel_spread spread;
    spread.gain_spread = 0.2;
    spread.orientation_spread = 5.0;
    spread.diattenuation_spread = 0.2;
    spread.dark_level = spread.dark_spread = 4095.0 / 4.0;
    Calibration_maps const maps = *imperfect_pixels(settings_of(300, 200), spread).maps;
    for (std::size_t index = 0; index < maps.throughput.size(); ++index) {
        ASSERT_GT(maps.throughput[index], 0.0F);
        ASSERT_GE(maps.diattenuation[index], 0.1F);
        ASSERT_LE(maps.diattenuation[index], 1.0F);
        ASSERT_GE(maps.orientation[index], 0.0F);
        ASSERT_LT(maps.orientation[index], 180.0F);
        ASSERT_GE(maps.dark_level[index], 0.0F);
        ASSERT_LT(maps.dark_level[index], 4095.0F);
    }
    std::printf("%zu pixels\n", maps.throughput.size());
}

TEST(Imperfect_pixels, without_spread_pixels_are_those_of_their_positions) {
    Simulation_settings settings = settings_of(8, 6, 1);
    settings.analysers = imperfect_analysers(1, {});
    Pixel_spread const none{0.0, 0.0, 0.0, 0.5, 7.0, 0.0, 0.0, 0.0, 1};
    Calibration const sensor = imperfect_pixels(settings, none);
    for (std::size_t index = 0; index < 48; ++index) {
        Analyser const& analyser = (*settings.analysers)[cell_position(index / 8, index % 8)];
        EXPECT_EQ(sensor.maps->throughput[index], static_cast<float>(analyser.throughput));
        EXPECT_EQ(sensor.maps->diattenuation[index], static_cast<float>(analyser.diattenuation));
        EXPECT_EQ(sensor.maps->orientation[index], static_cast<float>(analyser.orientation));
        EXPECT_EQ(sensor.maps->dark_level[index], 7.0F);
    }
}

TEST(Imperfect_pixels, a_smaller_sensor_is_a_part_of_a_larger_one) {
    Pixel_spread spread;
    spread.hot_pixels = 0.02;
    spread.dead_pixels = 0.02;
    Calibration_maps const large = *imperfect_pixels(settings_of(60, 50), spread).maps;
    Calibration_maps const small = *imperfect_pixels(settings_of(31, 22), spread).maps;
    std::vector<std::uint32_t> bad;
    for (std::size_t index = 0; index < small.dark_level.size(); ++index) {
        std::size_t const same = index / 31 * 60 + index % 31;
        ASSERT_EQ(small.throughput[index], large.throughput[same]);
        ASSERT_EQ(small.diattenuation[index], large.diattenuation[same]);
        ASSERT_EQ(small.orientation[index], large.orientation[same]);
        ASSERT_EQ(small.dark_level[index], large.dark_level[same]);
        if (std::binary_search(large.bad_pixels.begin(), large.bad_pixels.end(), same)) {
            bad.push_back(static_cast<std::uint32_t>(index));
        }
    }
    EXPECT_EQ(small.bad_pixels, bad);
    EXPECT_FALSE(bad.empty());
    spread.seed = 2;
    EXPECT_NE(imperfect_pixels(settings_of(31, 22), spread).maps->throughput, small.throughput);
}

TEST(Imperfect_pixels, hot_and_dead_pixels_are_as_many_as_asked_for) {
    Pixel_spread spread;
    spread.hot_pixels = 0.01;
    spread.dead_pixels = 0.03;
    Calibration_maps const maps = *imperfect_pixels(settings_of(400, 300), spread).maps;
    auto const hot = std::count(maps.dark_level.begin(), maps.dark_level.end(), 4095.0F);
    std::printf("%zu bad, %td of them hot\n", maps.bad_pixels.size(), hot);
    EXPECT_NEAR(static_cast<double>(hot), 1200.0, 110.0);
    EXPECT_NEAR(static_cast<double>(maps.bad_pixels.size()), 4800.0, 210.0);
    EXPECT_TRUE(std::is_sorted(maps.bad_pixels.begin(), maps.bad_pixels.end()));
}

TEST(Imperfect_pixels, spreads_out_of_range_are_refused_by_name) {
    double const nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<std::pair<double Pixel_spread::*, char const*>> const figures = {
        {&Pixel_spread::gain_spread, "gain_spread is"},
        {&Pixel_spread::orientation_spread, "orientation_spread is"},
        {&Pixel_spread::diattenuation_spread, "diattenuation_spread is"},
        {&Pixel_spread::mean_diattenuation, "mean_diattenuation is"},
        {&Pixel_spread::dark_level, "dark_level is"},
        {&Pixel_spread::dark_spread, "dark_spread is"},
        {&Pixel_spread::hot_pixels, "hot_pixels is"},
        {&Pixel_spread::dead_pixels, "dead_pixels is"}};
    for (auto const& [figure, words] : figures) {
        for (double const value : {nan, -0.1, 1e5}) {
            Pixel_spread spread;
            spread.*figure = value;
            try {
                imperfect_pixels(settings_of(4, 4), spread);
                ADD_FAILURE() << words << " " << value;
            } catch (Argument_error const& error) {
                EXPECT_EQ(std::string(error.what()).find(words), 0U) << error.what();
            }
        }
    }
}

TEST(Imperfect_pixels, what_a_check_throws_ends_the_draw_at_once) {
    std::size_t rows = 0;
    Stop_check const stop = [&] {
        if (++rows == 3) {
            throw 0;
        }
    };
    EXPECT_THROW(imperfect_pixels(settings_of(10, 100), {}, stop), int);
    EXPECT_EQ(rows, 3U);
}

} // namespace
