/// @file
/// Covers the set of variants: every one of the 63 output sets in every phase, parity and range
/// writes its planes, with the values that the full set gives, and no other.

#include "support/planes.hpp"

#include <gtest/gtest.h>

#include <iostream>
#include <utility>
#include <vector>

namespace {

using namespace support;

constexpr std::array ranges{sample_units, rescaled_12_bit};

/// With vector blocks, a weighted tail and borders.
constexpr std::array<std::pair<std::size_t, std::size_t>, 4> every_parity{
    {{5, 49}, {5, 50}, {6, 49}, {6, 50}}};

Scene scene_of(std::size_t height, std::size_t width, std::int32_t phase, Scale const& scale) {
    Scene scene =
        make_scene(height, width, Sample_kind::random_12_bit, Matrix_kind::random, phase, 31);
    scene.scale = scale;
    return scene;
}

TEST(Variant_set, every_output_set_writes_exactly_its_planes_in_every_phase_and_parity) {
    int variants = 0;
    for (auto const& [height, width] : every_parity) {
        for (std::int32_t phase = 0; phase < 4; ++phase) {
            for (Scale const& scale : ranges) {
                Scene scene = scene_of(height, width, phase, scale);
                Planes const whole = compute(scene);
                for (unsigned bits = 1; bits < plane_set_count; ++bits) {
                    scene.wanted = {bits};
                    ASSERT_TRUE(is_part_of(compute(scene), whole, scene.wanted)) << describe(scene);
                    ++variants;
                }
            }
        }
    }
    EXPECT_EQ(variants, 2016);
    std::cout << "variants run: " << variants << '\n';
}

TEST(Variant_set, one_plane_more_changes_no_other_plane) {
    int pairs = 0;
    for (auto const& [height, width] : every_parity) {
        for (std::int32_t phase = 0; phase < 4; ++phase) {
            for (Scale const& scale : ranges) {
                Scene scene = make_scene(
                    height, width, Sample_kind::random_16_bit, Matrix_kind::random, phase, 53);
                scene.scale = scale;
                std::vector<Planes> of_set;
                for (unsigned bits = 0; bits < plane_set_count; ++bits) {
                    scene.wanted = {bits};
                    of_set.push_back(compute(scene));
                    for (Plane const plane : every_plane) {
                        unsigned const smaller = bits & ~only(plane).bits;
                        if (smaller != bits && smaller != 0) {
                            ASSERT_TRUE(is_part_of(of_set[smaller], of_set[bits], {smaller}))
                                << "without " << name_of(plane) << ": " << describe(scene);
                            ++pairs;
                        }
                    }
                }
            }
        }
    }
    // 6 * 2^5 edges of the cube of sets, less the six at the empty set.
    EXPECT_EQ(pairs, 4 * 4 * 2 * (192 - 6));
    std::cout << "pairs of sets compared: " << pairs << '\n';
}

TEST(Variant_set, the_range_changes_nothing_in_azimuth_dolp_and_ratios) {
    for (std::int32_t phase = 0; phase < 4; ++phase) {
        for (Plane const plane : {Plane::azimuth, Plane::dolp, Plane::normalized_stokes}) {
            Scene scene = scene_of(5, 50, phase, {12, 4095, 65535, 4095});
            scene.wanted = only(plane);
            Planes const kept = compute(scene);
            scene.scale.maximum_output_value_integer = 65535;
            Planes const rescaled = compute(scene);
            EXPECT_EQ(kept.azimuth, rescaled.azimuth);
            EXPECT_EQ(kept.dolp, rescaled.dolp);
            EXPECT_EQ(kept.normalized_stokes, rescaled.normalized_stokes);
        }
    }
}

TEST(Variant_set, the_range_changes_each_stokes_plane) {
    for (Plane const plane : {Plane::s0, Plane::s1, Plane::s2}) {
        Scene scene = scene_of(5, 50, 0, {12, 4095, 65535, 4095});
        scene.wanted = only(plane);
        Planes const kept = compute(scene);
        scene.scale.maximum_output_value_integer = 65535;
        Planes const rescaled = compute(scene);
        EXPECT_EQ(kept.s0 == rescaled.s0, plane != Plane::s0);
        EXPECT_EQ(kept.s1 == rescaled.s1, plane != Plane::s1);
        EXPECT_EQ(kept.s2 == rescaled.s2, plane != Plane::s2);
    }
}

} // namespace
