// Calibrations of single pixels from simulated series: the maps that went in come out, bad pixels
// are found and none else, the table of models tells them apart, and what cannot be right is
// refused with a remedy.

#include "pixel_sensor.hpp"
#include "refusal.hpp"

#include "veldrane_mrv/polarization/calibration_estimate.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <string>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr Size size{40, 30};
constexpr double level_of_16_bits = 55000;
constexpr double level_of_12_bits = 3200;

Pixel_calibration_options options_for(Pixel_sensor const& sensor) {
    Pixel_calibration_options options;
    options.estimation.bit_depth = sensor.truth.bit_depth;
    options.sensor = sensor.truth.sensor;
    options.region = sensor.truth.region;
    options.dark_levels = sensor.truth.dark_level;
    return options;
}

// Changes a frame before it is used.
using Change = std::function<void(std::vector<std::uint16_t>& samples, double angle)>;

struct Series_run {
    double level = level_of_12_bits;
    double step = 15;
    double electrons_per_unit = 0;
    std::optional<double> held_out_angle{};
    Change change = [](std::vector<std::uint16_t>&, double) {};
};

Measured_calibration measured(
    Pixel_sensor const& sensor, Pixel_calibration_options const& options, Series_run const& run,
    Calibration_model model = Calibration_model::pixel) {
    Pixel_calibration calibration{sensor.mosaic, options};
    for (double angle = 0; angle < 180; angle += run.step) {
        auto samples = sensor.frame(
            run.level, angle, run.electrons_per_unit, static_cast<std::uint64_t>(angle) + 1);
        run.change(samples, angle);
        auto const part = cut(samples, size, options.region);
        Uniform_frame const frame{
            {part, options.region.height, options.region.width},
            angle,
            1,
            "at " + std::to_string(static_cast<int>(angle))};
        if (run.held_out_angle == angle) {
            calibration.hold_out(frame);
        } else {
            calibration.add(frame);
        }
    }
    return calibration.finish(model);
}

double axis_distance(double left, double right) {
    return std::abs(std::remainder(left - right, 180));
}

struct Worst_errors {
    double throughput = 0;
    double diattenuation = 0;
    double orientation = 0;
};

// Over all pixels of the region that are not bad.
Worst_errors worst_errors(Pixel_sensor const& sensor, Calibration_maps const& found) {
    double mean_throughput = 0;
    for (float const throughput : sensor.truth.throughput) {
        mean_throughput +=
            static_cast<double>(throughput) / static_cast<double>(size.width * size.height);
    }
    Worst_errors worst;
    Region const& region = found.region;
    for (std::uint32_t pixel = 0; pixel < found.throughput.size(); ++pixel) {
        if (std::ranges::binary_search(found.bad_pixels, pixel)) {
            continue;
        }
        std::size_t const own =
            (region.row + pixel / region.width) * size.width + region.column + pixel % region.width;
        worst.throughput = std::max(
            worst.throughput,
            std::abs(
                static_cast<double>(found.throughput[pixel]) -
                static_cast<double>(sensor.truth.throughput[own]) / mean_throughput));
        worst.diattenuation = std::max(
            worst.diattenuation, std::abs(
                                     static_cast<double>(found.diattenuation[pixel]) -
                                     static_cast<double>(sensor.truth.diattenuation[own])));
        worst.orientation = std::max(
            worst.orientation, axis_distance(
                                   static_cast<double>(found.orientation[pixel]),
                                   static_cast<double>(sensor.truth.orientation[own])));
    }
    return worst;
}

TEST(Pixel_calibration, finds_the_analyser_of_every_pixel) {
    for (Mosaic const& mosaic : all_mosaics()) {
        Pixel_sensor const sensor{mosaic, size, 16};
        auto options = options_for(sensor);
        options.estimation.average = Average::mean;
        auto const found = measured(sensor, options, {.level = level_of_16_bits});
        Calibration_maps const& maps = *found.calibration.maps;
        EXPECT_EQ(found.calibration.model, Calibration_model::pixel);
        EXPECT_EQ(found.calibration.mosaic, mosaic);
        EXPECT_EQ(maps.sensor, size);
        EXPECT_EQ(maps.region, region_of(size));
        EXPECT_EQ(maps.bit_depth, 16);
        EXPECT_EQ(maps.dark_level, sensor.truth.dark_level);
        EXPECT_TRUE(maps.gain.empty());
        EXPECT_TRUE(maps.bad_pixels.empty());
        // Rounding of the samples is all that errs: 0.5 of about 27500 in each of 12.
        Worst_errors const worst = worst_errors(sensor, maps);
        EXPECT_LT(worst.throughput, 2e-5);
        EXPECT_LT(worst.diattenuation, 3e-5);
        EXPECT_LT(worst.orientation, 1e-3);
        EXPECT_LT(std::ranges::max(found.residuals), 2e-5F);
    }
}

TEST(Pixel_calibration, a_region_with_an_odd_corner_is_a_cut_of_the_sensor) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 16};
    auto options = options_for(sensor);
    options.estimation.average = Average::mean;
    options.region = {5, 3, 20, 17};
    options.dark_levels.clear();
    for (std::size_t row = 3; row < 20; ++row) {
        auto const first =
            sensor.truth.dark_level.begin() + static_cast<std::ptrdiff_t>(row * size.width + 5);
        options.dark_levels.insert(options.dark_levels.end(), first, first + 20);
    }
    auto const found = measured(sensor, options, {.level = level_of_16_bits});
    EXPECT_EQ(found.calibration.mosaic, sensor.mosaic);
    EXPECT_EQ(found.calibration.maps->region, options.region);
    Worst_errors const worst = worst_errors(sensor, *found.calibration.maps);
    EXPECT_LT(worst.throughput, 0.01); // relative to another mean
    EXPECT_LT(worst.diattenuation, 3e-5);
    EXPECT_LT(worst.orientation, 1e-3);
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_LT(
            axis_distance(
                found.calibration.analysers[position].orientation,
                sensor.mosaic.layout()[position]),
            1);
    }
}

TEST(Pixel_calibration, the_four_positions_are_those_of_the_estimate_from_means) {
    Pixel_sensor const sensor{Mosaic::from_phase(1), size, 12};
    auto options = options_for(sensor);
    options.estimation.region = Region{3, 2, 21, 18};
    options.estimation.dark_levels = {19, 20, 21, 22};
    std::vector<Series_point> series;
    for (double angle = 0; angle < 180; angle += 15) {
        auto const samples = sensor.frame(level_of_12_bits, angle);
        series.push_back(measure(
            {{samples, size.height, size.width}, angle, 1, std::to_string(angle)},
            options.estimation));
    }
    Calibration const expected = estimate_calibration(series, sensor.mosaic, options.estimation);
    for (Calibration_model const model : all_calibration_models) {
        auto const found = measured(sensor, options, {}, model).calibration;
        EXPECT_EQ(found.analysers, expected.analysers);
        EXPECT_EQ(found.matrices, expected.matrices);
        EXPECT_EQ(found.quality.source_level, expected.quality.source_level);
        EXPECT_EQ(found.model, model);
        EXPECT_EQ(found.maps == nullptr, model == Calibration_model::position);
    }
}

TEST(Pixel_calibration, gains_bring_pixels_to_the_throughput_of_their_position) {
    Pixel_sensor const sensor{Mosaic::from_phase(0), size, 16};
    auto const options = options_for(sensor);
    Series_run const run{.level = level_of_16_bits};
    auto const by_pixel = measured(sensor, options, run);
    auto const found = measured(sensor, options, run, Calibration_model::gain);
    Calibration_maps const& maps = *found.calibration.maps;
    EXPECT_TRUE(maps.throughput.empty() && maps.diattenuation.empty() && maps.orientation.empty());
    ASSERT_EQ(maps.gain.size(), size.width * size.height);
    for (std::size_t pixel = 0; pixel < maps.gain.size(); ++pixel) {
        std::size_t const position = cell_position(pixel / size.width, pixel % size.width);
        EXPECT_NEAR(
            maps.gain[pixel] * by_pixel.calibration.maps->throughput[pixel],
            found.calibration.analysers[position].throughput, 1e-6);
    }
    EXPECT_EQ(found.residuals, by_pixel.residuals);
}

TEST(Pixel_calibration, dark_levels_by_position_are_means_of_the_map) {
    Pixel_sensor const sensor{Mosaic::from_phase(0), size, 12};
    auto options = options_for(sensor);
    for (std::size_t pixel = 0; pixel < options.dark_levels.size(); ++pixel) {
        options.dark_levels[pixel] = static_cast<float>(pixel % 2);
    }
    auto const found = measured(sensor, options, {}).calibration;
    EXPECT_EQ(found.analysers[0].dark_level, 0);
    EXPECT_EQ(found.analysers[3].dark_level, 1);
    options.dark_levels.clear();
    auto const unknown = measured(sensor, options, {}).calibration;
    EXPECT_FALSE(unknown.analysers[0].dark_level);
    EXPECT_EQ(unknown.maps->dark_level, std::vector<float>(size.width * size.height));
    EXPECT_EQ(std::ranges::count(unknown.quality.flags, Quality_flag::dark_level_unknown), 1);
}

TEST(Pixel_calibration, finds_each_kind_of_bad_pixel_and_none_else) {
    Pixel_sensor sensor{Mosaic::from_phase(3), size, 12};
    auto const place = [](std::size_t row, std::size_t column) {
        return static_cast<std::uint32_t>(row * size.width + column);
    };
    std::uint32_t const hot = place(1, 7);
    std::uint32_t const dead = place(4, 4);
    std::uint32_t const weak = place(4, 19);
    std::uint32_t const strong = place(6, 30);
    std::uint32_t const bare = place(9, 2);
    std::uint32_t const turned_pixel = place(13, 13);
    std::uint32_t const noisy = place(17, 0);
    std::uint32_t const saturated = place(20, 35);
    std::uint32_t const known = place(29, 11);
    sensor.truth.dark_level[hot] = 300;
    sensor.truth.throughput[weak] *= 0.45F;
    sensor.truth.throughput[strong] *= 1.6F;
    sensor.truth.diattenuation[bare] = 0.1F;
    sensor.truth.orientation[turned_pixel] =
        std::fmod(sensor.truth.orientation[turned_pixel] + 45, 180.0F);
    auto options = options_for(sensor);
    options.estimation.dark_levels = {20, 20, 20, 20};
    options.bad_pixels = {known};
    Series_run run{.level = 2200, .electrons_per_unit = 5};
    run.change = [&](std::vector<std::uint16_t>& samples, double angle) {
        samples[dead] = 0;
        samples[noisy] = static_cast<std::uint16_t>(
            samples[noisy] + (static_cast<int>(angle) / 15 % 2 == 0 ? 500 : 0));
        if (angle == 30) {
            samples[saturated] = 4095;
        }
    };
    auto const found = measured(sensor, options, run);
    Calibration_maps const& maps = *found.calibration.maps;
    EXPECT_EQ(
        maps.bad_pixels,
        (std::vector<std::uint32_t>{
            hot, dead, weak, strong, bare, turned_pixel, noisy, saturated, known}));
    EXPECT_EQ(found.bad_pixels, (Bad_pixel_counts{1, 1, 1, 3, 2, 1}));
    for (std::uint32_t const pixel : maps.bad_pixels) {
        Analyser const& analyser =
            found.calibration.analysers[cell_position(pixel / size.width, pixel % size.width)];
        EXPECT_EQ(maps.dark_level[pixel], 20);
        EXPECT_NEAR(maps.throughput[pixel], analyser.throughput, 1e-6);
        EXPECT_NEAR(maps.diattenuation[pixel], analyser.diattenuation, 1e-6);
        EXPECT_LT(
            axis_distance(static_cast<double>(maps.orientation[pixel]), analyser.orientation),
            1e-4);
    }
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration_maps const all = *measured(sensor, options, run, model).calibration.maps;
        for (auto const* map : {&all.gain, &all.throughput}) {
            EXPECT_TRUE(std::ranges::all_of(*map, [](float value) { return value > 0; }));
        }
    }
}

TEST(Pixel_calibration, each_model_explains_the_frame_held_out_better_than_the_one_before) {
    Pixel_sensor const sensor{
        Mosaic::from_phase(2), size, 12, {.throughput = 0.04, .diattenuation = 0.02}};
    Series_run const run{.electrons_per_unit = 100, .held_out_angle = 90};
    auto const found = measured(sensor, options_for(sensor), run);
    auto const& models = found.calibration.quality.models;
    ASSERT_EQ(models.size(), 3U);
    EXPECT_EQ(found.calibration.quality.held_out_frame, "at 90");
    EXPECT_EQ(found.calibration.quality.frame_count, 12U);
    for (std::size_t model = 0; model < models.size(); ++model) {
        EXPECT_EQ(models[model].model, all_calibration_models[model]);
    }
    EXPECT_GT(models[0].rms_degree_error, 1.3 * models[1].rms_degree_error);
    EXPECT_GT(models[1].rms_degree_error, 5 * models[2].rms_degree_error);
    EXPECT_GT(models[0].rms_angle_error_degrees, 1.3 * models[1].rms_angle_error_degrees);
    EXPECT_GT(models[1].rms_angle_error_degrees, 5 * models[2].rms_angle_error_degrees);
    EXPECT_GT(models[0].rms_sample_residual, models[1].rms_sample_residual);
    EXPECT_GT(models[1].rms_sample_residual, models[2].rms_sample_residual);
    // The shot noise of 160,000 electrons in a sample.
    EXPECT_LT(models[2].rms_sample_residual, 0.004);
    EXPECT_LT(models[2].rms_degree_error, 0.004);
    EXPECT_LT(models[2].rms_angle_error_degrees, 0.15);
}

TEST(Pixel_calibration, the_frame_held_out_is_in_the_maps) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 12};
    auto const options = options_for(sensor);
    Series_run run{.electrons_per_unit = 100};
    auto const all = measured(sensor, options, run);
    run.held_out_angle = 90;
    auto const held_out = measured(sensor, options, run);
    EXPECT_TRUE(all.calibration.quality.models.empty());
    EXPECT_EQ(held_out.calibration.provenance.sources, all.calibration.provenance.sources);
    EXPECT_EQ(held_out.calibration.analysers, all.calibration.analysers);
    auto const& left = held_out.calibration.maps->throughput;
    auto const& right = all.calibration.maps->throughput;
    for (std::size_t pixel = 0; pixel < left.size(); ++pixel) {
        EXPECT_NEAR(left[pixel], right[pixel], 1e-6); // the order of the sums
    }
}

TEST(Pixel_calibration, the_frame_to_hold_out_leaves_angles_enough) {
    EXPECT_EQ(frame_to_hold_out(std::vector<double>{150, 0, 120, 30, 90, 60}), 4U);
    EXPECT_EQ(frame_to_hold_out(std::vector<double>{0, 45, 90, 135}), 2U);
    EXPECT_EQ(frame_to_hold_out(std::vector<double>{0, 60, 120}), std::nullopt);
    // Without 90 there would be a gap of 130.
    EXPECT_EQ(frame_to_hold_out(std::vector<double>{0, 10, 90, 140, 150}), 3U);
    EXPECT_EQ(frame_to_hold_out(std::vector<double>{}), std::nullopt);
}

TEST(Pixel_calibration, refuses_what_cannot_be_measured) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 12};
    auto const options = options_for(sensor);
    auto const refusal = [&](Series_run const& run) {
        return refusal_of([&] { measured(sensor, options, run); });
    };
    EXPECT_EQ(
        refusal({.step = 90}), "number of different polariser angles is 2; give frames at three "
                               "angles or more; angles 180 degrees apart count once");
    EXPECT_EQ(
        refusal({.step = 60, .held_out_angle = 60}),
        "frame to hold out is at 60; hold out another one or none, or give more angles: the others "
        "do not tell the analysers");
    EXPECT_EQ(
        refusal({.change = [](auto& samples, double) { samples[5] = 4096; }}),
        "largest sample of at 0 is 4096; give frames of 12 bits, or the bit depth that all of them "
        "have");
    EXPECT_EQ(refusal({.level = 4300}).substr(0, 36), "share of saturated samples of at 0 i");
    Pixel_calibration calibration{sensor.mosaic, options};
    auto const samples = sensor.frame(level_of_12_bits, 0);
    Uniform_frame const other{{samples, size.width, size.height}, 0, 1, "other.png"};
    EXPECT_EQ(
        refusal_of([&] { calibration.add(other); }),
        "size of other.png is 30 x 40; give frames of 40 x 30, as the others of the series");
    EXPECT_TRUE(calibration.series().empty());
    Uniform_frame const frame{{samples, size.height, size.width}, 0, 1, "a.png"};
    calibration.hold_out(frame);
    EXPECT_EQ(
        refusal_of([&] { calibration.hold_out(frame); }),
        "frame to hold out besides a.png is a.png; hold out one");
}

TEST(Pixel_calibration, refuses_options_of_another_sensor) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 12};
    auto const refusal = [&](auto const& change) {
        auto options = options_for(sensor);
        change(options);
        return refusal_of([&] { Pixel_calibration{sensor.mosaic, options}; });
    };
    EXPECT_EQ(
        refusal([](auto& options) { options.region.column = 1; }),
        "region is 40 x 30 at column 1, row 0; give at least 2 x 2 within the sensor's 40 x 30");
    EXPECT_EQ(
        refusal([](auto& options) { options.dark_levels.pop_back(); }),
        "number of dark levels is 1199; give one for each of the 40 x 30 pixels");
    for (float const level :
         {std::numeric_limits<float>::quiet_NaN(), -1.0F, 4096.0F,
          std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(
            refusal([level](auto& options) { options.dark_levels[44] = level; }),
            "dark level of row 1, column 4 is " + std::to_string(level) +
                "; give levels of 0 to 4095, from dark frames of this sensor");
    }
    EXPECT_EQ(
        refusal([](auto& options) { options.bad_pixels = {1200}; }),
        "bad pixel is 1200; give row * 40 + column of pixels in 40 x 30");
    EXPECT_EQ(
        refusal([](auto& options) { options.estimation.bit_depth = 17; }),
        "bit depth is 17; give 1 to 16");
}

} // namespace
} // namespace client_test
