/// @file
/// Covers the comparison of planes: one wrong bit anywhere is found and placed.

#include "support/comparison.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <vector>

namespace {

using namespace support;

constexpr std::size_t width{5};
constexpr std::size_t height{3};

std::vector<std::byte> bytes_of(Plane plane) {
    return std::vector<std::byte>(bytes_per_pixel(plane) * width * height, std::byte{0x21});
}

TEST(Comparison, equal_planes_have_no_difference) {
    for (Plane const plane : every_plane) {
        EXPECT_FALSE(
            first_difference(plane, width, bytes_of(plane), bytes_of(plane), Nan_rule::exact_bits));
    }
}

TEST(Comparison, one_flipped_bit_is_found_at_its_pixel) {
    for (Plane const plane : every_plane) {
        auto const expected = bytes_of(plane);
        for (std::size_t bit = 0; bit < 8 * expected.size(); ++bit) {
            auto actual = expected;
            actual[bit / 8] ^= std::byte{1} << bit % 8;
            auto const difference =
                first_difference(plane, width, expected, actual, Nan_rule::any_nan_is_equal);
            ASSERT_TRUE(difference) << name_of(plane) << " bit " << bit;
            std::size_t const pixel = bit / 8 / bytes_per_pixel(plane);
            EXPECT_EQ(difference->plane, plane);
            EXPECT_EQ(difference->row, pixel / width);
            EXPECT_EQ(difference->column, pixel % width);
            EXPECT_EQ(difference->component, bytes_per_pixel(plane) == 8 ? bit / 32 % 2 : 0);
            EXPECT_EQ(std::popcount(difference->expected ^ difference->actual), 1);
        }
    }
}

TEST(Comparison, the_first_of_several_differences_is_told) {
    auto const expected = bytes_of(Plane::s0);
    auto actual = expected;
    actual[2 * 7] = actual[2 * 13] = std::byte{0};
    auto const difference =
        first_difference(Plane::s0, width, expected, actual, Nan_rule::exact_bits);
    ASSERT_TRUE(difference);
    EXPECT_EQ(describe(*difference), "s0_image row 1 column 2: expected 8481, got 8448");
}

std::vector<std::byte> ratio(float value) {
    auto const bytes = std::bit_cast<std::array<std::byte, 4>>(value);
    return {bytes.begin(), bytes.end()};
}

std::optional<Difference> compare_ratios(float expected, float actual, Nan_rule nan_rule) {
    return first_difference(Plane::normalized_stokes, 1, ratio(expected), ratio(actual), nan_rule);
}

TEST(Comparison, nans_are_equal_only_by_the_rule_that_says_so) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE(compare_ratios(nan, nan, Nan_rule::exact_bits));
    EXPECT_TRUE(compare_ratios(nan, -nan, Nan_rule::exact_bits));
    EXPECT_FALSE(compare_ratios(nan, -nan, Nan_rule::any_nan_is_equal));
}

TEST(Comparison, a_nan_never_equals_a_number) {
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const infinity = std::numeric_limits<float>::infinity();
    for (Nan_rule const rule : {Nan_rule::exact_bits, Nan_rule::any_nan_is_equal}) {
        EXPECT_TRUE(compare_ratios(nan, 1, rule));
        EXPECT_TRUE(compare_ratios(1, nan, rule));
        EXPECT_TRUE(compare_ratios(infinity, nan, rule));
        EXPECT_TRUE(compare_ratios(0.0F, -0.0F, rule));
    }
}

} // namespace
