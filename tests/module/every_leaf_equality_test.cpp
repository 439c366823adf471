/// @file
/// Covers every leaf of the selection: 4 phases, 2 ranges, 64 output sets and 4 parities, on frames
/// with vector blocks, with every kind of samples and matrices, bit for bit against the reference.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace {

using namespace support;

constexpr std::array<std::pair<std::size_t, std::size_t>, 8> frames{
    {{4, 48}, {4, 35}, {5, 50}, {5, 49}, {6, 50}, {6, 49}, {3, 64}, {7, 37}}};

class Every_leaf_of_phase : public testing::TestWithParam<std::int32_t> {};

TEST_P(Every_leaf_of_phase, equals_the_reference) {
    Equality_checker check;
    std::size_t expected_calls = 0;
    for (std::uint64_t seed : equality_seeds()) {
        for (auto const& [height, width] : frames) {
            for (Sample_kind const samples : every_sample_kind) {
                for (Matrix_kind const matrices : every_matrix_kind) {
                    Scene scene = make_scene(height, width, samples, matrices, GetParam(), ++seed);
                    for (Scale const& scale : {sample_units, rescaled_12_bit}) {
                        scene.scale = scale;
                        for (unsigned set = 0; set < plane_set_count; ++set) {
                            scene.wanted = {set};
                            ASSERT_TRUE(check(scene));
                            expected_calls += 2;
                        }
                    }
                }
            }
        }
    }
    EXPECT_EQ(check.calls() + check.calls_left_out(), expected_calls);
    EXPECT_EQ(expected_calls, 43'008 * equality_rounds().count);
}

INSTANTIATE_TEST_SUITE_P(All, Every_leaf_of_phase, testing::Range(0, 4));

} // namespace
