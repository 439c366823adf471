// Colours of the pictures: cyclic in the angle, brightness from the degree alone, dark at 0.
#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr unsigned full_scale = 65535;

Colour colour(unsigned azimuth, unsigned degree, unsigned scale = full_scale) {
    std::vector<std::uint16_t> const a = {static_cast<std::uint16_t>(azimuth)};
    std::vector<std::uint16_t> const d = {static_cast<std::uint16_t>(degree)};
    return angle_degree_picture({a, d, 1, 1, scale}).pixels.front();
}

// Relative luminance of a displayed colour, as for CIE Y.
double luminance(Colour const& pixel) {
    auto const linear = [](double value) {
        value /= 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(pixel[0]) + 0.7152 * linear(pixel[1]) + 0.0722 * linear(pixel[2]);
}

double distance(Colour const& a, Colour const& b) {
    double squares = 0.0;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        squares += std::pow(a[channel] - b[channel], 2);
    }
    return std::sqrt(squares);
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
    Colour_picture const picture =
        angle_degree_picture({azimuths, degrees, azimuths.size(), 1, full_scale});
    ASSERT_EQ(picture.pixels.size(), 181U);
    int largest = 0;
    for (std::size_t column = 1; column < picture.pixels.size(); ++column) {
        for (std::size_t channel = 0; channel < 3; ++channel) {
            largest = std::max(
                largest,
                std::abs(picture.pixels[column][channel] - picture.pixels[column - 1][channel]));
        }
    }
    EXPECT_LE(largest, 16);
}

TEST(Pictures, angles_45_degrees_apart_have_clearly_different_colours) {
    for (unsigned step = 0; step < 4; ++step) {
        Colour const here = colour(step * full_scale / 4, full_scale);
        Colour const next = colour((step + 1) * full_scale / 4, full_scale);
        EXPECT_GT(distance(here, next), 60.0) << "step " << step;
    }
}

TEST(Pictures, angle_0_is_red_and_angle_90_is_green_to_blue) {
    Colour const zero = colour(full_scale / 2 + 1, full_scale); // azimuth runs 90 degrees ahead
    Colour const ninety = colour(0, full_scale);
    EXPECT_GT(zero[0], std::max(zero[1], zero[2]));
    EXPECT_LT(ninety[0], std::min(ninety[1], ninety[2]));
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
    EXPECT_EQ(colour(1000, 0), (Colour{0, 0, 0}));
}

TEST(Pictures, degree_grows_brighter_all_the_way) {
    std::vector<std::uint16_t> degrees;
    for (unsigned degree = 0; degree <= full_scale; degree += full_scale / 15) {
        degrees.push_back(static_cast<std::uint16_t>(degree));
    }
    Colour_picture const picture = degree_picture({{}, degrees, degrees.size(), 1, full_scale});
    for (std::size_t column = 1; column < picture.pixels.size(); ++column) {
        EXPECT_GT(luminance(picture.pixels[column]), luminance(picture.pixels[column - 1]))
            << "column " << column;
    }
}

TEST(Pictures, the_wheel_shows_an_angle_in_its_direction_both_ways) {
    constexpr std::size_t side = 240;
    Colour_picture const wheel = colour_wheel(side);
    ASSERT_EQ(wheel.pixels.size(), side * side);
    auto const at = [&wheel](std::size_t row, std::size_t column) {
        return wheel.pixels[row * side + column];
    };
    EXPECT_LT(distance(at(side / 2, side - 1), colour(full_scale / 2 + 1, full_scale)), 6.0);
    EXPECT_LT(distance(at(0, side / 2), colour(0, full_scale)), 6.0);
    for (std::size_t row = 0; row < side; row += 7) {
        for (std::size_t column = 0; column < side; column += 7) {
            EXPECT_EQ(at(row, column), at(side - 1 - row, side - 1 - column));
        }
    }
}

TEST(Pictures, invalid_pixels_are_grey_and_no_other_is) {
    std::vector<std::uint16_t> azimuth;
    std::vector<std::uint16_t> degree;
    for (unsigned element = 0; element < 65536; element += 7) {
        azimuth.push_back(static_cast<std::uint16_t>(element));
        degree.push_back(static_cast<std::uint16_t>(element * 31 % 65536));
    }
    std::vector<std::uint8_t> validity(azimuth.size());
    validity[100] = 8;
    Picture_source const source{azimuth, degree, azimuth.size(), 1, full_scale, validity};
    for (Colour_picture const& picture : {angle_degree_picture(source), degree_picture(source)}) {
        EXPECT_EQ(std::ranges::count(picture.pixels, invalid_colour), 1);
        EXPECT_EQ(picture.pixels[100], invalid_colour);
    }
}

TEST(Pictures, every_number_of_every_scale_is_rounded_to_the_nearest_colour) {
    std::vector<std::uint16_t> numbers(65536);
    std::iota(numbers.begin(), numbers.end(), std::uint16_t{0});
    auto const& colours = angle_degree_colours();
    for (unsigned const scale : {1U, 2U, 3U, 255U, 719U, 1023U, 4095U, 16383U, 65534U, 65535U}) {
        Colour_picture const picture =
            angle_degree_picture({numbers, numbers, numbers.size(), 1, scale});
        std::size_t wrong = 0;
        for (std::size_t index = 0; index < numbers.size(); ++index) {
            std::size_t const limited = std::min<std::size_t>(index, scale);
            std::size_t const azimuth = (limited * hue_count + scale / 2) / scale;
            std::size_t const level = (limited * (level_count - 1) + scale / 2) / scale;
            std::size_t const hue = (azimuth + hue_count / 2) % hue_count;
            wrong += picture.pixels[index] != colours[hue * level_count + level] ? 1U : 0U;
        }
        EXPECT_EQ(wrong, 0U) << "scale " << scale;
    }
}

} // namespace
