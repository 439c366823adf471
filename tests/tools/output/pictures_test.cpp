// Colours of the pictures: cyclic in the angle, brightness from the degree alone, dark at 0.
#include "output/pictures.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace polarize_tool;

constexpr unsigned full_scale = 65535;

cv::Vec3b colour(unsigned azimuth, unsigned degree, unsigned scale = full_scale) {
    std::vector<std::uint16_t> const a = {static_cast<std::uint16_t>(azimuth)};
    std::vector<std::uint16_t> const d = {static_cast<std::uint16_t>(degree)};
    return angle_degree_picture({a, d, 1, 1, scale}).at<cv::Vec3b>(0, 0);
}

// Relative luminance of a displayed colour, as for CIE Y.
double luminance(cv::Vec3b const& pixel) {
    auto const linear = [](double value) {
        value /= 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.0722 * linear(pixel[0]) + 0.7152 * linear(pixel[1]) + 0.2126 * linear(pixel[2]);
}

TEST(Pictures, both_ends_of_the_azimuth_have_one_colour) {
    EXPECT_EQ(colour(0, full_scale), colour(full_scale, full_scale));
    EXPECT_EQ(colour(0, 255, 255), colour(0, full_scale));
}

TEST(Pictures, neighbouring_angles_have_neighbouring_colours) {
    std::vector<std::uint16_t> azimuths;
    for (unsigned degree = 0; degree <= 180; ++degree) {
        azimuths.push_back(static_cast<std::uint16_t>(degree * full_scale / 180));
    }
    std::vector<std::uint16_t> const degrees(azimuths.size(), full_scale);
    cv::Mat const picture =
        angle_degree_picture({azimuths, degrees, azimuths.size(), 1, full_scale});
    int largest = 0;
    for (int column = 1; column < picture.cols; ++column) {
        for (int channel = 0; channel < 3; ++channel) {
            largest = std::max(
                largest, std::abs(
                             picture.at<cv::Vec3b>(0, column)[channel] -
                             picture.at<cv::Vec3b>(0, column - 1)[channel]));
        }
    }
    EXPECT_LE(largest, 16);
}

TEST(Pictures, angles_45_degrees_apart_have_clearly_different_colours) {
    for (unsigned step = 0; step < 4; ++step) {
        cv::Vec3b const here = colour(step * full_scale / 4, full_scale);
        cv::Vec3b const next = colour((step + 1) * full_scale / 4, full_scale);
        EXPECT_GT(cv::norm(here, next), 60.0) << "step " << step;
    }
}

TEST(Pictures, angle_0_is_red_and_angle_90_is_green_to_blue) {
    cv::Vec3b const zero = colour(full_scale / 2 + 1, full_scale); // azimuth runs 90 degrees ahead
    cv::Vec3b const ninety = colour(0, full_scale);
    EXPECT_GT(zero[2], std::max(zero[0], zero[1]));
    EXPECT_LT(ninety[2], std::min(ninety[0], ninety[1]));
}

TEST(Pictures, brightness_tells_the_degree_alone) {
    for (unsigned degree : {6553U, 32768U, 65535U}) {
        std::vector<double> seen;
        for (unsigned azimuth = 0; azimuth < full_scale; azimuth += 4099) {
            seen.push_back(luminance(colour(azimuth, degree)));
        }
        auto const [low, high] = std::minmax_element(seen.begin(), seen.end());
        EXPECT_LT(*high / *low, 1.35) << "degree " << degree;
    }
    EXPECT_LT(luminance(colour(1000, 6553)), luminance(colour(1000, 32768)));
    EXPECT_EQ(colour(1000, 0), cv::Vec3b(0, 0, 0));
}

TEST(Pictures, degree_grows_brighter_all_the_way) {
    std::vector<std::uint16_t> degrees;
    for (unsigned degree = 0; degree <= full_scale; degree += full_scale / 15) {
        degrees.push_back(static_cast<std::uint16_t>(degree));
    }
    cv::Mat const picture = degree_picture({{}, degrees, degrees.size(), 1, full_scale});
    for (int column = 1; column < picture.cols; ++column) {
        EXPECT_GT(
            luminance(picture.at<cv::Vec3b>(0, column)),
            luminance(picture.at<cv::Vec3b>(0, column - 1)))
            << "column " << column;
    }
}

} // namespace
