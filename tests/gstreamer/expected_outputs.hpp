/// @file
/// What comes out of a frame, by the client layer and the pictures alone.
#pragma once

#include "conversion_settings.hpp"
#include "veldrane_mrv/polarization/frame.hpp"
#include "veldrane_mrv/polarization/settings.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace expected_outputs {

namespace polarization = veldrane_mrv::polarization;
using polarization_element::Output;

inline constexpr std::array all_outputs{Output::angle,   Output::degree, Output::intensity,
                                        Output::s0,      Output::s1,     Output::s2,
                                        Output::azimuth, Output::dolp};

/// A scene with noise and some saturated samples.
polarization::Frame frame_of(polarization::Size const& size, int bit_depth, std::uint64_t seed = 1);

/// The bytes without padding: two a pixel of a plane, the lower first, four of a picture.
std::vector<std::uint8_t> bytes_of(
    polarization::Frame const& frame, polarization::Settings const& settings, Output output,
    polarization::Mode mode = polarization::Mode::fast, bool is_masked = true);

} // namespace expected_outputs
