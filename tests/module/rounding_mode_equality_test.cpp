/// @file
/// Covers the caller's floating-point environment: in each rounding mode, with results flushed to
/// zero or not, with subnormal operands taken for zeros or not, all 2016 variants follow it, equal
/// the reference in the same environment bit for bit, and leave the control word as it was.

#include "reference/arithmetic_mode.hpp"
#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <set>
#include <tuple>

namespace {

using namespace support;

/// Bits of the control word that act separately.
constexpr unsigned flush_results{0x8000};
constexpr unsigned operands_are_zeros{0x0040};

/// Every parity, each with vector blocks, a weighted tail and borders.
struct Geometry {
    std::size_t height;
    std::size_t width;
};
constexpr std::array<Geometry, 4> every_parity{{{5, 49}, {4, 50}, {5, 50}, {4, 49}}};

/// Each scene takes every third set, so that a set meets each kind of samples, each kind of
/// matrices and each parity.
constexpr unsigned set_step{3};

testing::AssertionResult check_under(
    Equality_checker& check, unsigned control_bits, Scene const& scene) {
    reference::Arithmetic_mode const mode{control_bits};
    return check(scene);
}

class Rounding_mode : public testing::TestWithParam<std::tuple<unsigned, unsigned>> {
protected:
    void check_sets(Scene& scene, unsigned first_set) {
        auto const [rounding, flushing] = GetParam();
        for (Scale const& scale : {sample_units, rescaled_12_bit}) {
            scene.scale = scale;
            for (unsigned set = first_set; set < plane_set_count; set += set_step) {
                scene.wanted = {set};
                ASSERT_TRUE(check_under(check_, rounding | flushing, scene))
                    << "control bits " << std::hex << (rounding | flushing);
                variants_.emplace(
                    scene.polar_phase, scene.scale.bit_depth, set, scene.height % 2,
                    scene.width % 2);
            }
        }
    }

    Equality_checker check_;
    std::set<std::tuple<int, int, unsigned, std::size_t, std::size_t>> variants_;
};

TEST_P(Rounding_mode, of_the_caller_gives_the_results_of_the_reference) {
    for (std::uint64_t seed : equality_seeds()) {
        for (std::int32_t phase = 0; phase < 4; ++phase) {
            for (unsigned kind = 0; kind < every_sample_kind.size(); ++kind) {
                for (unsigned weights = 0; weights < every_matrix_kind.size(); ++weights) {
                    auto const& [height, width] = every_parity[kind % every_parity.size()];
                    Scene scene = make_scene(
                        height, width, every_sample_kind[kind], every_matrix_kind[weights], phase,
                        ++seed);
                    ASSERT_NO_FATAL_FAILURE(check_sets(scene, 1 + (kind + weights) % set_step));
                }
            }
        }
    }
    EXPECT_EQ(variants_.size(), 2016U);
    EXPECT_EQ(
        check_.calls() + check_.calls_left_out(), 4 * 7 * 3 * 2 * 21 * 2 * equality_rounds().count);
}

INSTANTIATE_TEST_SUITE_P(
    All, Rounding_mode,
    testing::Combine(
        testing::Values(
            reference::nearest, reference::downward, reference::upward, reference::toward_zero),
        testing::Values(
            0U, flush_results, operands_are_zeros, flush_results | operands_are_zeros)));

} // namespace
