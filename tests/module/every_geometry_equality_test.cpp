/// @file
/// Covers every geometry near the places where the walk changes: two rows of any small width, and
/// small heights with widths around each multiple of 16, bit for bit against the reference.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

using namespace support;

struct Geometry {
    std::size_t height;
    std::size_t width;
};

constexpr std::array<std::size_t, 14> widths_around_blocks{16, 17, 18, 31, 32, 33, 34,
                                                           47, 48, 49, 64, 65, 96, 101};

std::vector<Geometry> every_geometry() {
    std::vector<Geometry> geometries;
    for (std::size_t width = 2; width <= 40; ++width) {
        geometries.push_back({2, width});
    }
    for (std::size_t height = 3; height <= 9; ++height) {
        for (std::size_t const width : widths_around_blocks) {
            geometries.push_back({height, width});
        }
    }
    return geometries;
}

constexpr unsigned variants_per_frame{16};

/// The choice of planes at a step: 63 is no multiple of 16, so that all frames together meet every
/// set. Each fourth step takes all planes.
Plane_set rotating_set(unsigned step) {
    return step % 4 == 0 ? all_planes : Plane_set{1 + step % 63};
}

class Every_geometry_in_phase : public testing::TestWithParam<std::int32_t> {};

TEST_P(Every_geometry_in_phase, equals_the_reference) {
    Equality_checker check;
    for (std::uint64_t seed : equality_seeds()) {
        unsigned step = 0;
        for (auto const& [height, width] : every_geometry()) {
            for (Sample_kind const samples : every_sample_kind) {
                for (unsigned variant = 0; variant < variants_per_frame; ++variant) {
                    Matrix_kind const matrices = every_matrix_kind[step % 3];
                    Scene scene = make_scene(height, width, samples, matrices, GetParam(), ++seed);
                    scene.scale = step % 5 < 3 ? rescaled_12_bit : sample_units;
                    scene.wanted = rotating_set(step++);
                    ASSERT_TRUE(check(scene));
                }
            }
        }
    }
    EXPECT_EQ(
        check.calls() + check.calls_left_out(),
        137 * 7 * 2 * variants_per_frame * equality_rounds().count);
}

INSTANTIATE_TEST_SUITE_P(All, Every_geometry_in_phase, testing::Range(0, 4));

} // namespace
