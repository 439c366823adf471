/// @file
/// Covers the set of variants: every one of the 63 output sets in every phase, parity and range
/// writes its planes, with the values that the full set gives, and no other.

#include "support/planes.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace {

using namespace support;

constexpr std::array ranges{sample_units, rescaled_12_bit};

Scene scene_of(std::size_t height, std::size_t width, std::int32_t phase, Scale const& scale) {
    Scene scene =
        make_scene(height, width, Sample_kind::random_12_bit, Matrix_kind::random, phase, 31);
    scene.scale = scale;
    return scene;
}

/// A plane of a smaller set is that of the full set, or absent.
template <typename Element>
bool agrees(Grid<Element> const& part, Grid<Element> const& whole, bool wanted) {
    return wanted ? part == whole : part.elements.empty();
}

TEST(Variant_set, every_output_set_writes_exactly_its_planes_in_every_phase_and_parity) {
    int variants = 0;
    for (std::size_t const height : {5U, 6U}) {
        for (std::size_t const width : {49U, 50U}) {
            for (std::int32_t phase = 0; phase < 4; ++phase) {
                for (Scale const& scale : ranges) {
                    Scene scene = scene_of(height, width, phase, scale);
                    Planes const whole = compute(scene);
                    for (unsigned bits = 1; bits < plane_set_count; ++bits) {
                        scene.wanted = {bits};
                        Planes const part = compute(scene);
                        Plane_set const set{bits};
                        ASSERT_TRUE(
                            agrees(
                                part.normalized_stokes, whole.normalized_stokes,
                                set.has(Plane::normalized_stokes)) &&
                            agrees(part.s0, whole.s0, set.has(Plane::s0)) &&
                            agrees(part.s1, whole.s1, set.has(Plane::s1)) &&
                            agrees(part.s2, whole.s2, set.has(Plane::s2)) &&
                            agrees(part.azimuth, whole.azimuth, set.has(Plane::azimuth)) &&
                            agrees(part.dolp, whole.dolp, set.has(Plane::dolp)))
                            << describe(scene);
                        ++variants;
                    }
                }
            }
        }
    }
    EXPECT_EQ(variants, 2016);
    std::cout << "variants run: " << variants << '\n';
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
