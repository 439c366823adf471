#include "output/map_pictures.hpp"

#include "output/drawing.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <opencv2/imgproc.hpp>

namespace polarize_tool {
namespace {

constexpr int picture_width = 960;
constexpr int strip_height = 280;
constexpr int field_top = 40;
constexpr int field_height = 200;
constexpr int map_left = 20;
constexpr int map_width = 380;
constexpr int scale_left = 415;
constexpr int scale_width = 14;
constexpr int histogram_left = 550;
constexpr int histogram_width = 380;
constexpr std::size_t bins = 95;
static_assert(histogram_width % bins == 0);

constexpr double spreads_shown = 4;

using Colours = std::array<cv::Vec3b, polarization::level_count>;

struct Scale {
    double low;
    double high;
    Colours colours;

    /// 0 to `steps` - 1.
    std::size_t step(double value, std::size_t steps) const {
        double const place = (value - low) / (high - low) * static_cast<double>(steps);
        return static_cast<std::size_t>(std::clamp(place, 0.0, static_cast<double>(steps) - 1));
    }
};

std::uint8_t byte_of(double level) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(level, 0.0, 1.0) * 255));
}

Colours sequential_colours() {
    Colours colours;
    std::ranges::transform(
        polarization::degree_colours(), colours.begin(),
        [](polarization::Fine_colour const& colour) {
            return cv::Vec3b(byte_of(colour[2]), byte_of(colour[1]), byte_of(colour[0]));
        });
    return colours;
}

// Okabe and Ito's blue and vermilion, which people with any kind of colour vision tell apart, with
// white between them.
Colours diverging_colours() {
    constexpr std::array blue{178.0, 114.0, 0.0};
    constexpr std::array vermilion{0.0, 94.0, 213.0};
    Colours colours;
    for (std::size_t level = 0; level < colours.size(); ++level) {
        double const place = 2.0 * static_cast<double>(level) / (colours.size() - 1.0) - 1;
        auto const& end = place < 0 ? blue : vermilion;
        for (int channel = 0; channel < 3; ++channel) {
            double const full = end[static_cast<std::size_t>(channel)];
            colours[level][channel] = byte_of(1 + (full / 255 - 1) * std::abs(place));
        }
    }
    return colours;
}

Scale scale_of(Shown_map const& map, Map_statistics const& statistics) {
    // A map without any spread still needs a scale.
    double const reach =
        std::max(spreads_shown * statistics.spread, 1e-3 * std::max(1.0, statistics.median));
    if (map.usual) {
        double const half = reach + std::abs(statistics.median - *map.usual);
        return {*map.usual - half, *map.usual + half, diverging_colours()};
    }
    return {
        std::max(0.0, statistics.median - reach), statistics.median + reach, sequential_colours()};
}

constexpr int ticks = 4;

double step_of(Scale const& scale) {
    return (scale.high - scale.low) / ticks;
}

// Means of the pixels that fall together, each as if at the scale's end where it is beyond.
void draw_map(
    cv::Mat& strip, std::vector<float> values, polarization::Size const& size, Scale const& scale) {
    for (float& value : values) {
        value = std::clamp(value, static_cast<float>(scale.low), static_cast<float>(scale.high));
    }
    cv::Mat const map(
        static_cast<int>(size.height), static_cast<int>(size.width), CV_32F, values.data());
    double const zoom = std::min(1.0 * map_width / map.cols, 1.0 * field_height / map.rows);
    cv::Size const shown(
        std::max(1, static_cast<int>(zoom * map.cols)),
        std::max(1, static_cast<int>(zoom * map.rows)));
    cv::Mat fitted;
    cv::resize(map, fitted, shown, 0, 0, zoom < 1 ? cv::INTER_AREA : cv::INTER_NEAREST);
    for (int row = 0; row < fitted.rows; ++row) {
        for (int column = 0; column < fitted.cols; ++column) {
            double const value = static_cast<double>(fitted.at<float>(row, column));
            strip.at<cv::Vec3b>(field_top + row, map_left + column) =
                scale.colours[scale.step(value, scale.colours.size())];
        }
    }
    cv::rectangle(strip, {map_left - 1, field_top - 1, shown.width + 2, shown.height + 2}, ink);
}

void draw_scale(cv::Mat& strip, Scale const& scale) {
    for (int row = 0; row < field_height; ++row) {
        double const value = scale.high - (scale.high - scale.low) * (row + 0.5) / field_height;
        cv::Vec3b const colour = scale.colours[scale.step(value, scale.colours.size())];
        strip(cv::Rect(scale_left, field_top + row, scale_width, 1)).setTo(cv::Scalar(colour));
    }
    cv::rectangle(strip, {scale_left - 1, field_top - 1, scale_width + 2, field_height + 2}, ink);
    for (int tick = 0; tick <= ticks; ++tick) {
        double const value = scale.high - step_of(scale) * tick;
        write_text(
            strip, tick_text(value, step_of(scale)),
            {scale_left + scale_width + 8, field_top + field_height * tick / ticks + 5});
    }
}

void draw_histogram(cv::Mat& strip, std::vector<float> const& values, Scale const& scale) {
    std::array<std::size_t, bins> counts{};
    for (float const value : values) {
        ++counts[scale.step(static_cast<double>(value), bins)];
    }
    auto const highest = static_cast<double>(std::ranges::max(counts));
    constexpr int bin_width = histogram_width / static_cast<int>(bins);
    constexpr int foot = field_top + field_height;
    for (int tick = 0; tick <= ticks; ++tick) {
        int const column = histogram_left + histogram_width * tick / ticks;
        cv::line(strip, {column, field_top}, {column, foot}, grid);
        double const value = scale.low + step_of(scale) * tick;
        std::string const text = tick_text(value, step_of(scale));
        int const width = 9 * static_cast<int>(text.size());
        write_text(strip, text, {std::min(column - width / 2, picture_width - width), foot + 20});
    }
    for (std::size_t bin = 0; bin < bins; ++bin) {
        double const share = static_cast<double>(counts[bin]) / highest;
        int const height = static_cast<int>(std::lround(share * field_height));
        int const left = histogram_left + static_cast<int>(bin) * bin_width;
        // Bars of a few pixels among millions stay visible.
        int const shown = counts[bin] > 0 ? std::max(height, 1) : 0;
        cv::rectangle(strip, {left, foot - shown, bin_width, shown}, ink, cv::FILLED);
    }
    cv::line(strip, {histogram_left, foot}, {histogram_left + histogram_width, foot}, ink);
}

} // namespace

std::string tick_text(double value, double step) {
    int const decimals = std::clamp(1 - static_cast<int>(std::floor(std::log10(step))), 0, 9);
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

cv::Mat map_pictures(polarization::Measured_calibration const& measured) {
    auto const maps = shown_maps(measured.calibration.model);
    cv::Mat picture(strip_height * static_cast<int>(maps.size()), picture_width, CV_8UC3, paper);
    for (std::size_t number = 0; number < maps.size(); ++number) {
        Shown_map const& map = maps[number];
        cv::Mat strip =
            picture.rowRange(cv::Range(0, strip_height) + strip_height * static_cast<int>(number));
        std::vector<float> const values = values_of(map, measured);
        Map_statistics const statistics = statistics_of(values, measured);
        Scale const scale = scale_of(map, statistics);
        write_text(strip, std::string(map.name) + ", " + std::string(map.meaning), {map_left, 24});
        write_text(
            strip,
            "histogram: median " + tick_text(statistics.median, step_of(scale) / 10) + ", spread " +
                tick_text(statistics.spread, step_of(scale) / 10),
            {histogram_left, 24});
        draw_map(strip, values, measured.calibration.maps->region.size(), scale);
        draw_scale(strip, scale);
        draw_histogram(strip, values, scale);
    }
    return picture;
}

} // namespace polarize_tool
