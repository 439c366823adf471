/// @file
/// Covers the single results that other tests build on, with deliberately wrong libraries: a write
/// to a plane that was not requested and a result that depends on former contents have to be
/// noticed, and results that differ in bits alone are different.

#include "support/planes.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using namespace support;

using Arguments = Polarization_computation_arguments;
using Matrices = Calibration_matrices;

int right(Arguments const& arguments, Matrices const& matrices) {
    return qn_polarization_processor_transform_vector_avx2(arguments, matrices);
}

// The memory of a plane stays where it is from call to call.
std::uint16_t* remembered_s0 = nullptr;

int writes_to_the_s0_plane_of_an_earlier_call(
    Arguments const& arguments, Matrices const& matrices) {
    if (arguments.s0_image != nullptr) {
        remembered_s0 = arguments.s0_image;
    } else {
        remembered_s0[0] = static_cast<std::uint16_t>(remembered_s0[0] ^ 1U);
    }
    return right(arguments, matrices);
}

int adds_to_the_former_contents(Arguments const& arguments, Matrices const& matrices) {
    std::uint16_t const former = arguments.s0_image[3];
    int const result = right(arguments, matrices);
    arguments.s0_image[3] = static_cast<std::uint16_t>(arguments.s0_image[3] + former);
    return result;
}

TEST(Single_results, of_the_library_raise_nothing) {
    Scene const scene = make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
    EXPECT_EQ(compute(scene).s0.elements.size(), scene.pixels());
}

/// The messages of all failures that a call reports, instead of failing.
template <typename Call>
std::string failures_of(Call call) {
    testing::TestPartResultArray failures;
    {
        testing::ScopedFakeTestPartResultReporter const reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        call();
    }
    std::string messages;
    for (int index = 0; index < failures.size(); ++index) {
        messages += failures.GetTestPartResult(index).message();
    }
    return messages;
}

TEST(Single_results, notice_a_write_to_a_plane_that_was_not_requested) {
    Scene scene = make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
    compute(scene, &writes_to_the_s0_plane_of_an_earlier_call);
    scene.wanted = only(Plane::s1);
    std::string const failures =
        failures_of([&scene] { compute(scene, &writes_to_the_s0_plane_of_an_earlier_call); });
    EXPECT_NE(failures.find("s0_image of 5 x 33"), std::string::npos) << failures;
}

int adds_to_the_former_float(Arguments const& arguments, Matrices const& matrices) {
    float const former = arguments.normalized_stokes_image[3];
    int const result = right(arguments, matrices);
    arguments.normalized_stokes_image[3] += former;
    return result;
}

TEST(Single_results, notice_a_dependence_on_the_former_contents_of_the_float_plane) {
    Scene const scene = make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
    std::string const failures =
        failures_of([&scene] { compute(scene, &adds_to_the_former_float); });
    EXPECT_NE(failures.find("normalized_stokes_image depends on"), std::string::npos) << failures;
}

Planes with_ratios(Ratios const& last) {
    Planes planes{};
    planes.normalized_stokes = {2, {Ratios{0.5F, -1.0F}, last}};
    return planes;
}

TEST(Single_results, differ_in_the_sign_of_a_zero_and_equal_themselves_with_a_nan) {
    Plane_set const ratios = only(Plane::normalized_stokes);
    Planes const zero = with_ratios({0.25F, 0.0F});
    EXPECT_TRUE(is_part_of(with_ratios({0.25F, 0.0F}), zero, ratios));
    EXPECT_FALSE(is_part_of(with_ratios({0.25F, -0.0F}), zero, ratios));
    Planes const nan = with_ratios({NAN, 0.0F});
    EXPECT_TRUE(is_part_of(with_ratios({NAN, 0.0F}), nan, ratios));
    EXPECT_FALSE(is_part_of(with_ratios({-NAN, 0.0F}), nan, ratios));
}

TEST(Single_results, notice_a_dependence_on_former_contents) {
    Scene const scene = make_scene(5, 33, Sample_kind::random_16_bit, Matrix_kind::random, 1, 77);
    std::string const failures =
        failures_of([&scene] { compute(scene, &adds_to_the_former_contents); });
    EXPECT_NE(failures.find("s0_image depends on"), std::string::npos) << failures;
}

} // namespace
