#include "page/colour_tables.hpp"

#include "output/image_writing.hpp"
#include "page/page_encoding.hpp"
#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace polarize_tool {
namespace {

constexpr unsigned level_end = 255;

std::vector<std::uint8_t> red_green_blue(polarization::Colour_picture const& picture) {
    std::vector<std::uint8_t> bytes;
    for (polarization::Colour const& pixel : picture.pixels) {
        bytes.insert(bytes.end(), pixel.begin(), pixel.end());
    }
    return bytes;
}

// A colour without red or green in it (a* = 0) of CIELAB, which dichromats who lack red or green
// see as it is. CIE 15:2004, section 8.2.1, with the white D65; sRGB by IEC 61966-2-1.
std::array<std::uint8_t, 3> blue_yellow(double lightness, double b) {
    auto const light = [](double root) {
        constexpr double knee = 6.0 / 29.0;
        return root > knee ? root * root * root : 3.0 * knee * knee * (root - 4.0 / 29.0);
    };
    double const root = (lightness + 16.0) / 116.0;
    double const x = 0.95047 * light(root);
    double const y = light(root);
    double const z = 1.08883 * light(root - b / 200.0);
    return {
        polarization::display_level(3.2404542 * x - 1.5371385 * y - 0.4985314 * z),
        polarization::display_level(-0.9692660 * x + 1.8760108 * y + 0.0415560 * z),
        polarization::display_level(0.0556434 * x - 0.2040259 * y + 1.0572252 * z)};
}

// An ellipse around a grey in the plane a* = 0, once around in half a turn of the angle: yellow at
// 0, light at 45, blue at 90, dark at 135 degrees. About the largest that a screen can show.
std::vector<std::uint8_t> second_angle_table() {
    constexpr double middle = 60.0;
    constexpr double reach_of_lightness = 28.0;
    constexpr double reach_of_b = 45.0;
    std::vector<std::uint8_t> table;
    for (std::size_t hue = 0; hue < Colour_tables::hue_count; ++hue) {
        double const direction =
            2.0 * std::numbers::pi * static_cast<double>(hue) / Colour_tables::hue_count;
        for (std::size_t level = 0; level < Colour_tables::level_count; ++level) {
            // The square root as in the first table.
            double const reach =
                std::sqrt(static_cast<double>(level) / (Colour_tables::level_count - 1));
            auto const colour = blue_yellow(
                middle + reach_of_lightness * reach * std::sin(direction),
                reach_of_b * reach * std::cos(direction));
            table.insert(table.end(), colour.begin(), colour.end());
        }
    }
    return table;
}

std::vector<std::uint8_t> signed_table() {
    constexpr double end_lightness = 70.0;
    constexpr double yellow = 60.0;
    constexpr double blue = 42.0;
    std::vector<std::uint8_t> table;
    for (int level = 0; level <= static_cast<int>(level_end); ++level) {
        double const share = std::clamp((level - 128) / 127.0, -1.0, 1.0);
        auto const colour =
            blue_yellow(end_lightness * std::abs(share), share * (share > 0.0 ? yellow : blue));
        table.insert(table.end(), colour.begin(), colour.end());
    }
    return table;
}

} // namespace

Colour_tables colour_tables() {
    Colour_tables tables;
    for (unsigned level = 0; level <= level_end; ++level) {
        tables.s0.insert(
            tables.s0.end(), 3,
            polarization::display_level(static_cast<double>(level) / level_end));
    }
    std::vector<std::uint16_t> azimuth;
    std::vector<std::uint16_t> degree;
    for (std::size_t hue = 0; hue < Colour_tables::hue_count; ++hue) {
        for (std::size_t level = 0; level < Colour_tables::level_count; ++level) {
            azimuth.push_back(
                polarization::fine_azimuth(static_cast<double>(hue) / Colour_tables::hue_count));
            degree.push_back(polarization::fine_degree(
                static_cast<double>(level) / (Colour_tables::level_count - 1)));
        }
    }
    tables.angle = red_green_blue(polarization::angle_degree_picture(
        {azimuth, degree, Colour_tables::level_count, Colour_tables::hue_count,
         polarization::fine_scale}));
    std::vector<std::uint16_t> ramp;
    for (unsigned level = 0; level <= level_end; ++level) {
        ramp.push_back(polarization::fine_degree(static_cast<double>(level) / level_end));
    }
    tables.degree = red_green_blue(
        polarization::degree_picture({{}, ramp, ramp.size(), 1, polarization::fine_scale}));
    tables.angle_second = second_angle_table();
    tables.signed_share = signed_table();
    return tables;
}

std::string colour_wheel_uri() {
    return data_uri("image/png", encode_png(polarization::colour_wheel(240)));
}

std::string colour_wheel_uri(std::vector<std::uint8_t> const& table) {
    constexpr std::size_t side = 240;
    polarization::Colour_picture wheel{side, side, {}};
    for (std::size_t row = 0; row < side; ++row) {
        for (std::size_t column = 0; column < side; ++column) {
            constexpr double radius = side / 2.0;
            double const right = static_cast<double>(column) + 0.5 - radius;
            double const up = radius - static_cast<double>(row) - 0.5;
            double const turn = std::atan2(up, right) / std::numbers::pi + 1.0;
            auto const hue = static_cast<std::size_t>(
                std::lround(turn * static_cast<double>(Colour_tables::hue_count)));
            double const degree = std::min(std::hypot(right, up) / radius, 1.0);
            auto const level = static_cast<std::size_t>(
                std::lround(degree * static_cast<double>(Colour_tables::level_count - 1)));
            std::size_t const start =
                3 * (hue % Colour_tables::hue_count * Colour_tables::level_count + level);
            wheel.pixels.push_back({table[start], table[start + 1], table[start + 2]});
        }
    }
    return data_uri("image/png", encode_png(wheel));
}

std::string colour_bar_uri(std::vector<std::uint8_t> const& table) {
    polarization::Colour_picture bar{table.size() / 3, 1, {}};
    for (std::size_t start = 0; start < table.size(); start += 3) {
        bar.pixels.push_back({table[start], table[start + 1], table[start + 2]});
    }
    return data_uri("image/png", encode_png(bar));
}

} // namespace polarize_tool
