// Photon transfer from simulated pairs: the figures that went in come out, and pairs that cannot
// tell are left out or refused with a remedy.

#include "refusal.hpp"

#include "veldrane_mrv/polarization/photon_transfer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr std::size_t height = 160;
constexpr std::size_t width = 200;
constexpr Photon_transfer_options options_of_12_bits{12, {23, 24, 24, 25}, {}};

// Uneven light, a fixed pattern and dark levels by position in both frames of a pair.
class Camera {
public:
    explicit Camera(Noise_model const& noise) : noise_{noise} {
        for (double& gain : gains_) {
            gain = 1 + 0.1 * normal_(random_);
        }
    }

    Photon_transfer_point pair(double level, double drift = 1) {
        std::vector<std::uint16_t> const first = frame(level);
        std::vector<std::uint16_t> const second = frame(level * drift);
        return measure_pair(
            {{first, height, width}, {second, height, width}, std::to_string(level)},
            options_of_12_bits);
    }

private:
    std::vector<std::uint16_t> frame(double level) {
        std::vector<std::uint16_t> samples;
        for (std::size_t pixel = 0; pixel < gains_.size(); ++pixel) {
            double const mean = level * noise_.electrons_per_count * gains_[pixel];
            double const electrons =
                (mean > 0 ? static_cast<double>(std::poisson_distribution<int>{mean}(random_))
                          : 0.0) +
                noise_.read_noise * normal_(random_);
            double const dark =
                options_of_12_bits.dark_levels[2 * (pixel / width & 1) + (pixel & 1)];
            samples.push_back(static_cast<std::uint16_t>(std::clamp(
                std::floor(electrons / noise_.electrons_per_count + dark + 0.5), 0.0, 4095.0)));
        }
        return samples;
    }

    Noise_model noise_;
    std::mt19937_64 random_{11};
    std::normal_distribution<double> normal_;
    std::vector<double> gains_ = std::vector<double>(height * width);
};

Photon_transfer_point point(double level, double variance) {
    return {level, variance, variance * 0.01, 0, std::to_string(static_cast<int>(level))};
}

TEST(Photon_transfer, finds_gain_and_read_noise_to_2_per_cent) {
    for (Noise_model const truth : {Noise_model{2.6, 4}, Noise_model{9, 12}}) {
        Camera camera{truth};
        std::vector<Photon_transfer_point> points;
        for (double const level : {1000.0, 0.0, 200.0, 400.0, 2500.0, 20.0}) {
            points.push_back(camera.pair(level));
        }
        Photon_transfer const found = fit_photon_transfer(points);
        EXPECT_NEAR(found.noise.electrons_per_count / truth.electrons_per_count, 1, 0.02);
        EXPECT_NEAR(found.noise.read_noise / truth.read_noise, 1, 0.02);
        ASSERT_EQ(found.points.size(), 6U);
        EXPECT_TRUE(std::ranges::is_sorted(found.points, {}, &Photon_transfer_point::level));
        EXPECT_NEAR(found.points[0].level, 0, 0.1);
        EXPECT_NEAR(found.points[4].level, 1000, 2);
        EXPECT_GT(found.largest_deviation, 0);
        EXPECT_LT(found.largest_deviation, 0.03);
    }
}

TEST(Photon_transfer, saturated_pairs_are_left_out) {
    Camera camera{{3, 5}};
    std::vector<Photon_transfer_point> points;
    for (double const level : {0.0, 300.0, 900.0, 2000.0, 3700.0, 4400.0}) {
        points.push_back(camera.pair(level));
    }
    Photon_transfer const found = fit_photon_transfer(points);
    EXPECT_EQ(found.points.size(), 4U);
    ASSERT_EQ(found.clipped.size(), 2U);
    EXPECT_GT(found.clipped[0].clipped_share, 0.001);
    EXPECT_NEAR(found.noise.electrons_per_count / 3, 1, 0.02);
}

TEST(Photon_transfer, a_line_without_noise_is_found_exactly) {
    std::vector<Photon_transfer_point> points;
    for (double const level : {0.0, 100.0, 700.0, 3000.0}) {
        points.push_back(point(level, level / 4 + 2.25 / 16 + 1.0 / 12));
    }
    Photon_transfer const found = fit_photon_transfer(points);
    EXPECT_NEAR(found.noise.electrons_per_count, 4, 1e-9);
    EXPECT_NEAR(found.noise.read_noise, 1.5, 1e-9);
    EXPECT_NEAR(found.largest_deviation, 0, 1e-12);
}

TEST(Photon_transfer, few_pixels_may_be_farther_from_the_line) {
    std::vector<Photon_transfer_point> points;
    for (double const level : {0.0, 100.0, 700.0, 3000.0}) {
        points.push_back(point(level, level / 4 + 1));
        points.back().standard_error *= 10;
    }
    points[1].variance *= 1.3;
    EXPECT_GT(fit_photon_transfer(points).largest_deviation, 0.1);
}

TEST(Photon_transfer, read_noise_is_never_below_0) {
    std::vector<Photon_transfer_point> points;
    for (double const level : {100.0, 700.0, 3000.0}) {
        points.push_back(point(level, level / 4 - 0.2));
    }
    Noise_model const found = fit_photon_transfer(points).noise;
    EXPECT_EQ(found.read_noise, 0);
    EXPECT_NEAR(found.electrons_per_count, 4, 0.05);
}

TEST(Photon_transfer, clipped_samples_are_in_no_figure) {
    std::vector<std::uint16_t> first(200, 100);
    std::vector<std::uint16_t> second(200, 100);
    for (std::size_t pixel = 0; pixel < 200; pixel += 2) {
        first[pixel] = 104;
    }
    auto const measured = [&] {
        return measure_pair({{first, 10, 20}, {second, 10, 20}}, {12, {}, {}});
    };
    EXPECT_EQ(measured().level, 101);
    EXPECT_NEAR(measured().variance, 2 * 200.0 / 199, 1e-12);
    EXPECT_NEAR(measured().standard_error, measured().variance * std::sqrt(2.0 / 199), 1e-12);
    first[0] = 4095;
    second[1] = 0;
    EXPECT_EQ(measured().level, 101);
    EXPECT_NEAR(measured().variance, 2 * 198.0 / 197, 1e-12);
    EXPECT_NEAR(measured().clipped_share, 0.01, 1e-12);
}

TEST(Photon_transfer, refuses_pairs_that_do_not_tell) {
    std::string const remedy =
        "; give pairs of flat frames at three levels or more, from below a tenth to nine tenths of "
        "the full scale, none saturated; a pair without light is one";
    auto const refusal = [](std::vector<Photon_transfer_point> const& points) {
        return refusal_of([&] { fit_photon_transfer(points); });
    };
    EXPECT_EQ(refusal({}), "number of levels is 0" + remedy);
    EXPECT_EQ(
        refusal({point(0, 1), point(1000, 100), point(1010, 101)}),
        "number of levels is 2" + remedy);
    EXPECT_EQ(
        refusal({point(1000, 100), point(1300, 130), point(1800, 180)}),
        "range of levels is 1000 to 1800" + remedy);
    EXPECT_EQ(
        refusal({point(10, 50), point(1000, 50), point(3000, 10)}).substr(0, 37),
        "growth of the variance with the level");
    EXPECT_EQ(
        refusal(
            {point(0, 1), point(500, 51), point(1000, 101), point(2000, 201), point(3000, 180)}),
        "variance of 3000 is 180 at the level 3000, where all together let expect 242.1; leave out "
        "pairs that are nearly saturated or whose light was not steady");
    EXPECT_EQ(
        refusal({point(0, 0), point(500, 51), point(1000, 101)}),
        "variance of 0 is 0; give two frames of the same light, not one frame twice");
}

TEST(Photon_transfer, light_that_changes_within_a_pair_is_told) {
    Camera camera{{3, 5}};
    EXPECT_GT(camera.pair(2000, 1.01).variance, 0);
    std::string const refusal = refusal_of([&] { camera.pair(2000, 1.05); });
    EXPECT_EQ(refusal.substr(0, 46), "difference of the two means of 2000.000000 is ") << refusal;
}

TEST(Photon_transfer, refuses_frames_that_are_no_pair) {
    std::vector<std::uint16_t> const samples(400, 500);
    auto const refusal = [&](Size const& second, Photon_transfer_options const& options) {
        return refusal_of([&] {
            measure_pair(
                {{samples, 20, 20},
                 {std::span{samples}.first(second.width * second.height), second.height,
                  second.width},
                 "p"},
                options);
        });
    };
    EXPECT_EQ(
        refusal({20, 19}, {12, {}, {}}),
        "size of the second frame of p is 20 x 19; give pairs of one size, the first frame has "
        "20 x 20");
    EXPECT_EQ(
        refusal({20, 20}, {12, {}, Region{0, 11, 20, 10}}),
        "region of p is 20 x 10 at column 0, row 11; give a part of the frames' 20 x 20");
    EXPECT_EQ(
        refusal({20, 20}, {12, {}, Region{0, 0, 9, 9}}),
        "number of pixels that are not clipped of p is 81; give at least 100, without light too "
        "above 0");
    EXPECT_EQ(refusal({20, 20}, {0, {}, {}}), "bit depth is 0; give 1 to 16");
    EXPECT_EQ(
        refusal({20, 20}, {12, {0, 0, NAN, 0}, {}}),
        "dark level is nan; measure it from dark frames");
}

} // namespace
} // namespace client_test
