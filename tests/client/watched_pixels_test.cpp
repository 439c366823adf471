// A frame of a series that shows something else than the others is named, and none of a good one.

#include "pixel_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/pixel_calibration.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr Size size{64, 48};
constexpr double level = 3000;
constexpr double electrons_per_unit = 5;

using Frame_of = std::function<std::vector<std::uint16_t>(double angle)>;

std::string refusal_of(
    Pixel_sensor const& sensor, std::vector<double> const& angles, Frame_of const& frame_of,
    Calibration_model model = Calibration_model::pixel) {
    Pixel_calibration_options options;
    options.estimation.bit_depth = 12;
    options.sensor = size;
    options.region = region_of(size);
    options.dark_levels = sensor.truth.dark_level;
    Pixel_calibration calibration{sensor.mosaic, options};
    for (double const angle : angles) {
        auto const samples = frame_of(angle);
        calibration.add(
            {{samples, size.height, size.width},
             angle,
             1,
             "at " + std::to_string(static_cast<int>(angle))});
    }
    try {
        calibration.finish(model);
    } catch (Argument_error const& error) {
        return error.what();
    }
    return "";
}

std::vector<double> every(double step) {
    std::vector<double> angles;
    for (double angle = 0; angle < 180; angle += step) {
        angles.push_back(angle);
    }
    return angles;
}

class Watched : public testing::Test {
protected:
    std::vector<std::uint16_t> frame(double angle, double of_level = level) const {
        return sensor_.frame(
            of_level, angle, electrons_per_unit, static_cast<std::uint64_t>(angle) + 1);
    }

    Pixel_sensor const sensor_{Mosaic::from_phase(2), size, 12};
};

TEST_F(Watched, good_series_are_not_refused_wherever_their_angles_are) {
    auto const plain = [this](double angle) { return frame(angle); };
    EXPECT_EQ(refusal_of(sensor_, every(10), plain), "");
    EXPECT_EQ(refusal_of(sensor_, {0, 1, 2, 3, 4, 5, 60, 120}, plain), "");
    EXPECT_EQ(refusal_of(sensor_, every(25), plain), "");
    // Frames on which the fit hangs almost alone.
    EXPECT_EQ(refusal_of(sensor_, {0, 10, 20, 30, 40, 50, 60, 120}, plain), "");
}

TEST_F(Watched, what_is_small_against_the_light_is_not_refused_however_small_the_noise) {
    Pixel_sensor const still{Mosaic::from_phase(2), size, 12};
    auto const frame_of = [&](double angle) {
        return still.frame(angle == 60 ? 1.005 * level : level, angle);
    };
    EXPECT_EQ(refusal_of(still, every(15), frame_of), "");
}

TEST_F(Watched, pixels_are_watched_all_over_the_frame) {
    auto const moved_below = [this](double angle) {
        auto samples = frame(angle);
        if (angle == 60) {
            std::rotate(samples.begin() + 12 * size.width, samples.end() - 2, samples.end());
        }
        return samples;
    };
    EXPECT_TRUE(refusal_of(sensor_, every(15), moved_below).starts_with("distance of at 60 from"));
}

TEST_F(Watched, a_frame_of_a_moved_sensor_is_named) {
    // By two columns, which no mean tells.
    auto const moved = [this](double angle) {
        auto samples = frame(angle);
        if (angle == 60) {
            std::rotate(samples.begin(), samples.begin() + 2, samples.end());
        }
        return samples;
    };
    std::string const refusal = refusal_of(sensor_, every(15), moved);
    EXPECT_TRUE(refusal.starts_with("distance of at 60 from the other frames is ")) << refusal;
    EXPECT_TRUE(refusal.ends_with("is usual; leave it out or correct its angle; neither camera, "
                                  "light nor exposure may change "
                                  "within a series"))
        << refusal;
    EXPECT_EQ(refusal_of(sensor_, every(15), moved, Calibration_model::position), "");
}

TEST_F(Watched, frames_of_other_light_or_another_angle_are_named) {
    for (double const angle_of_odd : {0.0, 75.0, 165.0}) {
        std::string const start =
            "distance of at " + std::to_string(static_cast<int>(angle_of_odd)) + " from";
        auto const brighter = [&](double angle) {
            return frame(angle, angle == angle_of_odd ? 1.1 * level : level);
        };
        auto const turned = [&](double angle) {
            return frame(angle == angle_of_odd ? angle + 5 : angle);
        };
        EXPECT_TRUE(refusal_of(sensor_, every(15), brighter).starts_with(start));
        EXPECT_TRUE(refusal_of(sensor_, every(15), turned).starts_with(start));
    }
}

} // namespace
} // namespace client_test
