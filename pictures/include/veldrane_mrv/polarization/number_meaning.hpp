/// @file
/// What the numbers of a stored plane mean, in words and figures.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/planes.hpp"
#include "veldrane_mrv/polarization/scale.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace veldrane_mrv::polarization {

/// What the numbers count: steps of the full scale, or physical quantities with the angle in one of
/// two units.
enum class Units { scaled, degrees, radians };

/// How planes have been made and stored.
struct Stored_as {
    Units units = Units::scaled;
    Scale scale;
    Mode mode = Mode::fast;
    /// Whether S1 and S2 have their signs.
    bool is_signed = false;
    Size size;
};

/// value = number * step - offset, in `unit`. Texts are empty where there is nothing to tell.
struct Number_meaning {
    /// "sample", "degree", "radian" or "1".
    std::string_view unit;
    double step;
    double offset;
    /// The largest number that stands for a value, if there is one.
    std::optional<double> full_scale;
    std::string_view range;
    /// What a pixel holds where the quantity has no value.
    std::string_view undefined;
    /// Where in the file the number of a pixel stands.
    std::string_view placement;
    /// Of the last row and column.
    std::string_view final_pixel;
};

Number_meaning meaning_of(Plane plane, Stored_as const& stored);

/// What holds for all planes: how a number becomes a value, where the angle 0 lies and which way it
/// grows, and whose weights are used without a calibration.
inline constexpr std::string_view value_rule = "number * step - offset";
inline constexpr std::string_view zero_direction = "along the rows, towards growing columns";
inline constexpr std::string_view sense =
    "counter-clockwise on a picture whose row 0 is at the top";
inline constexpr std::string_view no_calibration = "ideal analysers";

/// Where the angle 0 lies if the weights were turned (`turned` in matrices.hpp), such as "30
/// degrees counter-clockwise from the rows"; `zero_direction` for 0.
std::string described_zero_direction(double degrees);

} // namespace veldrane_mrv::polarization
