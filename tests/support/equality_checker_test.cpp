/// @file
/// Covers the harness of the equality tests with deliberately wrong libraries: each fault has to be
/// noticed, in every plane, and the report has to name the scene.

#include "support/equality_checker.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <xmmintrin.h>

namespace {

using namespace support;

using Arguments = Polarization_computation_arguments;
using Matrices = Calibration_matrices;

int right(Arguments const& arguments, Matrices const& matrices) {
    return qn_polarization_processor_transform_vector_avx2(arguments, matrices);
}

Scene scene_with_a_block() {
    return make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
}

std::string message_of(Transform wrong, Scene const& scene) {
    Equality_checker check{wrong};
    auto const verdict = check(scene);
    return verdict ? "not noticed" : verdict.message();
}

bool contains(std::string const& text, std::string const& part) {
    return text.find(part) != std::string::npos;
}

TEST(Equality_checker, accepts_the_library_and_counts_two_calls_a_scene) {
    Equality_checker check;
    std::size_t const before = checked_calls();
    EXPECT_TRUE(check(scene_with_a_block()));
    EXPECT_TRUE(check(scene_with_a_block()));
    EXPECT_EQ(check.calls(), 4U);
    EXPECT_EQ(checked_calls(), before + 4);
}

TEST(Equality_checker, notices_a_flipped_bit_of_the_float_plane) {
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            int const result = right(arguments, matrices);
            float& last = arguments.normalized_stokes_image[2 * 5 * 33 - 1];
            last = -last;
            return result;
        },
        scene_with_a_block());
    EXPECT_TRUE(contains(message, "normalized_stokes_image row 4 column 32 component 1"))
        << message;
    EXPECT_TRUE(contains(message, "5 x 33, phase 1")) << message;
    EXPECT_TRUE(contains(message, "seed 77")) << message;
}

template <std::uint16_t* Arguments::*plane>
int with_flipped_bit(Arguments const& arguments, Matrices const& matrices) {
    int const result = right(arguments, matrices);
    std::uint16_t& element = (arguments.*plane)[2 * 33 + 7];
    element = static_cast<std::uint16_t>(element ^ 1U);
    return result;
}

TEST(Equality_checker, notices_a_flipped_bit_of_each_16_bit_plane) {
    auto const message_for = [](Transform wrong) {
        return message_of(wrong, scene_with_a_block());
    };
    EXPECT_TRUE(
        contains(message_for(with_flipped_bit<&Arguments::s0_image>), "s0_image row 2 column 7"));
    EXPECT_TRUE(
        contains(message_for(with_flipped_bit<&Arguments::s1_image>), "s1_image row 2 column 7"));
    EXPECT_TRUE(
        contains(message_for(with_flipped_bit<&Arguments::s2_image>), "s2_image row 2 column 7"));
    EXPECT_TRUE(contains(
        message_for(with_flipped_bit<&Arguments::azimuth_image>), "azimuth_image row 2 column 7"));
    EXPECT_TRUE(contains(
        message_for(with_flipped_bit<&Arguments::dolp_image>), "dolp_image row 2 column 7"));
}

TEST(Equality_checker, notices_an_element_left_unwritten_although_its_fill_is_the_right_value) {
    Scene scene = scene_with_a_block();
    scene.wanted = only(Plane::s0);
    // The pixel's value is made the fill, so that only the run on the inverted fill can tell.
    std::size_t const pixel = 4 * 33 + 30;
    std::uint16_t const fill = fill_element(pixel, Fill::plain);
    scene.matrices = everywhere(matrix_of({2, 0, 0, 0}, {}, {}));
    scene.samples[pixel] = fill;
    Equality_checker check_right;
    ASSERT_TRUE(check_right(scene));
    static std::uint16_t kept;
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            kept = arguments.s0_image[4 * 33 + 30];
            int const result = right(arguments, matrices);
            arguments.s0_image[4 * 33 + 30] = kept;
            return result;
        },
        scene);
    EXPECT_TRUE(contains(message, "s0_image row 4 column 30")) << message;
    EXPECT_TRUE(contains(message, "guard at the start")) << message;
}

TEST(Equality_checker, notices_a_store_where_none_belongs_although_it_leaves_a_fill_as_it_was) {
    Scene scene = make_scene(4, 32, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
    // The first float that the single block of such a frame skips.
    constexpr std::size_t unwritten = 16;
    for (Fill const fill : {Fill::plain, Fill::inverted}) {
        static float stored;
        stored = std::bit_cast<float>(fill_float_bits(unwritten, fill));
        std::string const message = message_of(
            [](Arguments const& arguments, Matrices const& matrices) {
                int const result = right(arguments, matrices);
                arguments.normalized_stokes_image[unwritten] = stored;
                return result;
            },
            scene);
        EXPECT_TRUE(contains(message, "normalized_stokes_image row 0 column 8 component 0"))
            << message;
        EXPECT_TRUE(
            contains(message, fill == Fill::plain ? "guard at the start" : "guard at the end"))
            << message;
    }
}

TEST(Equality_checker, notices_a_result_other_than_zero) {
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            return right(arguments, matrices) + 1;
        },
        scene_with_a_block());
    EXPECT_TRUE(contains(message, "returned 1")) << message;
}

TEST(Equality_checker, notices_a_changed_control_word) {
    unsigned const control = _mm_getcsr();
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            int const result = right(arguments, matrices);
            _mm_setcsr(_mm_getcsr() ^ 0x8000U);
            return result;
        },
        scene_with_a_block());
    _mm_setcsr(control);
    EXPECT_TRUE(contains(message, "control word")) << message;
}

TEST(Equality_checker, notices_swapped_planes) {
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            Arguments swapped = arguments;
            std::swap(swapped.s1_image, swapped.s2_image);
            return right(swapped, matrices);
        },
        scene_with_a_block());
    EXPECT_TRUE(contains(message, "s1_image row")) << message;
}

TEST(Equality_volume, of_a_whole_run_is_400000_calls_a_round) {
    expect_volume({true, 400'000, 1});
    expect_volume({true, 1'200'000, 3});
    expect_volume({false, 1, 1});
    EXPECT_NONFATAL_FAILURE(expect_volume({true, 399'999, 1}), "399999");
    EXPECT_NONFATAL_FAILURE(expect_volume({true, 1'199'999, 3}), "1199999");
}

void check_faulty(Transform wrong) {
    Equality_checker check{wrong};
    static_cast<void>(check(scene_with_a_block()));
}

TEST(Equality_checker, names_the_scene_of_a_write_behind_a_plane) {
    EXPECT_DEATH(
        check_faulty([](Arguments const& arguments, Matrices const&) {
            static_cast<std::uint16_t volatile*>(arguments.dolp_image)[5 * 33] = 1;
            return 0;
        }),
        "memory fault in scene: 5 x 33, phase 1");
}

TEST(Equality_checker, names_the_scene_of_a_read_before_the_raw_frame) {
    EXPECT_DEATH(
        check_faulty([](Arguments const& arguments, Matrices const& matrices) {
            // The last row's end alone is guarded in the first run; the second run guards the
            // start.
            auto const* const raw = static_cast<std::uint16_t const volatile*>(arguments.raw_image);
            return right(arguments, matrices) + static_cast<int>(raw[-1]) * 0;
        }),
        "memory fault in scene: 5 x 33, phase 1");
}

TEST(Equality_checker, names_the_scene_of_a_write_to_an_input) {
    EXPECT_DEATH(
        check_faulty([](Arguments const& arguments, Matrices const&) {
            *const_cast<std::uint16_t volatile*>(arguments.raw_image) = 1;
            return 0;
        }),
        "memory fault in scene: 5 x 33, phase 1");
}

// The memory of a plane stays where it is from call to call.
std::uint16_t* remembered_s0 = nullptr;

TEST(Equality_checker, notices_a_write_to_a_plane_that_was_not_requested) {
    Equality_checker check{[](Arguments const& arguments, Matrices const& matrices) {
        if (arguments.s0_image != nullptr) {
            remembered_s0 = arguments.s0_image;
        } else {
            remembered_s0[0] = static_cast<std::uint16_t>(remembered_s0[0] ^ 1U);
        }
        return right(arguments, matrices);
    }};
    Scene scene = scene_with_a_block();
    EXPECT_TRUE(check(scene));
    scene.wanted = only(Plane::s1);
    auto const verdict = check(scene);
    EXPECT_FALSE(verdict);
    EXPECT_TRUE(contains(verdict.message(), "s0_image")) << verdict.message();
}

// 0 / 0 is one certain NaN: where no matrix brings in others, its bits count.
TEST(Equality_checker, notices_another_nan_where_only_one_can_arise) {
    Scene const scene = make_scene(5, 33, Sample_kind::all_zero, Matrix_kind::ideal, 1, 77);
    EXPECT_FALSE(scene.any_nan_is_equal);
    std::string const message = message_of(
        [](Arguments const& arguments, Matrices const& matrices) {
            int const result = right(arguments, matrices);
            float& last = arguments.normalized_stokes_image[2 * 5 * 33 - 1];
            last = -last;
            return result;
        },
        scene);
    EXPECT_TRUE(contains(message, "normalized_stokes_image row 4 column 32")) << message;
}

} // namespace
