/// @file
/// Pictures for the eye, made from the azimuth and the degree plane, and the colours in them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace veldrane_mrv::polarization {

/// Red, green and blue as an sRGB display takes them.
using Colour = std::array<std::uint8_t, 3>;
/// The same from 0 to 1, not rounded.
using Fine_colour = std::array<double, 3>;

/// Pixels row by row without padding.
struct Colour_picture {
    std::size_t width = 0;
    std::size_t height = 0;
    std::vector<Colour> pixels;
};

/// The level 0 to 255 at which an sRGB display gives off `linear` of its most light; limited to 0
/// and 1.
std::uint8_t display_level(double linear);

/// Hues of half a turn, and levels of the degree, that the colours are tabulated for.
inline constexpr unsigned hue_count = 720;
inline constexpr unsigned level_count = 256;

/// Of angles from 0 on in steps of half a turn / `hue_count`, fully polarised. All look equally
/// bright.
std::vector<Fine_colour> angle_colours();

/// The same dimmed by the degree: `hue_count` rows of `level_count` colours, degree 0 (black) to 1.
std::vector<Colour> const& angle_degree_colours();

/// Of degrees from 0 (black) to 1 (pale yellow), perceptually uniform.
std::array<Fine_colour, level_count> const& degree_colours();

/// What a user chooses of the pictures of a frame.
struct Picture_options {
    /// Without a choice it depends on the frame.
    std::optional<bool> are_wanted{};
    /// Whether pixels that are not valid are grey.
    bool are_masked = true;
};

/// Two planes of one frame on the scale 0 to `full_scale`.
struct Picture_source {
    std::span<std::uint16_t const> azimuth;
    std::span<std::uint16_t const> degree;
    std::size_t width;
    std::size_t height;
    unsigned full_scale;
    /// One element a pixel, or none; where it is not 0 the pictures are grey.
    std::span<std::uint8_t const> validity{};
};

/// Of pixels that are not valid. No colour of the angles and degrees is a grey of this brightness.
inline constexpr Colour invalid_colour{128, 128, 128};

/// For pictures that no frame gives: numbers on the scale 0 to `fine_scale`.
inline constexpr unsigned fine_scale = 65535;
/// Of a degree, limited to 0 and 1.
std::uint16_t fine_degree(double degree);
/// Of the azimuth of any angle in half turns.
std::uint16_t fine_azimuth(double half_turns);

/// The angle as hue, dimmed by the degree of polarisation. Angles 0 and 180 have one hue; all hues
/// of one degree look equally bright, so that brightness tells the degree alone.
Colour_picture angle_degree_picture(Picture_source const& source);

/// The degree on the scale of `degree_colours`. Needs no azimuth.
Colour_picture degree_picture(Picture_source const& source);

/// The same into memory of the caller's, which has a colour for each pixel of the source.
void draw_angle_degree(Picture_source const& source, std::span<Colour> pixels);
void draw_degree(Picture_source const& source, std::span<Colour> pixels);

/// The legend of `angle_degree_picture`: in a disc that fills `side` by `side` pixels the hue of an
/// angle lies in its direction from the centre (twice), the degree is the distance from it. Outside
/// of the disc the colours go on.
Colour_picture colour_wheel(std::size_t side);

} // namespace veldrane_mrv::polarization
