/// @file
/// What differs from pixel to pixel of a sensor: dark level, gain, analyser.
///
/// A sample of a pixel is I = T / 2 * (S0 + D * (cos(2 phi) * S1 + sin(2 phi) * S2)) + dark level,
/// as for the positions of the cell (calibration.hpp). Three models say how much of it is a pixel's
/// own:
///
///   position   nothing: four analysers for all pixels
///   gain       dark level and gain; the analysers are those of the positions
///   pixel      dark level and analyser (T, D, phi)
///
/// The first correction is Powell and Gruev's flat field, the last one their calibration of single
/// pixels ("Calibration methods for division-of-focal-plane polarimeters", Optics Express 21, 21039
/// (2013)).
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace veldrane_mrv::polarization {

enum class Calibration_model { position, gain, pixel };

inline constexpr std::array<Calibration_model, 3> all_calibration_models = {
    Calibration_model::position, Calibration_model::gain, Calibration_model::pixel};

/// "position", "gain" or "pixel".
constexpr std::string_view name_of(Calibration_model model) {
    constexpr std::array<std::string_view, 3> names{"position", "gain", "pixel"};
    return names[static_cast<unsigned>(model)];
}

/// @throws Argument_error for any other name, with the three
Calibration_model parse_calibration_model(std::string_view name);

/// Dark levels and gains, or dark levels and analysers, of every pixel of a part of a sensor. The
/// maps are row by row, `region.width * region.height` numbers each; those that the model has no
/// use for are empty.
struct Calibration_maps {
    /// Of the frames that the maps were measured in.
    Size sensor{};
    /// The part of them that the maps cover.
    Region region{};
    int bit_depth = 0;
    /// Sample without light, at least 0 and at most the largest sample.
    std::vector<float> dark_level{};
    /// Model `gain`: what a sample less its dark level is multiplied by to get that of a pixel with
    /// the mean throughput of its position; above 0.
    std::vector<float> gain{};
    /// Model `pixel`: relative to the mean of the four positions' throughputs, which is 1; above 0.
    std::vector<float> throughput{};
    std::vector<float> diattenuation{};
    /// In degrees, in [0, 180).
    std::vector<float> orientation{};
    /// Pixels that tell nothing, hot or dead, as indices row * region.width + column in ascending
    /// order. Whatever the maps have there is usable, so that a transform needs no exception.
    std::vector<std::uint32_t> bad_pixels{};

    bool operator==(Calibration_maps const&) const = default;
};

/// One of the maps.
struct Map_description {
    std::string_view name;
    std::vector<float> Calibration_maps::*numbers;
};

inline constexpr std::array<Map_description, 2> maps_of_gain{
    {{"dark_level", &Calibration_maps::dark_level}, {"gain", &Calibration_maps::gain}}};

inline constexpr std::array<Map_description, 4> maps_of_pixel{
    {{"dark_level", &Calibration_maps::dark_level},
     {"throughput", &Calibration_maps::throughput},
     {"diattenuation", &Calibration_maps::diattenuation},
     {"orientation", &Calibration_maps::orientation}}};

/// Those of a model, in the order in which files hold them; none for `position`.
constexpr std::span<Map_description const> maps_of(Calibration_model model) {
    switch (model) {
    case Calibration_model::position:
        return {};
    case Calibration_model::gain:
        return maps_of_gain;
    case Calibration_model::pixel:
        break;
    }
    return maps_of_pixel;
}

/// Those of a part, which is all of the sensor then.
/// @throws Argument_error if the maps do not cover the region of their sensor
Calibration_maps of_region(Calibration_maps const& maps, Region const& region);

} // namespace veldrane_mrv::polarization
