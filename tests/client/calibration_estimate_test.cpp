// Calibrations estimated from simulated series: the analysers that went in come out, figures and
// flags say what happened, and what cannot be right is refused with a remedy.

#include "simulated_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <limits>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr double source_level = 3200;

Estimation_options options_for(Simulated_sensor const& sensor) {
    Estimation_options options;
    options.bit_depth = sensor.bit_depth;
    options.dark_levels = std::array<double, 4>{};
    return options;
}

Calibration estimate(Simulated_series const& series, Simulated_sensor const& sensor) {
    return estimate_calibration(series.frames(), sensor.mosaic, options_for(sensor));
}

bool has(Calibration const& calibration, Quality_flag flag) {
    return std::ranges::count(calibration.quality.flags, flag) == 1;
}

double axis_distance(double left, double right) {
    return std::abs(std::remainder(left - right, 180));
}

struct Refusal {
    std::string argument;
    std::string value;
    std::string remedy;
};

Refusal refusal_of(std::function<void()> const& call) {
    try {
        call();
    } catch (Argument_error const& error) {
        return {error.argument(), error.value(), error.remedy()};
    }
    return {"nothing", "", ""};
}

Refusal refusal_of(Simulated_series const& series, Simulated_sensor const& sensor) {
    return refusal_of([&] { estimate(series, sensor); });
}

testing::AssertionResult contains(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos
               ? testing::AssertionSuccess()
               : testing::AssertionFailure() << "\"" << text << "\" lacks \"" << part << '"';
}

TEST(Calibration_estimate, finds_the_analysers_of_40_sensors) {
    double worst_throughput = 0;
    double worst_diattenuation = 0;
    double worst_orientation = 0;
    std::size_t sensors = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (std::uint64_t seed = 1; seed <= 10; ++seed, ++sensors) {
            auto const sensor = Simulated_sensor::imperfect(mosaic, seed);
            Calibration const found = estimate({sensor, source_level, 10}, sensor);
            for (std::size_t position = 0; position < 4; ++position) {
                Analyser const& is = found.analysers[position];
                Analyser const& was = sensor.analysers[position];
                worst_throughput =
                    std::max(worst_throughput, std::abs(is.throughput - was.throughput));
                worst_diattenuation =
                    std::max(worst_diattenuation, std::abs(is.diattenuation - was.diattenuation));
                worst_orientation =
                    std::max(worst_orientation, axis_distance(is.orientation, was.orientation));
            }
            EXPECT_TRUE(found.quality.flags.empty());
        }
    }
    std::cout << sensors << " sensors, largest errors: throughput " << worst_throughput
              << ", diattenuation " << worst_diattenuation << ", orientation " << worst_orientation
              << " degrees\n";
    // Rounding of the samples to whole numbers is all that errs: 0.5 of about 1600.
    EXPECT_LT(worst_throughput, 0.0003);
    EXPECT_LT(worst_diattenuation, 0.0004);
    EXPECT_LT(worst_orientation, 0.02);
}

TEST(Calibration_estimate, figures_describe_the_series) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(2), 5);
    Calibration const found = estimate({sensor, source_level, 15}, sensor);
    EXPECT_EQ(found.mosaic, sensor.mosaic);
    EXPECT_EQ(found.quality.frame_count, 12U);
    EXPECT_NEAR(found.quality.worst_angle_gap, 15, 1e-9);
    EXPECT_NEAR(found.quality.source_level, source_level, 1);
    EXPECT_GT(found.quality.condition_number, std::sqrt(2.0));
    EXPECT_LT(found.quality.condition_number, 2);
    EXPECT_GT(found.quality.rms_residual, 0);
    EXPECT_LT(found.quality.rms_residual, 0.0005);
    EXPECT_EQ(found.provenance.sources.size(), 12U);
    EXPECT_EQ(found.provenance.sources[1], "at 15.000000");
    EXPECT_EQ(found.provenance.software_version, software_version());
    EXPECT_EQ(found.provenance.time.size(), 20U);
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_NEAR(
            expected_mean(found, position, 30),
            sensor.signal(position, polarised_light(source_level, 1, 30)), 1);
    }
}

TEST(Calibration_estimate, the_mean_throughput_is_1_whatever_the_source) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(1), 2);
    for (double const level : {900.0, 1800.0, 3600.0}) {
        Calibration const found = estimate({sensor, level, 20}, sensor);
        double mean = 0;
        for (Analyser const& analyser : found.analysers) {
            mean += analyser.throughput / 4;
        }
        EXPECT_NEAR(mean, 1, 1e-12);
        EXPECT_NEAR(found.quality.source_level, level, 1);
    }
}

TEST(Calibration_estimate, source_intensities_and_degree_are_taken_into_account) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 3);
    std::vector<Series_point> series;
    for (int index = 0; index < 12; ++index) {
        double const intensity = 1 - 0.05 * index;
        double const angle = 15.0 * index;
        Series_point point{angle, intensity, {}, {8, 8}, ""};
        for (std::size_t position = 0; position < 4; ++position) {
            point.means[position] =
                sensor.signal(position, polarised_light(2000 * intensity, 0.9, angle));
        }
        series.push_back(point);
    }
    Estimation_options options = options_for(sensor);
    options.source_degree = 0.9;
    Calibration const found = estimate_calibration(series, sensor.mosaic, options);
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_NEAR(
            found.analysers[position].diattenuation, sensor.analysers[position].diattenuation,
            1e-12);
    }
    EXPECT_NEAR(found.quality.rms_residual, 0, 1e-12);
}

TEST(Calibration_estimate, hot_and_dead_samples_do_not_move_the_trimmed_mean) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(3), 4);
    Simulated_series series{sensor, source_level, 10};
    Calibration const clean = estimate(series, sensor);
    std::mt19937_64 random{7};
    for (std::size_t frame = 0; frame < series.frames().size(); ++frame) {
        for (std::uint16_t& sample : series.samples(frame)) {
            auto const draw = random() % 100;
            sample = draw == 0 ? 4094 : draw == 1 ? 0 : sample;
        }
    }
    EXPECT_EQ(estimate(series, sensor).matrices, clean.matrices);
    Estimation_options options = options_for(sensor);
    options.average = Average::mean;
    EXPECT_NE(
        estimate_calibration(series.frames(), sensor.mosaic, options).matrices, clean.matrices);
}

TEST(Calibration_estimate, a_region_leaves_out_the_rest_of_the_frame) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 6);
    Simulated_series series{sensor, source_level, 20};
    Calibration const clean = estimate(series, sensor);
    for (std::size_t frame = 0; frame < series.frames().size(); ++frame) {
        std::fill_n(
            series.samples(frame).begin(), 20 * Simulated_series::width, std::uint16_t{100});
    }
    Estimation_options options = options_for(sensor);
    options.region = Region{3, 21, 51, 40};
    Calibration const found = estimate_calibration(series.frames(), sensor.mosaic, options);
    EXPECT_EQ(found.matrices, clean.matrices);
    EXPECT_NE(estimate(series, sensor).matrices, clean.matrices);
}

TEST(Calibration_estimate, dark_levels_are_taken_off) {
    auto sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 6);
    Calibration const clean = estimate({sensor, source_level, 20}, sensor);
    std::array<double, 4> const levels = {64, 70, 61, 66};
    for (std::size_t position = 0; position < 4; ++position) {
        sensor.analysers[position].dark_level = levels[position];
    }
    Simulated_series const series{sensor, source_level, 20};
    Estimation_options options = options_for(sensor);
    options.dark_levels = levels;
    Calibration const found = estimate_calibration(series.frames(), sensor.mosaic, options);
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_NEAR(
            found.analysers[position].diattenuation, clean.analysers[position].diattenuation, 1e-9);
        EXPECT_EQ(found.analysers[position].dark_level, levels[position]);
    }
    options.dark_levels.reset();
    Calibration const unknown = estimate_calibration(series.frames(), sensor.mosaic, options);
    EXPECT_TRUE(has(unknown, Quality_flag::dark_level_unknown));
    EXPECT_LT(
        unknown.analysers[0].diattenuation, clean.analysers[0].diattenuation * (1 - 60 / 1700.0));
}

TEST(Calibration_estimate, weak_series_are_flagged) {
    auto sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 8);
    EXPECT_TRUE(has(estimate({sensor, source_level, 45}, sensor), Quality_flag::few_frames));
    Calibration const three = estimate({sensor, source_level, 60}, sensor);
    EXPECT_EQ(three.quality.rms_residual, 0);
    EXPECT_FALSE(has(three, Quality_flag::wide_angle_gap));

    Simulated_series wide{sensor, source_level, 10};
    wide.frames().erase(wide.frames().begin() + 4, wide.frames().begin() + 11);
    EXPECT_TRUE(has(estimate(wide, sensor), Quality_flag::wide_angle_gap));

    Simulated_series unsteady{sensor, source_level, 10};
    for (auto& sample : unsteady.samples(3)) {
        sample = static_cast<std::uint16_t>(sample * 8 / 10);
    }
    EXPECT_TRUE(has(estimate(unsteady, sensor), Quality_flag::large_residual));

    sensor.analysers[2].diattenuation = 0.3;
    EXPECT_TRUE(
        has(estimate({sensor, source_level, 10}, sensor), Quality_flag::weak_diattenuation));
    for (Analyser& analyser : sensor.analysers) {
        analyser.diattenuation = 0.3;
    }
    EXPECT_TRUE(has(estimate({sensor, source_level, 10}, sensor), Quality_flag::poor_conditioning));
    for (Analyser& analyser : sensor.analysers) {
        analyser.diattenuation = 1.05;
    }
    EXPECT_TRUE(
        has(estimate({sensor, source_level, 10}, sensor), Quality_flag::diattenuation_above_one));
}

TEST(Calibration_estimate, too_few_or_too_close_angles_are_refused) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 8);
    Simulated_series const two{sensor, source_level, 90};
    EXPECT_EQ(refusal_of(two, sensor).argument, "number of different polariser angles");
    EXPECT_EQ(refusal_of(two, sensor).value, "2");
    EXPECT_EQ(
        refusal_of([&] {
            estimate_calibration(std::span<Series_point const>{}, sensor.mosaic, {});
        }).value,
        "0");

    Simulated_series repeated{sensor, source_level, 60};
    repeated.frames()[2].polariser_angle = 180;
    EXPECT_EQ(refusal_of(repeated, sensor).value, "2");

    Simulated_series close{sensor, source_level, 10};
    close.frames().resize(6, close.frames().front());
    Refusal const refusal = refusal_of(close, sensor);
    EXPECT_EQ(refusal.argument, "largest gap between polariser angles");
    EXPECT_EQ(refusal.value, "130 degrees");
}

TEST(Calibration_estimate, saturated_and_dark_frames_are_refused_by_name) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 8);
    Refusal const bright = refusal_of({sensor, 4600, 10}, sensor);
    EXPECT_TRUE(contains(bright.argument, "saturated samples of at 0.0"));
    EXPECT_TRUE(contains(bright.remedy, "shorten the exposure"));
    Refusal const dark = refusal_of({sensor, 70, 10}, sensor);
    EXPECT_TRUE(contains(dark.argument, "mean sample above dark of at 0.0"));
    EXPECT_TRUE(contains(dark.remedy, "more light"));
}

TEST(Calibration_estimate, frames_of_unequal_size_are_refused) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 8);
    Simulated_series series{sensor, source_level, 20};
    Uniform_frame& frame = series.frames()[4];
    frame.frame = Frame_view{frame.frame.data(), 64, 94};
    Refusal const refusal = refusal_of(series, sensor);
    EXPECT_EQ(refusal.argument, "size of frame 4");
    EXPECT_EQ(refusal.value, "94 x 64");
    EXPECT_TRUE(contains(refusal.remedy, "96 x 64"));
}

TEST(Calibration_estimate, every_wrong_mosaic_is_refused_with_the_right_one) {
    std::size_t refused = 0;
    for (Mosaic const& truth : all_mosaics()) {
        auto sensor = Simulated_sensor::imperfect(truth, 9);
        Simulated_series const series{sensor, source_level, 10};
        for (Mosaic const& wrong : all_mosaics()) {
            sensor.mosaic = wrong;
            Refusal const refusal = refusal_of(series, sensor);
            if (wrong == truth) {
                EXPECT_EQ(refusal.argument, "nothing");
                continue;
            }
            EXPECT_EQ(refusal.argument, "fitted orientation of the mosaic " + wrong.to_string());
            EXPECT_TRUE(contains(refusal.remedy, truth.to_string()));
            ++refused;
        }
    }
    std::cout << refused << " pairs of mosaics refused\n";
}

TEST(Calibration_estimate, a_polariser_read_wrongly_is_told) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 9);
    Simulated_series backwards{sensor, source_level, 10};
    Simulated_series shifted{sensor, source_level, 10};
    Simulated_series still{sensor, source_level, 10};
    for (std::size_t frame = 0; frame < backwards.frames().size(); ++frame) {
        backwards.frames()[frame].polariser_angle *= -1;
        shifted.frames()[frame].polariser_angle += 22;
        std::ranges::copy(still.samples(0), still.samples(frame).begin());
    }
    EXPECT_TRUE(contains(refusal_of(backwards, sensor).remedy, "other sense"));
    EXPECT_TRUE(contains(refusal_of(shifted, sensor).remedy, "off by 2"));
    EXPECT_TRUE(contains(refusal_of(still, sensor).argument, "diattenuation of position 0"));
}

TEST(Calibration_estimate, a_common_offset_is_told_and_flagged_from_2_degrees_on) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(2), 9);
    double const own = common_offset(sensor.analysers, sensor.mosaic);
    for (double const turn : {-11.0, -2.0, -1.8, 0.0, 1.8, 2.0, 5.0, 11.0}) {
        Simulated_series turned{sensor, source_level, 15};
        for (Uniform_frame& frame : turned.frames()) {
            frame.polariser_angle += turn - own;
        }
        Calibration const found = estimate(turned, sensor);
        EXPECT_NEAR(common_offset(found.analysers, found.mosaic), turn, 0.02);
        EXPECT_EQ(has(found, Quality_flag::orientation_offset), std::abs(turn) >= 2) << turn;
        EXPECT_TRUE(found.quality.outlying_frames.empty()) << turn;
    }
}

TEST(Calibration_estimate, frames_that_do_not_go_with_the_others_are_named) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(2), 9);
    for (double const step : {5.0, 15.0, 30.0, 36.0}) {
        Simulated_series series{sensor, source_level, step};
        series.frames()[2].polariser_angle += 5;
        Calibration const found = estimate(series, sensor);
        ASSERT_EQ(found.quality.outlying_frames.size(), 1U) << step;
        Outlying_frame const& frame = found.quality.outlying_frames[0];
        EXPECT_EQ(frame.source, series.frames()[2].source);
        EXPECT_EQ(frame.polariser_angle, series.frames()[2].polariser_angle);
        // 5 degrees off in a curve of 1 + D cos(2 (theta - phi)), D about 0.9.
        EXPECT_NEAR(frame.residual, 0.11, 0.015) << step;
    }
    Simulated_series two{sensor, source_level, 10};
    two.frames()[1].polariser_angle += 2;
    two.frames()[9].polariser_angle -= 8;
    two.frames()[9].source = "";
    auto const named = estimate(two, sensor).quality.outlying_frames;
    ASSERT_EQ(named.size(), 2U);
    EXPECT_EQ(named[0].source, "frame 9");
    EXPECT_EQ(named[1].source, two.frames()[1].source);
    EXPECT_GT(named[0].residual, 2 * named[1].residual);
    for (std::size_t frame = 0; frame < two.frames().size(); frame += 2) {
        two.frames()[frame].source_intensity = 1.1;
    }
    EXPECT_EQ(estimate(two, sensor).quality.outlying_frames.size(), 4U);
    // Four frames can tell that they do not go together, but not which is wrong.
    Simulated_series four{sensor, source_level, 45};
    four.frames()[1].polariser_angle += 5;
    Calibration const found = estimate(four, sensor);
    EXPECT_TRUE(has(found, Quality_flag::large_residual));
    EXPECT_TRUE(found.quality.outlying_frames.empty());
}

TEST(Calibration_estimate, numbers_that_are_not_usable_are_refused) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(0), 9);
    auto const refused = [&](auto const& change) {
        Simulated_series changed{sensor, source_level, 20};
        Estimation_options options = options_for(sensor);
        change(changed.frames()[2], options);
        return refusal_of([&] { estimate_calibration(changed.frames(), sensor.mosaic, options); })
            .argument;
    };
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(
        refused([](auto& frame, auto&) { frame.polariser_angle = nan; }),
        "polariser angle of at 40.000000");
    EXPECT_EQ(
        refused([](auto& frame, auto&) { frame.source_intensity = 0; }),
        "source intensity of at 40.000000");
    EXPECT_EQ(refused([](auto&, auto& options) { options.source_degree = 0; }), "source degree");
    EXPECT_EQ(refused([](auto&, auto& options) { options.source_degree = nan; }), "source degree");
    EXPECT_EQ(refused([](auto&, auto& options) { options.bit_depth = 17; }), "bit depth");
    for (double const degrees : {0.0, 22.6, nan}) {
        EXPECT_EQ(
            refused([=](auto&, auto& options) { options.largest_misalignment = degrees; }),
            "largest misalignment");
    }
    EXPECT_TRUE(contains(
        refused([](auto&, auto& options) {
            options.region = Region{0, 63, 2, 2};
        }),
        "region"));
    EXPECT_TRUE(contains(
        refused([](auto&, auto& options) {
            options.region = Region{0, 0, 9, 1};
        }),
        "region"));
}

} // namespace
} // namespace client_test
