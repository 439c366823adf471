#include "veldrane_mrv/polarization/pictures.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

// Ottosson's OKLab (2020), a space in which equal steps look equal. At this lightness the chroma is
// about the largest for which a screen can show every hue of the full turn.
constexpr double lightness = 0.75;
constexpr double chroma = 0.125;
constexpr double first_hue = 0.5; // radians: angle 0 is red, 90 is cyan

// How an sRGB display takes light from 0 to 1.
double encoded(double linear) {
    double const light = std::clamp(linear, 0.0, 1.0);
    return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1.0 / 2.4) - 0.055;
}

std::uint8_t level_of(double fraction) {
    return static_cast<std::uint8_t>(std::lround(255.0 * fraction));
}

Colour rounded(Fine_colour const& colour) {
    return {level_of(colour[0]), level_of(colour[1]), level_of(colour[2])};
}

// Of a colour in OKLab.
Fine_colour displayed(double light, double a, double b) {
    double const root_l = light + 0.3963377774 * a + 0.2158037573 * b;
    double const root_m = light - 0.1055613458 * a - 0.0638541728 * b;
    double const root_s = light - 0.0894841775 * a - 1.2914855480 * b;
    double const l = root_l * root_l * root_l;
    double const m = root_m * root_m * root_m;
    double const s = root_s * root_s * root_s;
    return {
        encoded(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
        encoded(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
        encoded(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

Fine_colour angle_colour(unsigned hue, double dim) {
    double const direction = first_hue + 2.0 * std::numbers::pi * hue / hue_count;
    return displayed(
        lightness * dim, chroma * dim * std::cos(direction), chroma * dim * std::sin(direction));
}

/// Numbers on the source's scale, brought to 0..steps and rounded: (number * steps + full_scale /
/// 2) / full_scale. The quotient is a product with 2^42 / full_scale, rounded up: that is off by
/// less than full_scale / 2^42 of a dividend below 2^26, which is too little to reach the next
/// whole number.
class Scaled {
public:
    Scaled(unsigned full_scale, unsigned steps)
        : full_scale_{full_scale}, steps_{steps}, reciprocal_{
                                                      (std::uint64_t{1} << 42) / full_scale + 1} {}

    unsigned operator()(std::uint16_t number) const {
        unsigned const limited = std::min<unsigned>(number, full_scale_);
        unsigned const dividend = limited * steps_ + full_scale_ / 2;
        return static_cast<unsigned>(dividend * reciprocal_ >> 42);
    }

private:
    unsigned full_scale_;
    unsigned steps_;
    std::uint64_t reciprocal_;
};

void mask(std::span<Colour> pixels, std::span<std::uint8_t const> validity) {
    for (std::size_t index = 0; index < validity.size(); ++index) {
        if (validity[index] != 0) {
            pixels[index] = invalid_colour;
        }
    }
}

std::array<Colour, level_count> const& rounded_degree_colours() {
    static std::array<Colour, level_count> const colours = [] {
        std::array<Colour, level_count> made{};
        std::ranges::transform(degree_colours(), made.begin(), rounded);
        return made;
    }();
    return colours;
}

template <class Draw>
Colour_picture drawn(Picture_source const& source, Draw const& draw) {
    Colour_picture picture{
        source.width, source.height, std::vector<Colour>(source.width * source.height)};
    draw(source, picture.pixels);
    return picture;
}

} // namespace

std::uint8_t display_level(double linear) {
    return level_of(encoded(linear));
}

std::vector<Fine_colour> angle_colours() {
    std::vector<Fine_colour> colours;
    for (unsigned hue = 0; hue < hue_count; ++hue) {
        colours.push_back(angle_colour(hue, 1.0));
    }
    return colours;
}

std::vector<Colour> const& angle_degree_colours() {
    static std::vector<Colour> const colours = [] {
        std::vector<Colour> made;
        made.reserve(std::size_t{hue_count} * level_count);
        for (unsigned hue = 0; hue < hue_count; ++hue) {
            for (unsigned level = 0; level < level_count; ++level) {
                // Most of a scene is polarised by a few per cent: the square root lets that be
                // seen.
                double const dim = std::sqrt(static_cast<double>(level) / (level_count - 1));
                made.push_back(rounded(angle_colour(hue, dim)));
            }
        }
        return made;
    }();
    return colours;
}

void draw_angle_degree(Picture_source const& source, std::span<Colour> pixels) {
    std::vector<Colour> const& colours = angle_degree_colours();
    Scaled const azimuth_of(source.full_scale, hue_count);
    Scaled const level_of_degree(source.full_scale, level_count - 1);
    for (std::size_t index = 0; index < pixels.size(); ++index) {
        // The azimuth runs 90 degrees ahead of the angle.
        unsigned const azimuth = azimuth_of(source.azimuth[index]);
        unsigned const hue = (azimuth + hue_count / 2) % hue_count;
        unsigned const level = level_of_degree(source.degree[index]);
        pixels[index] = colours[hue * level_count + level];
    }
    mask(pixels, source.validity);
}

void draw_degree(Picture_source const& source, std::span<Colour> pixels) {
    auto const& colours = rounded_degree_colours();
    Scaled const level_of_degree(source.full_scale, level_count - 1);
    for (std::size_t index = 0; index < pixels.size(); ++index) {
        pixels[index] = colours[level_of_degree(source.degree[index])];
    }
    mask(pixels, source.validity);
}

Colour_picture angle_degree_picture(Picture_source const& source) {
    return drawn(source, draw_angle_degree);
}

Colour_picture degree_picture(Picture_source const& source) {
    return drawn(source, draw_degree);
}

std::uint16_t fine_degree(double degree) {
    return static_cast<std::uint16_t>(
        std::lround(static_cast<double>(fine_scale) * std::clamp(degree, 0.0, 1.0)));
}

std::uint16_t fine_azimuth(double half_turns) {
    double const ahead = half_turns + 0.5;
    return fine_degree(ahead - std::floor(ahead));
}

Colour_picture colour_wheel(std::size_t side) {
    double const radius = static_cast<double>(side) / 2.0;
    std::vector<std::uint16_t> azimuth;
    std::vector<std::uint16_t> degree;
    for (std::size_t row = 0; row < side; ++row) {
        for (std::size_t column = 0; column < side; ++column) {
            double const right = static_cast<double>(column) + 0.5 - radius;
            double const up = radius - static_cast<double>(row) - 0.5;
            azimuth.push_back(fine_azimuth(std::atan2(up, right) / std::numbers::pi));
            degree.push_back(fine_degree(std::hypot(right, up) / radius));
        }
    }
    return angle_degree_picture({azimuth, degree, side, side, fine_scale});
}

} // namespace veldrane_mrv::polarization
