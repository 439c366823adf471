/// @file
/// Covers many values at the finest output scale: one fused or reordered operation too many moves
/// only about one result in ten thousand across a rounding border. Bit for bit against the
/// reference.

#include "support/equality_checker.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;

constexpr std::array sets{
    all_planes,
    only(Plane::normalized_stokes),
    only(Plane::s0),
    only(Plane::azimuth),
    only(Plane::dolp),
    Plane_set{only(Plane::s1).bits | only(Plane::s2).bits},
    Plane_set{only(Plane::azimuth).bits | only(Plane::dolp).bits}};

class Large_frames_in_phase : public testing::TestWithParam<std::int32_t> {
protected:
    void compare(std::size_t height, std::size_t width, std::uint64_t stream) {
        Equality_checker check;
        for (std::uint64_t seed : equality_seeds()) {
            seed += 1000 * stream;
            for (Matrix_kind const matrices : every_matrix_kind) {
                for (Scale const& scale : {sample_units, Scale{12, 40000, 65535, 65535}}) {
                    Scene scene = make_scene(
                        height, width, Sample_kind::random_16_bit, matrices, GetParam(), ++seed);
                    scene.scale = scale;
                    for (Plane_set const set : sets) {
                        scene.wanted = set;
                        ASSERT_TRUE(check(scene));
                    }
                }
            }
        }
        EXPECT_EQ(
            check.calls() + check.calls_left_out(),
            3 * 2 * 2 * sets.size() * equality_rounds().count);
    }
};

TEST_P(Large_frames_in_phase, of_64_by_1024_equal_the_reference) {
    compare(64, 1024, 1);
}

TEST_P(Large_frames_in_phase, of_63_by_1023_equal_the_reference) {
    compare(63, 1023, 2);
}

TEST_P(Large_frames_in_phase, of_2_by_4096_equal_the_reference) {
    compare(2, 4096, 3);
}

INSTANTIATE_TEST_SUITE_P(All, Large_frames_in_phase, testing::Range(0, 4));

} // namespace
