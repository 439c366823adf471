// Frames of sensors whose pixels differ.
#include "veldrane_mrv/polarization/sensor_pixels.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/imperfect_pixels.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

namespace {

namespace polarization = veldrane_mrv::polarization;
using namespace polarization;

Simulation_settings small_settings() {
    Simulation_settings settings;
    settings.width = 41;
    settings.height = 30;
    settings.bit_depth = 16;
    settings.noise = false;
    return settings;
}

// Malus' law with the figures of each pixel.
TEST(Sensor_pixels, samples_follow_the_maps) {
    Simulation_settings settings = small_settings();
    Pixel_spread spread;
    spread.dark_level = 300.0;
    spread.dark_spread = 40.0;
    Calibration const sensor = imperfect_pixels(settings, spread);
    Calibration_maps const& maps = *sensor.maps;
    settings.pixels = std::make_shared<Sensor_pixels const>(sensor);
    std::size_t checked = 0;
    for (double angle = 0.0; angle < 180.0; angle += 11.0) {
        auto const samples = record(uniform_light(settings, angle), settings).samples;
        for (std::size_t index = 0; index < samples.size(); ++index, ++checked) {
            double const apart = angle - static_cast<double>(maps.orientation[index]);
            double const expected = 0.8 * 65535.0 * static_cast<double>(maps.throughput[index]) /
                                        2.0 *
                                        (1.0 + static_cast<double>(maps.diattenuation[index]) *
                                                   std::cos(apart * std::numbers::pi / 90.0)) +
                                    static_cast<double>(maps.dark_level[index]);
            ASSERT_NEAR(samples[index], expected, 0.52) << index;
        }
    }
    std::printf("%zu samples checked\n", checked);
}

TEST(Sensor_pixels, gains_undo_throughputs_of_their_own) {
    Simulation_settings settings = small_settings();
    Calibration sensor = imperfect_pixels(settings, {});
    Calibration_maps maps = *sensor.maps;
    maps.gain = maps.throughput;
    for (float& gain : maps.gain) {
        gain = 1.0F / gain;
    }
    std::vector<float> const throughput = std::move(maps.throughput);
    maps.throughput = maps.diattenuation = maps.orientation = {};
    sensor.model = Calibration_model::gain;
    sensor.maps = std::make_shared<Calibration_maps const>(std::move(maps));
    settings.pixels = std::make_shared<Sensor_pixels const>(sensor);
    auto const samples = record(flat_light(settings, 0.5), settings).samples;
    for (std::size_t index = 0; index < samples.size(); ++index) {
        double const level = 0.5 * 65535.0 * static_cast<double>(throughput[index]) +
                             static_cast<double>(sensor.maps->dark_level[index]);
        ASSERT_NEAR(samples[index], level, 0.52) << index;
    }
}

TEST(Sensor_pixels, bad_pixels_do_not_see_light) {
    Simulation_settings settings = small_settings();
    Pixel_spread spread;
    spread.hot_pixels = spread.dead_pixels = 0.05;
    Calibration const sensor = imperfect_pixels(settings, spread);
    settings.pixels = std::make_shared<Sensor_pixels const>(sensor);
    auto const dark = record(flat_light(settings, 0.0), settings).samples;
    auto const bright = record(flat_light(settings, 0.5), settings).samples;
    std::vector<std::uint32_t> unmoved;
    for (std::uint32_t index = 0; index < dark.size(); ++index) {
        if (bright[index] == dark[index]) {
            unmoved.push_back(index);
        }
    }
    EXPECT_EQ(unmoved, sensor.maps->bad_pixels);
    EXPECT_EQ(*std::max_element(dark.begin(), dark.end()), 65535);
    std::printf("%zu bad pixels\n", unmoved.size());
}

// Half of the rows come out a rounding below 0.
TEST(Sensor_pixels, crossed_analysers_without_read_noise_give_their_dark_level) {
    Simulation_settings settings = small_settings();
    settings.noise = true;
    settings.read_noise = 0.0;
    settings.analysers = std::array<Analyser, 4>{
        Analyser{1.0, 1.0, 123.0, {}}, Analyser{1.0, 1.0, 168.0, {}}, Analyser{1.0, 1.0, 78.0, {}},
        Analyser{1.0, 1.0, 33.0, {}}};
    Pixel_spread const gains{0.02, 0.0, 0.0, 1.0, 500.0, 0.0, 0.0, 0.0, 1};
    settings.pixels = std::make_shared<Sensor_pixels const>(imperfect_pixels(settings, gains));
    auto const samples = record(uniform_light(settings, 33.0), settings).samples;
    for (std::size_t index = 0; index < samples.size(); ++index) {
        if (cell_position(index / settings.width, index % settings.width) == 0) {
            ASSERT_NEAR(samples[index], 500, 2) << index;
        }
    }
}

TEST(Sensor_pixels, maps_of_another_size_or_bit_depth_or_none_are_refused) {
    Simulation_settings settings = small_settings();
    Light const light = flat_light(settings, 0.5);
    settings.pixels = std::make_shared<Sensor_pixels const>(imperfect_pixels(settings, {}));
    settings.width = 30;
    settings.height = 41;
    EXPECT_THROW(record(light, settings), Argument_error);
    settings = small_settings();
    settings.pixels = std::make_shared<Sensor_pixels const>(imperfect_pixels(settings, {}));
    EXPECT_NO_THROW(record(light, settings));
    settings.bit_depth = 12;
    EXPECT_THROW(record(light, settings), Argument_error);
    EXPECT_THROW(Sensor_pixels{ideal_calibration(Mosaic::from_phase(0))}, Argument_error);
}

} // namespace
