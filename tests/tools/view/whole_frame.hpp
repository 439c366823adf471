/// @file
/// Frames of tests and what `process` makes of them as a whole.
#pragma once

#include "support/matrices.hpp"
#include "support/samples.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/signed_transform.hpp"
#include "veldrane_mrv/polarization/validity.hpp"
#include "view/row_planes.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace polarize_tool {

/// A frame and how it is computed.
struct Case {
    polarization::Settings settings;
    polarization::Mode mode;
    polarization::Size size;
    support::Samples samples;
    std::vector<std::uint8_t> saturated;

    polarization::Frame_view view() const { return {samples, size.height, size.width}; }
};

/// Every phase, both modes and scales by turns of `seed`.
inline Case make_case(std::size_t seed, support::Sample_kind kind, polarization::Size const& size) {
    int const phase = static_cast<int>(seed % 4);
    polarization::Settings const settings{
        polarization::Mosaic::from_phase(phase),
        seed % 3 == 0 ? polarization::Scale{12, 4095} : polarization::Scale{12},
        {support::make_matrices(support::Matrix_kind::random, phase, seed)}};
    auto samples = support::make_samples(kind, size.height, size.width, seed);
    std::vector<std::uint8_t> saturated(seed % 2 == 0 ? 0 : samples.size());
    std::mt19937 random(static_cast<unsigned>(seed));
    for (std::uint8_t& one : saturated) {
        one = random() % 7 == 0 ? 1 : 0;
    }
    return {
        settings, seed % 2 == 0 ? polarization::Mode::fast : polarization::Mode::calibrated, size,
        samples, saturated};
}

/// What `process` makes of the whole frame.
struct Whole {
    polarization::Planes planes;
    polarization::Signed_planes signs;
    std::vector<std::uint8_t> validity;

    explicit Whole(Case const& one)
        : planes{one.size.height, one.size.width, {polarization::Plane::s0, polarization::Plane::azimuth, polarization::Plane::dolp, polarization::Plane::validity}},
          signs{
              one.size.height, one.size.width, {polarization::Plane::s1, polarization::Plane::s2}} {
        polarization::Frame_transform{one.settings, {.mode = one.mode}}(
            one.view(), planes.views(), signs.views());
        auto const marks = planes.views().validity;
        if (!one.saturated.empty()) {
            polarization::mark_saturated(one.saturated, one.size, marks);
        }
        validity.assign(marks.begin(), marks.end());
    }
};

/// The pixels of a square, one after another.
template <class Visit>
void for_each_pixel(
    polarization::Region const& region, std::size_t k, polarization::Size const& square,
    Visit visit) {
    for (std::size_t row = square.height * k;
         row < std::min((square.height + 1) * k, region.height); ++row) {
        for (std::size_t column = square.width * k;
             column < std::min((square.width + 1) * k, region.width); ++column) {
            visit(region.row + row, region.column + column);
        }
    }
}

} // namespace polarize_tool
