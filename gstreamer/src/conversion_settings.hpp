/// @file
/// What a user of the element asks for, and what the transform needs to know for it.
#pragma once

#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/planes.hpp"
#include "veldrane_mrv/polarization/settings.hpp"

#include <memory>
#include <string>

namespace polarization_element {

namespace polarization = veldrane_mrv::polarization;

/// Pictures come first, then planes as they are.
enum class Output { angle, degree, intensity, s0, s1, s2, azimuth, dolp };

constexpr bool is_picture(Output output) {
    return output <= Output::intensity;
}

enum class Mode_choice { automatic, fast, calibrated };

/// The bytes that a sample takes in a frame.
enum class Samples { of_8_bits, of_16_bits };

/// As the properties have it: nothing is checked.
struct Options {
    Output output = Output::angle;
    /// Angles of the top-left cell, or a phase; empty for that of the calibration.
    std::string layout{};
    /// 0 for that of the samples or of the calibration.
    unsigned bit_depth = 0;
    /// Empty for none.
    std::string calibration{};
    Mode_choice mode = Mode_choice::automatic;
    /// 0 for 65535 with rescaled Stokes planes.
    unsigned full_scale = 0;
    bool is_masked = true;
    unsigned threads = 1;
};

struct Transform_choice {
    polarization::Settings settings;
    polarization::Mode mode;
};

/// @param calibration what `options.calibration` names, null for none
/// @throws Argument_error for options that are none, contradict each other or the calibration, or
///         leave something open
Transform_choice transform_choice(
    Options const& options, std::shared_ptr<polarization::Calibration const> const& calibration,
    Samples samples);

/// Planes that the transform computes for the output; one, unless it is a picture.
polarization::Plane_set planes_of(Options const& options);

} // namespace polarization_element
