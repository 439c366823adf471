// Physical units: every element of every plane there and back, the offset of the azimuth against
// the processor, and what has no angle or no degree.

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <iostream>
#include <limits>
#include <numbers>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr std::array full_scales = {1U, 2U, 179U, 180U, 255U, 4095U, 65534U, 65535U};

TEST(Angle, is_folded_into_half_a_turn) {
    double const below = -1e-15; // so near to 0 that half a turn more is half a turn
    for (double const angle : {0.0, -0.0, 180.0, -180.0, 540.0, below}) {
        double const folded = within_half_turn(angle);
        EXPECT_EQ(folded, 0) << angle;
        EXPECT_FALSE(std::signbit(folded)) << angle;
    }
    EXPECT_EQ(within_half_turn(-45), 135);
    EXPECT_EQ(within_half_turn(725), 5);
    EXPECT_EQ(within_half_turn(std::numbers::pi, Angle_unit::radians), 0);
    EXPECT_EQ(within_half_turn(-1e-17, Angle_unit::radians), 0);
    EXPECT_EQ(within_half_turn(-1, Angle_unit::radians), std::numbers::pi - 1);
    EXPECT_TRUE(std::isnan(within_half_turn(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_TRUE(std::isnan(within_half_turn(std::numeric_limits<double>::infinity())));
}

TEST(Angle, comes_back_as_the_same_element) {
    std::size_t checked = 0;
    for (unsigned const full_scale : full_scales) {
        Scale const scale = Scale::in_sample_units(16, full_scale);
        for (Angle_unit const unit : {Angle_unit::degrees, Angle_unit::radians}) {
            double const half_turn = unit == Angle_unit::degrees ? 180 : std::numbers::pi;
            for (unsigned element = 0; element <= full_scale; ++element) {
                auto const azimuth = static_cast<std::uint16_t>(element);
                double const angle = angle_of_azimuth(azimuth, scale, unit);
                ASSERT_GE(angle, 0);
                ASSERT_LT(angle, half_turn);
                ASSERT_LT(static_cast<float>(angle), static_cast<float>(half_turn));
                // 0 and the full scale both are 90 degrees.
                ASSERT_EQ(
                    azimuth_of_angle(angle, scale, unit), element == 0 ? full_scale : element);
                ++checked;
            }
        }
    }
    std::cout << checked << " elements there and back\n";
}

TEST(Angle, is_taken_modulo_half_a_turn) {
    Scale const scale{12, 180};
    for (int degrees = -720; degrees <= 720; ++degrees) {
        int const expected = ((degrees + 89) % 180 + 180) % 180 + 1;
        EXPECT_EQ(azimuth_of_angle(degrees, scale), expected) << degrees;
    }
    EXPECT_EQ(azimuth_of_angle(std::numbers::pi / 4, scale, Angle_unit::radians), 135);
    EXPECT_THROW(azimuth_of_angle(std::nan(""), scale), Argument_error);
    EXPECT_THROW(azimuth_of_angle(std::numeric_limits<double>::infinity(), scale), Argument_error);
    EXPECT_THROW(angle_of_azimuth(181, scale), Argument_error);
}

/// Samples behind the polarisers of a mosaic for light of a given angle and degree, in a frame.
std::vector<std::uint16_t> frame_of_light(
    Mosaic const& mosaic, double angle, double degree, std::size_t height) {
    std::vector<std::uint16_t> samples(height * 48);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        double const to_polariser =
            (angle - mosaic.angle(pixel / 48, pixel % 48)) * std::numbers::pi / 180;
        samples[pixel] = static_cast<std::uint16_t>(
            std::lround(30000 * (1 + degree * std::cos(2 * to_polariser))));
    }
    return samples;
}

// Through the processor and back: the convention of angles is that of the mosaic's polarisers.
TEST(Angle, of_light_is_found_again_from_the_planes) {
    Scale const scale{16};
    double worst_angle = 0;
    double worst_degree = 0;
    for (Mosaic const& mosaic : all_mosaics()) {
        for (int angle = 0; angle < 180; ++angle) {
            auto const samples = frame_of_light(mosaic, angle, 0.7, 4);
            Planes planes{4, 48, {Plane::azimuth, Plane::dolp}};
            Calibrated_transform{ideal_settings(mosaic, scale)}({samples, 4, 48}, planes.views());
            for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
                double const found =
                    angle_of_azimuth(planes.integer_plane(Plane::azimuth)[pixel], scale);
                double const error = std::abs(std::remainder(found - angle, 180.0));
                worst_angle = std::max(worst_angle, error);
                worst_degree = std::max(
                    worst_degree,
                    std::abs(
                        degree_of_dolp(planes.integer_plane(Plane::dolp)[pixel], scale) - 0.7));
            }
        }
    }
    EXPECT_LT(worst_angle, 0.16);
    EXPECT_LT(worst_degree, 0.001);
    std::cout << "largest errors " << worst_angle << " degrees and " << worst_degree << '\n';
}

TEST(Degree, comes_back_as_the_same_element) {
    for (unsigned const full_scale : full_scales) {
        Scale const scale{16, full_scale};
        for (unsigned element = 0; element <= full_scale; ++element) {
            double const degree = degree_of_dolp(static_cast<std::uint16_t>(element), scale);
            ASSERT_LE(degree, 1);
            ASSERT_EQ(dolp_of_degree(degree, scale), element);
        }
    }
    Scale const scale{12, 4095};
    EXPECT_THROW(degree_of_dolp(4096, scale), Argument_error);
    for (double const degree : {-0.001, 1.001, std::nan("")}) {
        EXPECT_THROW(dolp_of_degree(degree, scale), Argument_error);
    }
}

TEST(Stokes, comes_back_as_the_same_element) {
    for (Scale const& scale : {Scale{12}, Scale{12, 4095}, Scale{8, 1000}}) {
        auto const limit = static_cast<std::int32_t>(scale.full_scale());
        for (std::int32_t element = -limit; element <= limit; ++element) {
            ASSERT_EQ(stokes_element(stokes_in_samples(element, scale), scale), element);
        }
        EXPECT_EQ(stokes_element(1e9, scale), limit);
        EXPECT_EQ(stokes_element(-1e9, scale), -limit);
        EXPECT_THROW(stokes_element(std::nan(""), scale), Argument_error);
    }
    EXPECT_DOUBLE_EQ(stokes_in_samples(65535, Scale{12}), 8190);
    EXPECT_DOUBLE_EQ(stokes_in_samples(-7, Scale{12, 4095}), -7);
}

TEST(Planes_in_units, show_what_is_undefined_as_nan) {
    Scale const scale{12, 1000};
    std::vector<std::uint16_t> const azimuth = {500, 0, 1000, 750, 501};
    std::vector<std::uint16_t> const dolp = {0, 1, 1000, 500, 0};
    std::vector<std::uint16_t> const s0 = {0, 5, 0, 1000, 7};
    std::vector<float> angle(5);
    std::vector<float> degree(5);
    angles(azimuth, dolp, scale, Angle_unit::degrees, angle);
    degrees_of_polarization(dolp, s0, scale, degree);
    EXPECT_TRUE(std::isnan(angle[0]) && std::isnan(angle[4]));
    EXPECT_EQ(
        (std::vector<float>{angle.begin() + 1, angle.begin() + 4}),
        (std::vector<float>{90, 90, 45}));
    EXPECT_TRUE(std::isnan(degree[0]) && std::isnan(degree[2]));
    EXPECT_EQ(degree[1], 0.001F);
    EXPECT_EQ(degree[4], 0);
    // Without a companion the numbers are taken as they are.
    angles(azimuth, {}, scale, Angle_unit::degrees, angle);
    degrees_of_polarization(dolp, {}, scale, degree);
    EXPECT_EQ(angle[0], 0);
    EXPECT_EQ(degree[0], 0);
}

TEST(Planes_in_units, are_the_single_elements) {
    Scale const scale{12, 4095};
    std::vector<std::uint16_t> plane(4096);
    std::vector<std::int32_t> signed_plane(4096);
    for (std::size_t i = 0; i < plane.size(); ++i) {
        plane[i] = static_cast<std::uint16_t>(i);
        signed_plane[i] = static_cast<std::int32_t>(i) - 2048;
    }
    std::vector<float> angle(4096);
    std::vector<float> degree(4096);
    std::vector<float> stokes(4096);
    std::vector<float> signed_stokes(4096);
    angles(plane, {}, scale, Angle_unit::radians, angle);
    degrees_of_polarization(plane, {}, scale, degree);
    stokes_in_samples(plane, scale, stokes);
    stokes_in_samples(signed_plane, scale, signed_stokes);
    for (std::size_t i = 0; i < plane.size(); ++i) {
        EXPECT_EQ(
            angle[i], static_cast<float>(angle_of_azimuth(plane[i], scale, Angle_unit::radians)));
        EXPECT_EQ(degree[i], static_cast<float>(degree_of_dolp(plane[i], scale)));
        EXPECT_EQ(stokes[i], static_cast<float>(i));
        EXPECT_EQ(signed_stokes[i], static_cast<float>(signed_plane[i]));
    }
}

TEST(Planes_in_units, refuse_sizes_that_differ_and_elements_above_the_full_scale) {
    Scale const scale{12, 100};
    std::vector<std::uint16_t> const four = {1, 2, 3, 101};
    std::vector<std::uint16_t> const three = {1, 2, 3};
    std::vector<float> result(4, 5.0F);
    std::span<float> const all{result};
    EXPECT_THROW(angles(four, {}, scale, Angle_unit::degrees, all), Argument_error);
    EXPECT_THROW(degrees_of_polarization(four, {}, scale, all), Argument_error);
    EXPECT_THROW(angles(three, {}, scale, Angle_unit::degrees, all), Argument_error);
    EXPECT_THROW(angles(three, four, scale, Angle_unit::degrees, all.first(3)), Argument_error);
    EXPECT_THROW(degrees_of_polarization(three, four, scale, all.first(3)), Argument_error);
    EXPECT_THROW(stokes_in_samples(three, scale, all), Argument_error);
    EXPECT_EQ(result, (std::vector<float>(4, 5.0F)));
}

} // namespace
