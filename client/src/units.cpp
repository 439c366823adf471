#include "veldrane_mrv/polarization/units.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

constexpr double half_turn_in_degrees = 180;

double half_turn(Angle_unit unit) {
    return unit == Angle_unit::degrees ? half_turn_in_degrees : std::numbers::pi;
}

void check_element(char const* plane, unsigned element, Scale const& scale) {
    if (element > scale.full_scale()) {
        throw Argument_error{
            "the element of the plane " + std::string{plane}, std::to_string(element),
            "give at most the full scale, " + std::to_string(scale.full_scale())};
    }
}

void check_sizes(char const* name, std::size_t size, std::size_t needed) {
    if (size != needed) {
        throw Argument_error{
            name, std::to_string(size) + " elements long",
            "give " + std::to_string(needed) + ", as the plane to convert has"};
    }
}

void check_finite(char const* name, double value) {
    if (!std::isfinite(value)) {
        throw Argument_error{name, std::to_string(value), "give a finite number"};
    }
}

// Nothing is written before every element has been checked.
void check_plane_values(
    char const* name, std::span<std::uint16_t const> plane, Scale const& scale) {
    if (!plane.empty()) {
        check_element(name, *std::ranges::max_element(plane), scale);
    }
}

// Converts elements; those whose companion is 0 become NaN.
template <class Convert>
void convert(
    std::span<std::uint16_t const> plane, std::span<std::uint16_t const> companion,
    std::span<float> result, Convert const& value_of) {
    for (std::size_t i = 0; i < plane.size(); ++i) {
        bool const is_undefined = !companion.empty() && companion[i] == 0;
        result[i] = is_undefined ? std::numeric_limits<float>::quiet_NaN()
                                 : static_cast<float>(value_of(plane[i]));
    }
}

template <class Element>
void convert_stokes(std::span<Element const> stokes, Scale const& scale, std::span<float> result) {
    check_sizes("the result", result.size(), stokes.size());
    double const factor = scale.sample_units_per_step();
    std::ranges::transform(stokes, result.begin(), [&](Element element) {
        return static_cast<float>(element * factor);
    });
}

// Comparison and subtraction in whole steps, so that an angle comes back as the same step.
double angle_of(std::uint16_t azimuth, unsigned full_scale, double half_turn_in_unit) {
    double const doubled = 2.0 * azimuth - full_scale;
    double const wrapped = doubled < 0 ? doubled + 2.0 * full_scale : doubled;
    return wrapped / (2.0 * full_scale) * half_turn_in_unit;
}

} // namespace

double within_half_turn(double angle, Angle_unit unit) {
    double const end = half_turn(unit);
    double const remainder = std::fmod(angle, end);
    double const positive = remainder < 0 ? remainder + end : remainder;
    // A remainder just below 0 rounds to the end; the sum makes 0 of -0.
    return positive == end ? 0 : positive + 0.0;
}

double angle_of_azimuth(std::uint16_t azimuth, Scale const& scale, Angle_unit unit) {
    check_element("azimuth", azimuth, scale);
    return angle_of(azimuth, scale.full_scale(), half_turn(unit));
}

std::uint16_t azimuth_of_angle(double angle, Scale const& scale, Angle_unit unit) {
    check_finite("the angle", angle);
    // In half turns, 0 to 1, from -90 degrees on; 0 is taken as 1, as 90 degrees are.
    double const turned = angle / half_turn(unit) + 0.5;
    double const fraction = turned - std::ceil(turned) + 1;
    return static_cast<std::uint16_t>(std::lround(fraction * scale.full_scale()));
}

double degree_of_dolp(std::uint16_t dolp, Scale const& scale) {
    check_element("dolp", dolp, scale);
    return static_cast<double>(dolp) / scale.full_scale();
}

std::uint16_t dolp_of_degree(double degree, Scale const& scale) {
    if (!(degree >= 0 && degree <= 1)) {
        throw Argument_error{
            "the degree of polarisation", std::to_string(degree), "give a number from 0 to 1"};
    }
    return static_cast<std::uint16_t>(std::lround(degree * scale.full_scale()));
}

double stokes_in_samples(std::int32_t element, Scale const& scale) {
    return element * scale.sample_units_per_step();
}

std::int32_t stokes_element(double samples, Scale const& scale) {
    check_finite("the Stokes quantity", samples);
    double const limit = scale.full_scale();
    return static_cast<std::int32_t>(
        std::lround(std::clamp(samples / scale.sample_units_per_step(), -limit, limit)));
}

void angles(
    std::span<std::uint16_t const> azimuth, std::span<std::uint16_t const> dolp, Scale const& scale,
    Angle_unit unit, std::span<float> result) {
    check_sizes("the result", result.size(), azimuth.size());
    check_sizes("the plane dolp", dolp.empty() ? azimuth.size() : dolp.size(), azimuth.size());
    check_plane_values("azimuth", azimuth, scale);
    convert(azimuth, dolp, result, [&](std::uint16_t element) {
        return angle_of(element, scale.full_scale(), half_turn(unit));
    });
}

void degrees_of_polarization(
    std::span<std::uint16_t const> dolp, std::span<std::uint16_t const> s0, Scale const& scale,
    std::span<float> result) {
    check_sizes("the result", result.size(), dolp.size());
    check_sizes("the plane s0", s0.empty() ? dolp.size() : s0.size(), dolp.size());
    check_plane_values("dolp", dolp, scale);
    convert(dolp, s0, result, [&](std::uint16_t element) {
        return static_cast<double>(element) / scale.full_scale();
    });
}

void stokes_in_samples(
    std::span<std::uint16_t const> stokes, Scale const& scale, std::span<float> result) {
    convert_stokes(stokes, scale, result);
}

void stokes_in_samples(
    std::span<std::int32_t const> stokes, Scale const& scale, std::span<float> result) {
    convert_stokes(stokes, scale, result);
}

} // namespace veldrane_mrv::polarization
