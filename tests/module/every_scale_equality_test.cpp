/// @file
/// Covers the four numbers that speak of full scales: all ways to reach either range, and full
/// scales that are small, fractional, negative, huge or infinite, bit for bit against the
/// reference.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using namespace support;

/// Each bit depth with the integer full scale that keeps sample units and with one that does not.
std::vector<Scale> every_way_to_a_range() {
    struct Depth {
        std::int32_t bits;
        std::int32_t full_scale;
    };
    constexpr std::array depths{Depth{0, 0},      Depth{8, 255},         Depth{12, 4095},
                                Depth{16, 65535}, Depth{31, 2147483647}, Depth{32, 0}};
    std::vector<Scale> ways;
    for (Depth const& depth : depths) {
        ways.push_back({depth.bits, 0, 0, depth.full_scale});
        ways.push_back({depth.bits, 0, 0, depth.full_scale ^ 0x1000});
    }
    return ways;
}

constexpr std::array maximum_output_values{65535.0F, 4095.0F, 255.0F,    1.0F, 0.5F,
                                           1000.3F,  2.5F,    65534.75F, 0.0F, -5.0F};
constexpr std::array maximum_input_values{
    65535.0F, 4095.0F, 1234.5F, 0.1F, -4095.0F, 1e-30F, std::numeric_limits<float>::infinity()};
constexpr unsigned variants_per_scale{24};

class Every_scale_in_phase : public testing::TestWithParam<std::int32_t> {};

TEST_P(Every_scale_in_phase, equals_the_reference) {
    Equality_checker check;
    for (std::uint64_t seed : equality_seeds()) {
        unsigned step = 0;
        for (Scale scale : every_way_to_a_range()) {
            for (float const output : maximum_output_values) {
                for (float const input : maximum_input_values) {
                    scale.maximum_output_value = output;
                    scale.maximum_input_value = input;
                    for (unsigned variant = 0; variant < variants_per_scale; ++variant) {
                        Scene scene = make_scene(
                            3 + step % 4, 32 + step % 3, every_sample_kind[step % 7],
                            every_matrix_kind[step % 3], GetParam(), ++seed);
                        scene.scale = scale;
                        scene.wanted = step % 4 == 0 ? all_planes : Plane_set{1 + step % 63};
                        ++step;
                        ASSERT_TRUE(check(scene));
                    }
                }
            }
        }
    }
    EXPECT_EQ(
        check.calls() + check.calls_left_out(),
        12 * 10 * 7 * 2 * variants_per_scale * equality_rounds().count);
}

INSTANTIATE_TEST_SUITE_P(All, Every_scale_in_phase, testing::Range(0, 4));

} // namespace
