/// @file
/// Covers the buffers of a guarded call: transforms that leave any one of them, at either edge,
/// must end the process; planes that are not asked for are null and a write to them is noticed.

#include "support/guarded_frame.hpp"
#include "support/needed_rows.hpp"

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
    for (Edge const edge : both_edges) {
        EXPECT_DEATH(
            run_at(
                edge, [](Arguments const& arguments,
                         Matrices const&) { return write_volatile(&arguments.width); }),
            "");
    }
}

TEST(Guarded_frame, traps_a_write_to_the_record_of_matrices) {
    for (Edge const edge : both_edges) {
        EXPECT_DEATH(
            run_at(
                edge, [](Arguments const&,
                         Matrices const& matrices) { return write_volatile(&matrices); }),
            "");
    }
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

/// The row of a matrix that the wrong transform below reads.
std::size_t read_row{0};

void run_read_of_row(Plane_set wanted, Edge edge) {
    Scene scene = small_scene();
    scene.wanted = wanted;
    Guarded_frame frame{small_scene_pixels};
    frame.load(scene, edge, Fill::plain);
    frame.run([](Arguments const&, Matrices const& matrices) {
        return read_volatile(members(matrices)[victim]->data() + row_weights * read_row);
    });
}

TEST(Guarded_frame, traps_reads_of_rows_that_the_planes_do_not_need) {
    constexpr std::array sets{Plane_set{0},         only(Plane::s0),   only(Plane::s1),
                              only(Plane::s2),      only(Plane::dolp), only(Plane::azimuth),
                              only(every_plane[0]), all_planes};
    int trapped = 0;
    for (Plane_set const wanted : sets) {
        for (read_row = end_of_needed_rows(wanted); read_row < matrix_rows; ++read_row) {
            victim = read_row;
            EXPECT_DEATH(run_read_of_row(wanted, Edge::end), "");
            ++trapped;
        }
        for (read_row = 0; read_row < first_needed_row(wanted); ++read_row) {
            victim = read_row;
            EXPECT_DEATH(run_read_of_row(wanted, Edge::start), "");
            ++trapped;
        }
    }
    // Behind the needed rows 4, 3, 2 and six times 1, before them 4, 1, 2 and 1.
    EXPECT_EQ(trapped, 22);
}

TEST(Guarded_frame, leaves_the_rows_accessible_that_the_planes_need) {
    for (unsigned bits = 1; bits < plane_set_count; ++bits) {
        for (read_row = 0; read_row < matrix_rows; ++read_row) {
            for (victim = 0; victim < 4 && needs_row({bits}, read_row); ++victim) {
                run_read_of_row({bits}, Edge::end);
                run_read_of_row({bits}, Edge::start);
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
                    members(matrices)[position], &scene.matrices[position],
                    end_of_needed_rows(all_planes) * row_weights * sizeof(float));
            }
            return different;
        });
        EXPECT_EQ(differences, 0);
    }
}

} // namespace
