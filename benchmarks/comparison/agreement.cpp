#include "comparison/agreement.hpp"

#include "comparison/statistics.hpp"

#include <cmath>
#include <stdexcept>
#include <tuple>

namespace {

constexpr Frame_size size{64, 512};

/// Counts of 4095 that half and 95 of 100 pixels keep within. The arctangents differ by up to 0.3
/// degrees, that is 7 counts; the reciprocals by a count.
struct Tolerance {
    double half, most;
};

constexpr Tolerance exact_plane{0.5, 1};
constexpr Tolerance azimuth_tolerance{4, 8};
constexpr Tolerance dolp_tolerance{1, 2};

/// Of a ratio around 1.
constexpr Tolerance ratio_tolerance{1e-4, 1e-3};

/// First row and column where the library's float plane has each pixel at its own position: behind
/// the blocks, and below what they pack towards the start.
constexpr std::size_t first_ratio_row = 40;
constexpr std::size_t first_ratio_column = 16 * (size.width / 16 - 1);

std::vector<double> differences(std::uint16_t const* plane, std::uint16_t const* expected) {
    std::vector<double> all;
    for (std::size_t row = 0; row + 2 < size.height; ++row) {
        for (std::size_t column = 0; column + 2 < size.width; ++column) {
            std::size_t const at = row * size.width + column;
            all.push_back(std::abs(plane[at] - expected[at]));
        }
    }
    return all;
}

std::vector<double> differences(float const* plane, float const* expected) {
    std::vector<double> all;
    for (std::size_t row = first_ratio_row; row < size.height; ++row) {
        std::size_t const start = 2 * row * size.width;
        for (std::size_t i = 2 * first_ratio_column; i < 2 * size.width; ++i) {
            all.push_back(std::abs(static_cast<double>(plane[start + i]) - expected[start + i]));
        }
    }
    return all;
}

/// A contender that writes nothing must not be taken for the one before it.
void spoil(Polarization_computation_arguments const& frame) {
    for (std::uint16_t* const plane :
         {frame.s0_image, frame.s1_image, frame.s2_image, frame.azimuth_image, frame.dolp_image}) {
        if (plane != nullptr) {
            std::fill_n(plane, size.pixels(), std::uint16_t{0xFFFF});
        }
    }
    if (frame.normalized_stokes_image != nullptr) {
        std::fill_n(frame.normalized_stokes_image, 2 * size.pixels(), 1e9F);
    }
}

template <typename Element>
std::size_t compare(
    std::string const& what, Element const* plane, Element const* expected, Tolerance tolerance) {
    if (plane == nullptr) {
        return 0;
    }
    auto const all = differences(plane, expected);
    double const half = median(all);
    double const most = quantile(all, 0.95);
    // Not a comparison with >: it would let a NaN pass.
    if (!(half <= tolerance.half && most <= tolerance.most)) {
        throw std::runtime_error(
            what + " differs from the library's: median " + std::to_string(half) +
            ", 95 of 100 within " + std::to_string(most) + "; mend the contender first");
    }
    return 1;
}

} // namespace

std::size_t check_agreement(std::vector<Runner> const& runners) {
    Frame_ring const ring(size, 2, six_planes);
    std::size_t compared = 0;
    for (Output_set const& set : output_sets) {
        auto frames = ring.frames_with(set.planes);
        frames[1].raw_image = frames[0].raw_image;
        runners[0].process(frames[0], ring.matrices());
        for (Runner const& runner : runners) {
            if (runner.kind == Runner::Kind::copy) {
                continue;
            }
            spoil(frames[1]);
            runner.process(frames[1], ring.matrices());
            auto const& [own, library] = std::tie(frames[1], frames[0]);
            std::string const what = runner.name + ", " + set.name + ": ";
            compared += compare(what + "S0", own.s0_image, library.s0_image, exact_plane);
            compared += compare(what + "S1", own.s1_image, library.s1_image, exact_plane);
            compared += compare(what + "S2", own.s2_image, library.s2_image, exact_plane);
            compared += compare(
                what + "azimuth", own.azimuth_image, library.azimuth_image, azimuth_tolerance);
            compared += compare(what + "DoLP", own.dolp_image, library.dolp_image, dolp_tolerance);
            compared += compare(
                what + "ratios", own.normalized_stokes_image, library.normalized_stokes_image,
                ratio_tolerance);
        }
    }
    return compared;
}
