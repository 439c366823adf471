/// @file
/// Covers what a variant reads of weights and full scales: what its planes do not need may hold
/// anything, and the weights beyond the needed rows may be inaccessible; what they need, they use.
/// The buffers behind `compute` lay those weights beyond a guard.

#include "support/needed_rows.hpp"
#include "support/planes.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

namespace {

using namespace support;

using Geometry = std::pair<std::size_t, std::size_t>;

constexpr std::array ranges{sample_units, rescaled_12_bit};

/// Every pixel is computed with a matrix.
constexpr std::array<Geometry, 3> weighted_frames{{{2, 7}, {2, 40}, {3, 17}}};

/// The same, and one with vector blocks, a weighted tail and borders.
constexpr std::array<Geometry, 4> frames{{{2, 7}, {2, 40}, {3, 17}, {5, 49}}};

constexpr std::array unreadable{0.0F, NAN, INFINITY};

Scene scene_of(Geometry const& frame, std::int32_t phase, Scale const& scale) {
    Scene scene = make_scene(
        frame.first, frame.second, Sample_kind::random_12_bit, Matrix_kind::random, phase, 47);
    scene.scale = scale;
    return scene;
}

void poison_row(Matrix_set& matrices, std::size_t row) {
    for (Matrix& matrix : matrices) {
        std::fill_n(matrix.begin() + static_cast<std::ptrdiff_t>(row_weights * row), 4, NAN);
    }
}

/// Calls `visit` with a scene of all planes for each frame, phase and range.
template <typename Frames, typename Visitor>
void for_each_scene(Frames const& geometries, Visitor visit) {
    for (Geometry const& frame : geometries) {
        for (std::int32_t phase = 0; phase < 4; ++phase) {
            for (Scale const& scale : ranges) {
                visit(scene_of(frame, phase, scale));
            }
        }
    }
}

TEST(Variant_reads, no_row_of_weights_that_its_planes_do_not_need) {
    int variants = 0;
    for_each_scene(weighted_frames, [&](Scene const& sound) {
        Planes const whole = compute(sound);
        for (unsigned bits = 1; bits < plane_set_count; ++bits) {
            Scene scene = sound;
            scene.wanted = {bits};
            for (std::size_t row = 0; row < matrix_rows; ++row) {
                if (!needs_row(scene.wanted, row)) {
                    poison_row(scene.matrices, row);
                }
            }
            ASSERT_TRUE(is_part_of(compute(scene), whole, scene.wanted)) << describe(scene);
            ++variants;
        }
    });
    EXPECT_EQ(variants, 3 * 4 * 2 * 63);
    std::cout << "calls with inaccessible and poisoned rows: " << 2 * variants << '\n';
}

/// Without it a table that calls too many rows needed would go unseen.
TEST(Variant_reads, each_row_of_weights_that_its_planes_need) {
    int rows = 0;
    for_each_scene(weighted_frames, [&](Scene const& sound) {
        Planes const whole = compute(sound);
        for (unsigned bits = 1; bits < plane_set_count; ++bits) {
            for (std::size_t row = 0; row < matrix_rows; ++row) {
                if (needs_row({bits}, row)) {
                    Scene scene = sound;
                    scene.wanted = {bits};
                    poison_row(scene.matrices, row);
                    ASSERT_FALSE(is_part_of(compute(scene), whole, scene.wanted))
                        << "row " << row << ", " << describe(scene);
                    ++rows;
                }
            }
        }
    });
    // Three, four and four planes need a row: 56, 60 and 60 of the sets.
    EXPECT_EQ(rows, 3 * 4 * 2 * (56 + 60 + 60));
    std::cout << "needed rows shown to be used: " << rows << ", calls: " << 2 * rows << '\n';
}

TEST(Variant_reads, no_input_full_scale_unless_it_rescales_a_stokes_plane) {
    constexpr unsigned stokes_planes =
        only(Plane::s0).bits | only(Plane::s1).bits | only(Plane::s2).bits;
    int variants = 0;
    for_each_scene(frames, [&](Scene const& sound) {
        Planes const whole = compute(sound);
        bool const rescales = sound.scale.bit_depth == rescaled_12_bit.bit_depth;
        for (unsigned bits = 1; bits < plane_set_count; ++bits) {
            if (rescales && (bits & stokes_planes) != 0) {
                continue;
            }
            Scene scene = sound;
            scene.wanted = {bits};
            for (float const value : unreadable) {
                scene.scale.maximum_input_value = value;
                ASSERT_TRUE(is_part_of(compute(scene), whole, scene.wanted)) << describe(scene);
                ++variants;
            }
        }
    });
    // All sets in sample units, those of the ratios, azimuth and DoLP when the ranges differ.
    EXPECT_EQ(variants, 4 * 4 * (63 + 7) * 3);
    std::cout << "calls with an input full scale of no number: " << 2 * variants << '\n';
}

TEST(Variant_reads, no_output_full_scale_for_the_ratios_alone) {
    int variants = 0;
    for_each_scene(frames, [&](Scene scene) {
        scene.wanted = only(Plane::normalized_stokes);
        Planes const sound = compute(scene);
        for (float const value : unreadable) {
            scene.scale.maximum_output_value = value;
            scene.scale.maximum_input_value = value;
            ASSERT_TRUE(is_part_of(compute(scene), sound, scene.wanted)) << describe(scene);
            ++variants;
        }
    });
    EXPECT_EQ(variants, 4 * 4 * 2 * 3);
    std::cout << "calls with an output full scale of no number: " << 2 * variants << '\n';
}

} // namespace
