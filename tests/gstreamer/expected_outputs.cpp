#include "expected_outputs.hpp"

#include "veldrane_mrv/polarization/pictures.hpp"
#include "veldrane_mrv/polarization/signed_transform.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"
#include "veldrane_mrv/polarization/validity.hpp"

namespace expected_outputs {
namespace {

using polarization::Colour_picture;
using polarization::Plane;

Colour_picture picture_of(
    polarization::Picture_source const& source, std::span<std::uint16_t const> s0, Output output) {
    if (output == Output::angle) {
        return angle_degree_picture(source);
    }
    if (output == Output::degree) {
        return degree_picture(source);
    }
    Colour_picture picture{source.width, source.height, {}};
    for (std::uint16_t const element : s0) {
        auto const level =
            polarization::display_level(static_cast<double>(element) / source.full_scale);
        picture.pixels.push_back({level, level, level});
    }
    return picture;
}

Plane plane_of(Output output) {
    switch (output) {
    case Output::s1:
        return Plane::s1;
    case Output::s2:
        return Plane::s2;
    case Output::azimuth:
        return Plane::azimuth;
    case Output::dolp:
        return Plane::dolp;
    default:
        return Plane::s0;
    }
}

} // namespace

polarization::Frame frame_of(polarization::Size const& size, int bit_depth, std::uint64_t seed) {
    polarization::Simulation_settings settings;
    settings.width = size.width;
    settings.height = size.height;
    settings.phase = 2;
    settings.bit_depth = bit_depth;
    settings.seed = seed;
    polarization::Frame frame = simulate(settings).frame;
    frame.samples[frame.samples.size() / 2] = static_cast<std::uint16_t>((1 << bit_depth) - 1);
    return frame;
}

std::vector<std::uint8_t> bytes_of(
    polarization::Frame const& frame, polarization::Settings const& settings, Output output,
    polarization::Mode mode, bool is_masked) {
    polarization::Planes planes(
        frame.height, frame.width, {Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp});
    polarization::Signed_transform transform(settings, mode);
    transform(frame.view(), planes.views(), {});
    std::vector<std::uint8_t> bytes;
    if (!is_picture(output)) {
        for (std::uint16_t const element : planes.integer_plane(plane_of(output))) {
            bytes.push_back(static_cast<std::uint8_t>(element & 255));
            bytes.push_back(static_cast<std::uint8_t>(element >> 8));
        }
        return bytes;
    }
    std::vector<std::uint8_t> validity(is_masked ? frame.samples.size() : 0);
    if (is_masked) {
        polarization::Validity_marker(settings, mode)(frame.view(), validity);
    }
    Colour_picture const picture = picture_of(
        {planes.integer_plane(Plane::azimuth), planes.integer_plane(Plane::dolp), frame.width,
         frame.height, settings.scale.full_scale(), validity},
        planes.integer_plane(Plane::s0), output);
    for (auto const& [red, green, blue] : picture.pixels) {
        bytes.insert(bytes.end(), {blue, green, red, 255});
    }
    return bytes;
}

} // namespace expected_outputs
