#include "veldrane_mrv/polarization/number_meaning.hpp"

#include <array>
#include <charconv>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

void tell_figures(Number_meaning& meaning, Plane plane, Stored_as const& stored) {
    bool const is_scaled = stored.units == Units::scaled;
    double const full_scale = stored.scale.full_scale();
    switch (plane) {
    case Plane::azimuth:
        if (is_scaled) {
            meaning.step = 180.0 / full_scale;
            meaning.offset = 90.0;
            meaning.full_scale = full_scale;
        } else if (stored.units == Units::degrees) {
            meaning.full_scale = 180.0;
        } else {
            meaning.unit = "radian";
            meaning.full_scale = std::numbers::pi;
        }
        break;
    case Plane::dolp:
        meaning.step = is_scaled ? 1.0 / full_scale : 1.0;
        meaning.full_scale = is_scaled ? full_scale : 1.0;
        break;
    case Plane::normalized_stokes:
    case Plane::validity:
    case Plane::uncertainty:
        break;
    default: {
        double const step = stored.scale.sample_units_per_step();
        meaning.step = is_scaled ? step : 1.0;
        meaning.full_scale = is_scaled ? full_scale : step * full_scale;
    }
    }
}

std::string_view range_of(Plane plane, Stored_as const& stored) {
    switch (plane) {
    case Plane::azimuth:
        return "angle modulo 180 degrees; number 0 and the full scale are the same angle";
    case Plane::s1:
    case Plane::s2:
        return stored.is_signed ? "signed" : "positive half; a negative value is stored as 0";
    case Plane::s0:
        return "cut off at the full scale";
    case Plane::validity:
        return "sum of 1 saturated, 2 below dark, 4 bad pixel, 8 weak; 0 is valid";
    case Plane::uncertainty:
        return "S0 in sample units, degree as a fraction, angle in degrees";
    default:
        return {};
    }
}

std::string_view undefined_of(Plane plane, Stored_as const& stored) {
    if (stored.units != Units::scaled && plane == Plane::azimuth) {
        return "NaN where the degree is stored as 0";
    }
    if (stored.units != Units::scaled && plane == Plane::dolp) {
        return "NaN where S0 is stored as 0";
    }
    return description_of(plane).undefined;
}

std::string_view placement_of(Plane plane, Mode mode) {
    return description_of(plane).is_packed && mode == Mode::fast
               ? "as the processor packs them; at the pixel's own place only in frames of two "
                 "rows or fewer than 32 columns; NaN where nothing is stored"
               : "row by row, each number at its pixel";
}

// In frames whose height and width differ in parity the processor takes the last pixel for one in
// an even row and column.
std::string_view final_pixel_of(Plane plane, Stored_as const& stored) {
    if (stored.size.height % 2 == stored.size.width % 2 || !Plane_set::all().contains(plane)) {
        return "computed with the weights of its position";
    }
    return stored.mode == Mode::calibrated
               ? "mended: computed once more with the weights of its position"
               : "computed with the weights of an even row and column, not those of its position";
}

} // namespace

Number_meaning meaning_of(Plane plane, Stored_as const& stored) {
    Number_meaning meaning{
        .unit = description_of(plane).unit,
        .step = 1.0,
        .offset = 0.0,
        .full_scale = std::nullopt,
        .range = range_of(plane, stored),
        .undefined = undefined_of(plane, stored),
        .placement = placement_of(plane, stored.mode),
        .final_pixel = final_pixel_of(plane, stored)};
    tell_figures(meaning, plane, stored);
    return meaning;
}

std::string described_zero_direction(double degrees) {
    if (degrees == 0) {
        return std::string(zero_direction);
    }
    std::array<char, 32> number{};
    std::to_chars(number.data(), number.data() + number.size() - 1, degrees);
    return std::string(number.data()) + " degrees counter-clockwise from the rows";
}

} // namespace veldrane_mrv::polarization
