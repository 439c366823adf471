/// @file
/// Covers the comparison that the sanitizers and the fuzzer rely on, with deliberately wrong
/// libraries: one flipped bit in any element of any plane has to be noticed.

#include "support/plain_call.hpp"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdio>
#include <string>

namespace {

using namespace support;

using Arguments = Polarization_computation_arguments;
using Matrices = Calibration_matrices;

/// Where `with_flipped_bit` strikes: an element of 16 bits, or of 32 in the float plane.
struct Flip {
    Plane plane;
    std::size_t element;
    unsigned bit;
};
Flip flip{};

int right(Arguments const& arguments, Matrices const& matrices) {
    return qn_polarization_processor_transform_vector_avx2(arguments, matrices);
}

int with_flipped_bit(Arguments const& arguments, Matrices const& matrices) {
    int const result = right(arguments, matrices);
    if (flip.plane == Plane::normalized_stokes) {
        float& ratio = arguments.normalized_stokes_image[flip.element];
        ratio = std::bit_cast<float>(std::bit_cast<std::uint32_t>(ratio) ^ 1U << flip.bit);
        return result;
    }
    std::array const planes{
        arguments.s0_image, arguments.s1_image, arguments.s2_image, arguments.azimuth_image,
        arguments.dolp_image};
    std::uint16_t& element = planes[static_cast<std::size_t>(flip.plane) - 1][flip.element];
    element = static_cast<std::uint16_t>(element ^ 1U << flip.bit);
    return result;
}

Scene scene_with_a_block() {
    return make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
}

/// Complaints go to standard error; a test takes them.
std::string complaint_about(Scene const& scene, Transform transform) {
    testing::internal::CaptureStderr();
    bool const is_equal = equals_the_reference(scene, transform);
    std::string const text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text.empty(), is_equal) << text;
    return text;
}

TEST(Plain_call, accepts_the_library) {
    EXPECT_TRUE(equals_the_reference(scene_with_a_block()));
    EXPECT_TRUE(equals_the_reference(scene_with_a_block(), &right));
}

TEST(Plain_call, notices_a_flipped_bit_in_any_element_of_each_plane) {
    Scene scene = scene_with_a_block();
    std::size_t flips = 0;
    std::size_t noticed = 0;
    for (Plane const plane : every_plane) {
        std::size_t const element_bytes = plane == Plane::normalized_stokes ? 4 : 2;
        std::size_t const elements = bytes_per_pixel(plane) * scene.pixels() / element_bytes;
        for (Plane_set const wanted : {only(plane), all_planes}) {
            scene.wanted = wanted;
            for (std::size_t element = 0; element < elements; ++element) {
                flip = {plane, element, static_cast<unsigned>(element % (8 * element_bytes))};
                std::string const complaint = complaint_about(scene, &with_flipped_bit);
                ++flips;
                noticed += complaint.find(name_of(plane)) == 0 ? 1U : 0U;
            }
        }
    }
    std::printf("%zu of %zu flipped bits noticed\n", noticed, flips);
    EXPECT_EQ(flips, 2 * (2 + 5) * scene.pixels());
    EXPECT_EQ(noticed, flips);
}

TEST(Plain_call, notices_a_plane_that_is_left_unwritten) {
    Scene scene = scene_with_a_block();
    scene.wanted = only(Plane::normalized_stokes);
    EXPECT_FALSE(
        complaint_about(scene, [](Arguments const&, Matrices const&) { return 0; }).empty());
}

TEST(Plain_call, notices_another_result_than_0) {
    std::string const complaint = complaint_about(
        scene_with_a_block(), [](Arguments const& arguments, Matrices const& matrices) {
            right(arguments, matrices);
            return -1;
        });
    EXPECT_EQ(complaint.find("returned -1: 5 x 33"), 0U) << complaint;
}

TEST(Plain_call, takes_one_nan_for_another_only_where_the_scene_says_so) {
    Scene scene = make_scene(5, 33, Sample_kind::all_zero, Matrix_kind::random, 1, 77);
    scene.wanted = only(Plane::normalized_stokes);
    // Without light every ratio is 0 / 0; the lowest bit makes it another NaN.
    flip = {Plane::normalized_stokes, 2 * 33 + 4, 0};
    scene.any_nan_is_equal = true;
    EXPECT_TRUE(equals_the_reference(scene, &with_flipped_bit));
    scene.any_nan_is_equal = false;
    EXPECT_FALSE(complaint_about(scene, &with_flipped_bit).empty());
    // The highest bit of the exponent makes it a number.
    scene.any_nan_is_equal = true;
    flip.bit = 30;
    EXPECT_FALSE(complaint_about(scene, &with_flipped_bit).empty());
}

} // namespace
