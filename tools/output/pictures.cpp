#include "output/pictures.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace polarize_tool {
namespace {

constexpr unsigned hue_count = 720; // quarters of a degree of the angle
constexpr unsigned level_count = 256;

// Ottosson's OKLab (2020), a space in which equal steps look equal. At this lightness the chroma is
// about the largest for which a screen can show every hue of the full turn.
constexpr double lightness = 0.75;
constexpr double chroma = 0.125;

// Blue, green, red of a colour in OKLab.
cv::Vec3b displayed(double light, double a, double b) {
    double const root_l = light + 0.3963377774 * a + 0.2158037573 * b;
    double const root_m = light - 0.1055613458 * a - 0.0638541728 * b;
    double const root_s = light - 0.0894841775 * a - 1.2914855480 * b;
    double const l = root_l * root_l * root_l;
    double const m = root_m * root_m * root_m;
    double const s = root_s * root_s * root_s;
    return {
        display_level(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s),
        display_level(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
        display_level(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s)};
}

// All colours of the picture: a row for each hue, a column for each degree.
std::vector<cv::Vec3b> angle_degree_colours() {
    constexpr double first_hue = 0.5; // radians: angle 0 is red, 90 is cyan
    std::vector<cv::Vec3b> colours;
    colours.reserve(hue_count * level_count);
    for (unsigned hue = 0; hue < hue_count; ++hue) {
        double const direction = first_hue + 2.0 * std::numbers::pi * hue / hue_count;
        for (unsigned level = 0; level < level_count; ++level) {
            // Most of a scene is polarised by a few per cent: the square root lets that be seen.
            double const dim = std::sqrt(static_cast<double>(level) / (level_count - 1));
            colours.push_back(displayed(
                lightness * dim, chroma * dim * std::cos(direction),
                chroma * dim * std::sin(direction)));
        }
    }
    return colours;
}

// A number on the source's scale, brought to 0..steps and rounded.
unsigned scaled(std::uint16_t value, unsigned full_scale, unsigned steps) {
    unsigned const limited = std::min<unsigned>(value, full_scale);
    return (limited * steps + full_scale / 2) / full_scale;
}

} // namespace

std::uint8_t display_level(double linear) {
    double const light = std::clamp(linear, 0.0, 1.0);
    double const encoded =
        light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1.0 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(255.0 * encoded));
}

cv::Mat angle_degree_picture(Picture_source const& source) {
    std::vector<cv::Vec3b> const colours = angle_degree_colours();
    cv::Mat picture(static_cast<int>(source.height), static_cast<int>(source.width), CV_8UC3);
    auto* pixel = picture.ptr<cv::Vec3b>();
    for (std::size_t index = 0; index < source.azimuth.size(); ++index) {
        // The azimuth runs 90 degrees ahead of the angle.
        unsigned const azimuth = scaled(source.azimuth[index], source.full_scale, hue_count);
        unsigned const hue = (azimuth + hue_count / 2) % hue_count;
        unsigned const level = scaled(source.degree[index], source.full_scale, level_count - 1);
        pixel[index] = colours[hue * level_count + level];
    }
    return picture;
}

cv::Mat degree_picture(Picture_source const& source) {
    cv::Mat levels(static_cast<int>(source.height), static_cast<int>(source.width), CV_8UC1);
    std::transform(
        source.degree.begin(), source.degree.end(), levels.ptr<std::uint8_t>(),
        [&source](std::uint16_t degree) {
            return static_cast<std::uint8_t>(scaled(degree, source.full_scale, level_count - 1));
        });
    cv::Mat picture;
    cv::applyColorMap(levels, picture, cv::COLORMAP_INFERNO);
    return picture;
}

} // namespace polarize_tool
