// The figures that come with a calibration of single pixels mean what they say, at the edges of
// their ranges too.

#include "pixel_sensor.hpp"

#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr Size size{48, 32};
constexpr Spread alike{0, 0, 0, 0};

Pixel_calibration_options options_for(Pixel_sensor const& sensor) {
    Pixel_calibration_options options;
    options.estimation.bit_depth = sensor.truth.bit_depth;
    options.sensor = size;
    options.region = region_of(size);
    options.dark_levels = sensor.truth.dark_level;
    return options;
}

using Frame_of = std::function<std::vector<std::uint16_t>(double angle)>;

Measured_calibration measured(
    Pixel_sensor const& sensor, Pixel_calibration_options const& options, double step,
    Frame_of const& frame_of) {
    Pixel_calibration calibration{sensor.mosaic, options};
    for (double angle = 0; angle < 180; angle += step) {
        auto const samples = frame_of(angle);
        Uniform_frame const frame{{samples, size.height, size.width}, angle};
        if (angle == 90) {
            calibration.hold_out(frame);
        } else {
            calibration.add(frame);
        }
    }
    return calibration.finish(Calibration_model::pixel);
}

Frame_of frames_of(Pixel_sensor const& sensor, double level, double electrons_per_unit = 0) {
    return [=, &sensor](double angle) {
        return sensor.frame(
            level, angle, electrons_per_unit, static_cast<std::uint64_t>(angle) + 1);
    };
}

TEST(Pixel_calibration_figures, residuals_are_the_noise_of_the_samples) {
    Pixel_sensor const sensor{Mosaic::from_phase(0), size, 12};
    auto const found = measured(sensor, options_for(sensor), 15, frames_of(sensor, 3200, 5));
    double squares = 0;
    for (float const residual : found.residuals) {
        squares += static_cast<double>(residual * residual);
    }
    double const rms = std::sqrt(squares / static_cast<double>(found.residuals.size()));
    EXPECT_NEAR(rms / (std::sqrt(1600.0 / 5 + 1.0 / 12) / 1600), 1, 0.03);
    auto const of_three = measured(sensor, options_for(sensor), 60, frames_of(sensor, 3200, 5));
    EXPECT_EQ(of_three.residuals, std::vector<float>(size.width * size.height));
}

TEST(Pixel_calibration_figures, rounding_alone_makes_no_bad_pixel) {
    Pixel_sensor const sensor{Mosaic::from_phase(1), size, 12, alike};
    auto options = options_for(sensor);
    options.dark_levels[100] += 1;
    auto const found = measured(sensor, options, 15, frames_of(sensor, 3210));
    EXPECT_EQ(found.bad_pixels, Bad_pixel_counts{});
}

TEST(Pixel_calibration_figures, an_analyser_better_than_its_neighbours_can_be_is_none) {
    Pixel_sensor sensor{Mosaic::from_phase(1), size, 12, alike};
    std::ranges::fill(sensor.truth.diattenuation, 0.6F);
    sensor.truth.diattenuation[33] = 0.8F;
    sensor.truth.diattenuation[70] = 0.7F;
    auto const found = measured(sensor, options_for(sensor), 15, frames_of(sensor, 3200));
    EXPECT_EQ(found.calibration.maps->bad_pixels, std::vector<std::uint32_t>{33});
}

TEST(Pixel_calibration_figures, orientations_around_0_are_below_180) {
    Pixel_sensor const sensor{Mosaic::from_phase(3), size, 16, {0.02, 0, 0, 2}};
    auto const found = measured(sensor, options_for(sensor), 10, frames_of(sensor, 54321.7));
    for (float const orientation : found.calibration.maps->orientation) {
        EXPECT_TRUE(orientation >= 0 && orientation < 180) << orientation;
    }
}

TEST(Pixel_calibration_figures, the_degree_of_the_source_is_taken_into_account) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 12};
    Pixel_sensor seen = sensor; // light of 0.8 acts like an analyser of 0.8
    for (float& diattenuation : seen.truth.diattenuation) {
        diattenuation *= 0.8F;
    }
    auto options = options_for(sensor);
    options.estimation.source_degree = 0.8;
    auto const found = measured(sensor, options, 15, frames_of(seen, 3200));
    for (std::size_t pixel = 0; pixel < size.width * size.height; ++pixel) {
        EXPECT_NEAR(
            found.calibration.maps->diattenuation[pixel], sensor.truth.diattenuation[pixel], 1e-3);
    }
    ASSERT_EQ(found.calibration.quality.models.size(), 3U);
    EXPECT_LT(found.calibration.quality.models[2].rms_degree_error, 1e-3);
}

TEST(Pixel_calibration_figures, bad_and_dark_places_are_not_in_the_table) {
    Pixel_sensor const sensor{Mosaic::from_phase(2), size, 12, {.dark_level = 0}};
    auto options = options_for(sensor);
    options.bad_pixels = {500};
    auto const plain = frames_of(sensor, 3200);
    auto const changed = [&](double angle) {
        auto samples = plain(angle);
        if (angle == 90) {
            samples[500] = 4000;
        }
        return samples;
    };
    EXPECT_LT(
        measured(sensor, options, 15, changed).calibration.quality.models[2].rms_degree_error,
        1e-3);
    auto const dark = [&](double angle) {
        auto samples = plain(angle);
        if (angle == 90) {
            std::fill_n(samples.begin(), 2 * size.width, std::uint16_t{20}); // the dark level
        }
        return samples;
    };
    auto const of_dark = measured(sensor, options_for(sensor), 15, dark);
    for (Model_quality const& model : of_dark.calibration.quality.models) {
        EXPECT_TRUE(std::isfinite(model.rms_degree_error) && model.rms_angle_error_degrees < 90);
    }
}

} // namespace
} // namespace client_test
