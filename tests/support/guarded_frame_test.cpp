/// @file
/// Covers the buffers of a guarded call: transforms that leave any one of them, at either edge,
/// must end the process; planes that are not asked for are null and a write to them is noticed.

#include "support/guarded_frame.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace support;

using Arguments = Polarization_computation_arguments;
using Matrices = Calibration_matrices;

Scene small_scene() {
    return make_scene(3, 17, Sample_kind::random_16_bit, Matrix_kind::ideal, 0, 1);
}

constexpr std::size_t small_scene_pixels{3 * 17};

/// Runs a deliberately wrong transform on the small scene, flush against an edge.
void run_at(Edge edge, Transform wrong) {
    Guarded_frame frame{small_scene_pixels};
    frame.load(small_scene(), edge, Fill::plain);
    frame.run(wrong);
}

int read_volatile(void const* address) {
    return static_cast<int>(*static_cast<unsigned char const volatile*>(address));
}

int write_volatile(void const* address) {
    *static_cast<unsigned char volatile*>(const_cast<void*>(address)) = 1;
    return 0;
}

/// The byte one behind an object, or one before it.
template <typename Type>
void const* behind(Type const* object, std::size_t count = 1) {
    return object + count;
}

template <typename Type>
void const* before(Type const* object) {
    return static_cast<char const*>(static_cast<void const*>(object)) - 1;
}

TEST(Guarded_frame, traps_a_read_behind_the_raw_frame) {
    EXPECT_DEATH(
        run_at(
            Edge::end,
            [](Arguments const& arguments, Matrices const&) {
                return read_volatile(behind(arguments.raw_image, small_scene_pixels));
            }),
        "");
}

TEST(Guarded_frame, traps_a_read_before_the_raw_frame) {
    EXPECT_DEATH(
        run_at(
            Edge::start,
            [](Arguments const& arguments, Matrices const&) {
                return read_volatile(before(arguments.raw_image));
            }),
        "");
}

TEST(Guarded_frame, traps_a_write_to_the_raw_frame) {
    for (Edge const edge : both_edges) {
        EXPECT_DEATH(
            run_at(
                edge, [](Arguments const& arguments,
                         Matrices const&) { return write_volatile(arguments.raw_image); }),
            "");
    }
}

TEST(Guarded_frame, traps_a_write_to_the_arguments) {
    EXPECT_DEATH(
        run_at(
            Edge::end, [](Arguments const& arguments,
                          Matrices const&) { return write_volatile(&arguments.width); }),
        "");
}

TEST(Guarded_frame, traps_reads_beyond_the_arguments) {
    EXPECT_DEATH(
        run_at(
            Edge::end, [](Arguments const& arguments,
                          Matrices const&) { return read_volatile(behind(&arguments)); }),
        "");
    EXPECT_DEATH(
        run_at(
            Edge::start, [](Arguments const& arguments,
                            Matrices const&) { return read_volatile(before(&arguments)); }),
        "");
}

TEST(Guarded_frame, traps_reads_beyond_the_record_of_matrices) {
    EXPECT_DEATH(
        run_at(
            Edge::end, [](Arguments const&,
                          Matrices const& matrices) { return read_volatile(behind(&matrices)); }),
        "");
    EXPECT_DEATH(
        run_at(
            Edge::start, [](Arguments const&,
                            Matrices const& matrices) { return read_volatile(before(&matrices)); }),
        "");
}

std::array<Matrix const*, 4> members(Matrices const& matrices) {
    return {
        &matrices.even_row_even_column, &matrices.even_row_odd_column,
        &matrices.odd_row_even_column, &matrices.odd_row_odd_column};
}

/// Which matrix or plane the wrong transforms below misuse.
std::size_t victim{0};

TEST(Guarded_frame, traps_accesses_beyond_each_matrix_and_writes_to_it) {
    for (victim = 0; victim < 4; ++victim) {
        EXPECT_DEATH(
            run_at(
                Edge::end,
                [](Arguments const&, Matrices const& matrices) {
                    return read_volatile(behind(members(matrices)[victim]));
                }),
            "");
        EXPECT_DEATH(
            run_at(
                Edge::start,
                [](Arguments const&, Matrices const& matrices) {
                    return read_volatile(before(members(matrices)[victim]));
                }),
            "");
        EXPECT_DEATH(
            run_at(
                Edge::end,
                [](Arguments const&, Matrices const& matrices) {
                    return write_volatile(members(matrices)[victim]);
                }),
            "");
    }
}

std::array<void const*, every_plane.size()> planes_of(Arguments const& arguments) {
    return {arguments.normalized_stokes_image,
            arguments.s0_image,
            arguments.s1_image,
            arguments.s2_image,
            arguments.azimuth_image,
            arguments.dolp_image};
}

void const* end_of_victim(Arguments const& arguments) {
    return static_cast<char const*>(planes_of(arguments)[victim]) +
           bytes_per_pixel(every_plane[victim]) * small_scene_pixels;
}

TEST(Guarded_frame, traps_writes_beyond_each_plane) {
    for (victim = 0; victim < every_plane.size(); ++victim) {
        EXPECT_DEATH(
            run_at(
                Edge::end,
                [](Arguments const& arguments, Matrices const&) {
                    return write_volatile(end_of_victim(arguments));
                }),
            "");
        EXPECT_DEATH(
            run_at(
                Edge::start,
                [](Arguments const& arguments, Matrices const&) {
                    return write_volatile(
                        before(static_cast<char const*>(planes_of(arguments)[victim])));
                }),
            "");
    }
}

TEST(Guarded_frame, traps_reads_beyond_each_plane) {
    for (victim = 0; victim < every_plane.size(); ++victim) {
        EXPECT_DEATH(
            run_at(
                Edge::end, [](Arguments const& arguments,
                              Matrices const&) { return read_volatile(end_of_victim(arguments)); }),
            "");
    }
}

TEST(Guarded_frame, hands_over_null_for_planes_that_are_not_wanted) {
    Scene scene = small_scene();
    for (unsigned bits = 0; bits < plane_set_count; ++bits) {
        scene.wanted = {bits};
        Guarded_frame frame{small_scene_pixels};
        frame.load(scene, Edge::end, Fill::plain);
        int const handed_over = frame.run([](Arguments const& arguments, Matrices const&) {
            int set = 0;
            for (std::size_t index = 0; index < every_plane.size(); ++index) {
                set |= planes_of(arguments)[index] == nullptr ? 0 : 1 << index;
            }
            return set;
        });
        EXPECT_EQ(handed_over, static_cast<int>(bits));
    }
}

TEST(Guarded_frame, notices_a_write_to_any_byte_of_a_plane) {
    for (Fill const fill : {Fill::plain, Fill::inverted}) {
        Guarded_frame frame{small_scene_pixels};
        frame.load(small_scene(), Edge::end, fill);
        for (Plane const plane : every_plane) {
            ASSERT_TRUE(frame.is_untouched(plane));
            auto const bytes = frame.plane(plane);
            for (std::size_t index = 0; index < bytes.size(); ++index) {
                auto& byte = const_cast<std::byte&>(bytes[index]);
                byte ^= std::byte{0x10};
                EXPECT_FALSE(frame.is_untouched(plane)) << name_of(plane) << " byte " << index;
                byte ^= std::byte{0x10};
            }
        }
    }
}

TEST(Guarded_frame, hands_over_the_inputs_of_the_scene) {
    static Scene const scene = small_scene();
    for (Edge const edge : both_edges) {
        Guarded_frame frame{small_scene_pixels};
        frame.load(scene, edge, Fill::plain);
        int const differences = frame.run([](Arguments const& arguments, Matrices const& matrices) {
            int different =
                std::memcmp(arguments.raw_image, scene.samples.data(), 2 * small_scene_pixels);
            for (std::size_t position = 0; position < 4; ++position) {
                different |= std::memcmp(
                    members(matrices)[position], &scene.matrices[position], sizeof(Matrix));
            }
            return different;
        });
        EXPECT_EQ(differences, 0);
    }
}

} // namespace
