#include "support/equality_checker.hpp"

#include "reference/frame_rule.hpp"
#include "reference/reference_transform.hpp"
#include "support/fault_report.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>
#include <xmmintrin.h>

namespace support {
namespace {

std::size_t all_calls{0};
std::size_t all_scenes{0};

/// The lower six bits record which exceptions occurred; all others steer the arithmetic.
constexpr unsigned exception_flags{0x3F};

std::uint64_t number_from_environment(char const* name, std::uint64_t otherwise) {
    char const* const value = std::getenv(name);
    if (value == nullptr) {
        return otherwise;
    }
    std::string_view const text{value};
    std::uint64_t number{0};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw std::invalid_argument{
            std::string{name} + " is \"" + value + "\"; give a decimal number"};
    }
    return number;
}

} // namespace

Equality_checker::Equality_checker(Transform transform) : transform_{transform} {
    for (Plane const plane : every_plane) {
        expected_[static_cast<std::size_t>(plane)].resize(bytes_per_pixel(plane) * largest_frame);
    }
}

void Equality_checker::compute_expected(Scene const& scene) {
    for (Plane const plane : every_plane) {
        if (scene.wanted.has(plane)) {
            auto& bytes = expected_[static_cast<std::size_t>(plane)];
            fill_plane({bytes.data(), bytes_per_pixel(plane) * scene.pixels()}, Fill::plain);
        }
    }
    std::array<void*, every_plane.size()> planes{};
    std::ranges::transform(expected_, planes.begin(), [](auto& plane) { return plane.data(); });
    Calibration_matrices const matrices{
        scene.matrices[0], scene.matrices[1], scene.matrices[2], scene.matrices[3]};
    static_cast<void>(
        reference::transform(arguments_of(scene, scene.samples.data(), planes), matrices));
}

/// Gives the expected float plane another fill where no store reaches it.
void Equality_checker::fill_unwritten_floats(Scene const& scene, Fill fill) {
    reference::Frame_rule const frame{scene.height, scene.width};
    auto& bytes = expected_[static_cast<std::size_t>(Plane::normalized_stokes)];
    for (std::size_t index = 0; index < 2 * scene.pixels(); ++index) {
        if (!frame.covers_float(index)) {
            std::uint32_t const bits = fill_float_bits(index, fill);
            std::memcpy(bytes.data() + sizeof(bits) * index, &bits, sizeof(bits));
        }
    }
}

testing::AssertionResult Equality_checker::check_plane(Scene const& scene, Plane plane) const {
    if (!scene.wanted.has(plane)) {
        if (frame_.is_untouched(plane)) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << name_of(plane) << " was written unasked";
    }
    auto const actual = frame_.plane(plane);
    std::span const expected{expected_[static_cast<std::size_t>(plane)].data(), actual.size()};
    auto const difference = first_difference(
        plane, scene.width, expected, actual,
        scene.any_nan_is_equal ? Nan_rule::any_nan_is_equal : Nan_rule::exact_bits);
    if (!difference) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << describe(*difference);
}

testing::AssertionResult Equality_checker::operator()(Scene const& scene) {
    static std::size_t const stride = equality_stride();
    if (all_scenes++ % stride != 0) {
        calls_left_out_ += std::size(both_edges);
        return testing::AssertionSuccess();
    }
    Fault_report const report{scene};
    compute_expected(scene);
    for (Edge const edge : both_edges) {
        Fill const fill = edge == Edge::end ? Fill::plain : Fill::inverted;
        frame_.load(scene, edge, fill);
        if (fill == Fill::inverted && scene.wanted.has(Plane::normalized_stokes)) {
            fill_unwritten_floats(scene, fill);
        }
        unsigned const control = _mm_getcsr() & ~exception_flags;
        int const result = frame_.run(transform_);
        ++calls_;
        ++all_calls;
        char const* const where = edge == Edge::end ? "at the end, " : "at the start, ";
        if (result != 0) {
            return testing::AssertionFailure()
                   << "returned " << result << "; guard " << where << describe(scene);
        }
        if ((_mm_getcsr() & ~exception_flags) != control) {
            return testing::AssertionFailure()
                   << "changed the floating-point control word; guard " << where << describe(scene);
        }
        for (Plane const plane : every_plane) {
            if (auto verdict = check_plane(scene, plane); !verdict) {
                return verdict << "; guard " << where << describe(scene);
            }
        }
    }
    return testing::AssertionSuccess();
}

std::size_t checked_calls() {
    return all_calls;
}

std::size_t equality_stride() {
    std::size_t const stride = number_from_environment("VELDRANE_EQUALITY_STRIDE", 1);
    if (stride == 0) {
        throw std::invalid_argument{"VELDRANE_EQUALITY_STRIDE is 0; give at least 1"};
    }
    return stride;
}

void expect_volume(Equality_volume const& volume) {
    if (volume.is_whole_run) {
        EXPECT_GE(volume.calls, least_calls_of_a_round * volume.rounds);
    }
}

Equality_rounds equality_rounds() {
    Equality_rounds const rounds{
        number_from_environment("VELDRANE_EQUALITY_SEED", 20'240'229),
        number_from_environment("VELDRANE_EQUALITY_FIRST_ROUND", 0),
        number_from_environment("VELDRANE_EQUALITY_ROUNDS", 1)};
    if (rounds.count == 0) {
        throw std::invalid_argument{"VELDRANE_EQUALITY_ROUNDS is 0; give at least 1"};
    }
    return rounds;
}

std::vector<std::uint64_t> equality_seeds() {
    Equality_rounds const rounds = equality_rounds();
    std::vector<std::uint64_t> seeds;
    for (std::uint64_t round = 0; round < rounds.count; ++round) {
        seeds.push_back(rounds.seed + 1'000'000 * (rounds.first + round));
    }
    return seeds;
}

} // namespace support
