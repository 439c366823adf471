// Covers the arithmetic of a weighted pixel against known values: literals worked out with exact
// rationals, so that nothing here repeats the code under test.

#include "reference/arithmetic_mode.hpp"
#include "reference/weighted_pixel.hpp"

#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace reference;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float subnormal = std::numeric_limits<float>::denorm_min();

std::uint32_t bits(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

std::uint16_t stored_azimuth(float s1, float s2, float m) {
    return clamp_and_convert_weighted(azimuth_weighted(s1, s2, m), m);
}

std::uint16_t stored_dolp(Stokes const& stokes, float m) {
    return clamp_and_convert_weighted(dolp_weighted(stokes, m), m);
}

// Weights and samples whose weighted sum tells three orders of operations apart.
constexpr std::array<float, 16> telling_matrix{0.1f, 0.7f, 0.3f, 0.9f};
constexpr Quartet telling_samples{3360, 2588, 2084, 1146};

TEST(Stokes_row, begins_with_the_horizontal_neighbour) {
    EXPECT_EQ(bits(stokes_row(telling_samples, telling_matrix, 0)), 0x456DC333u);
}

TEST(Stokes_row, differs_from_the_two_other_orders) {
    auto const& m = telling_matrix;
    float own_first = 3360.0f * m[0];
    own_first = std::fma(2588.0f, m[1], own_first);
    own_first = std::fma(2084.0f, m[2], own_first);
    own_first = std::fma(1146.0f, m[3], own_first);
    float const unfused = ((3360.0f * m[0] + 2588.0f * m[1]) + 2084.0f * m[2]) + 1146.0f * m[3];
    EXPECT_EQ(bits(own_first), 0x456DC332u);
    EXPECT_EQ(bits(unfused), 0x456DC334u);
}

TEST(Stokes_row, differs_from_every_other_order_and_fusing) {
    // Each of the 191 other orders of the samples and choices of fused steps fails at least one.
    struct Entry {
        Quartet samples;
        std::array<std::uint32_t, 4> weights;
        std::uint32_t sum;
    };
    static constexpr Entry entries[] = {
        {{2900, 56073, 31515, 51853}, {0x3FAA3FBD, 0x3EE4D32E, 0x3F99F21F, 0xBF948767}, 0x45CFDB22},
        {{31740, 57914, 17159, 25953},
         {0x3E066EF1, 0x3E6325B7, 0xBFBAF6D3, 0xBF598D30},
         0xC6EB31EA},
        {{19316, 12932, 61053, 57849},
         {0x3F4C13C0, 0xBF82B644, 0x3F64357A, 0xBF8AB69C},
         0xC5BDCB64},
        {{41465, 30152, 9303, 9666}, {0xBFBF5186, 0x3F8E9E92, 0xBF5F2333, 0xBF5A82AE}, 0xC72EC430},
        {{65383, 11869, 58174, 11910},
         {0xBF21D04A, 0x3FB13522, 0x3DF0FD2F, 0x3F0892E5},
         0xC636C1F8}};
    for (Entry const& entry : entries) {
        std::array<float, 16> matrix{};
        for (std::size_t i = 0; i < 4; ++i) {
            matrix[4 + i] = std::bit_cast<float>(entry.weights[i]);
        }
        EXPECT_EQ(bits(stokes_row(entry.samples, matrix, 1)), entry.sum);
    }
}

TEST(Stokes_row, follows_the_rounding_mode) {
    auto const row_in = [](unsigned mode) {
        Arithmetic_mode const set(mode);
        return bits(stokes_row(telling_samples, telling_matrix, 0));
    };
    EXPECT_EQ(row_in(upward), 0x456DC335u);
    EXPECT_EQ(row_in(downward), 0x456DC332u);
    EXPECT_EQ(row_in(toward_zero), 0x456DC332u);
}

TEST(Stokes_row, treats_subnormal_weights_as_zero_when_told_to) {
    std::array<float, 16> const matrix{subnormal, subnormal, subnormal, subnormal};
    Quartet const ones{1, 1, 1, 1};
    EXPECT_EQ(bits(stokes_row(ones, matrix, 0)), 4u);
    Arithmetic_mode const set(subnormals_are_zero);
    EXPECT_EQ(bits(stokes_row(ones, matrix, 0)), 0u);
}

TEST(Stokes_weighted, halves_s0_alone_and_takes_rows_in_turn) {
    std::array<float, 16> const matrix{1, 1, 1, 1, 1, 0, 0, -1, 0, -1, 1, 0};
    Stokes const stokes = stokes_weighted({100, 20, 7, 65535}, matrix);
    EXPECT_EQ(stokes.s0, 32831.0f);
    EXPECT_EQ(stokes.s1, -65435.0f);
    EXPECT_EQ(stokes.s2, -13.0f);
}

TEST(Stokes_weighted, never_reads_the_fourth_row) {
    std::array<float, 16> matrix{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    matrix[12] = matrix[13] = matrix[14] = matrix[15] = not_a_number;
    Stokes const stokes = stokes_weighted({1, 10, 100, 1000}, matrix);
    EXPECT_EQ(stokes.s0, 2160.5f);
    EXPECT_EQ(stokes.s1, 8765.0f);
    EXPECT_EQ(stokes.s2, 13209.0f);
}

TEST(Rescale_weighted, rounds_the_product_before_the_division) {
    EXPECT_EQ(65535.0f * 4095.0f, 268365824.0f);
    EXPECT_EQ(rescale_weighted(4095.0f, 65535.0f, 4095.0f), 65535.0f);
    Arithmetic_mode const set(toward_zero);
    EXPECT_EQ(bits(rescale_weighted(4095.0f, 65535.0f, 4095.0f)), 0x477FFEFFu);
}

TEST(Rescale_weighted, by_zero_gives_infinities_and_a_nan) {
    EXPECT_EQ(rescale_weighted(5.0f, 4095.0f, 0.0f), infinity);
    EXPECT_EQ(rescale_weighted(-5.0f, 4095.0f, 0.0f), -infinity);
    EXPECT_TRUE(std::isnan(rescale_weighted(0.0f, 4095.0f, 0.0f)));
}

TEST(Constants, have_their_bits_and_meet_at_whole_degrees) {
    EXPECT_EQ(bits(atan_linear_coefficient), 0x3F78EED2u);
    EXPECT_EQ(bits(atan_cubic_coefficient), 0xBE448E01u);
    EXPECT_EQ(pi_constant, 3.14159274f);
    EXPECT_EQ(half_pi_constant, 1.57079637f);
    EXPECT_EQ(bits(doubled_angle_to_degrees), 0x41E52EE0u);
    EXPECT_EQ(azimuth_offset_degrees, 90.0f);
    EXPECT_EQ(azimuth_range_degrees, 180.0f);
    EXPECT_EQ(pi_constant * doubled_angle_to_degrees, 90.0f);
    EXPECT_EQ(half_pi_constant * doubled_angle_to_degrees, 45.0f);
}

TEST(Reciprocal, has_fixed_edges) {
    EXPECT_EQ(rcp(0.0f), infinity);
    EXPECT_EQ(rcp(-0.0f), -infinity);
    EXPECT_EQ(rcp(subnormal), infinity);
    EXPECT_EQ(rcp(-subnormal), -infinity);
    EXPECT_EQ(bits(rcp(infinity)), 0u);
    EXPECT_EQ(bits(rcp(-infinity)), 0x80000000u);
    EXPECT_TRUE(std::isnan(rcp(not_a_number)));
}

TEST(Reciprocal, stays_within_its_relative_error) {
    double largest = 0.0;
    unsigned checked = 0;
    for (std::uint32_t pattern = 0x3F800000u; pattern < 0x40000000u; ++pattern) {
        double const x = std::bit_cast<float>(pattern);
        double const reciprocal = rcp(std::bit_cast<float>(pattern));
        largest = std::max(largest, std::fabs(reciprocal * x - 1.0));
        ++checked;
    }
    std::printf("%u reciprocals, largest relative error %.3g\n", checked, largest);
    EXPECT_LE(largest, 1.5 / 4096.0);
    EXPECT_GT(largest, 0.0);
}

/// The blocks use the packed form; one function stands for both only if they agree on this
/// processor.
__attribute__((target("avx"))) unsigned disagreeing_lanes(std::uint32_t pattern) {
    alignas(32) std::array<float, 8> lanes;
    for (std::uint32_t i = 0; i < 8; ++i) {
        lanes[i] = std::bit_cast<float>(pattern + i);
    }
    alignas(32) std::array<float, 8> packed;
    _mm256_store_ps(packed.data(), _mm256_rcp_ps(_mm256_load_ps(lanes.data())));
    unsigned disagreeing = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        disagreeing += bits(packed[i]) != bits(rcp(lanes[i])) ? 1u : 0u;
    }
    return disagreeing;
}

TEST(Reciprocal, packed_agrees_with_scalar) {
    unsigned compared = 0;
    unsigned disagreeing = 0;
    // A stride of 1000 patterns visits every binade of both signs at thousands of places.
    for (std::uint64_t pattern = 0; pattern <= 0xFFFFFFF8u; pattern += 1000) {
        disagreeing += disagreeing_lanes(static_cast<std::uint32_t>(pattern));
        compared += 8;
    }
    std::printf("%u reciprocals compared, %u disagree\n", compared, disagreeing);
    EXPECT_EQ(disagreeing, 0u);
}

TEST(Polynomial, has_known_bits) {
    EXPECT_EQ(bits(arctangent_polynomial(1.0f)), 0x3F47CB52u);
    EXPECT_EQ(bits(arctangent_polynomial(0.7f)), 0x3F1D6602u);
    Arithmetic_mode const set(downward);
    EXPECT_EQ(bits(arctangent_polynomial(1.0f)), 0x3F47CB51u);
    EXPECT_EQ(bits(arctangent_polynomial(0.7f)), 0x3F1D6600u);
}

TEST(Polynomial, stays_within_its_error) {
    double largest = 0.0;
    int const steps = 100000;
    for (int i = -steps; i <= steps; ++i) {
        float const x = static_cast<float>(i) / static_cast<float>(steps);
        double const angle = arctangent_polynomial(x);
        largest = std::max(largest, std::fabs(angle - std::atan(static_cast<double>(x))));
    }
    std::printf("%d polynomials, largest error %.6f radians\n", 2 * steps + 1, largest);
    EXPECT_LE(largest, 0.00496);
    EXPECT_GT(largest, 0.0049);
}

TEST(Azimuth_weighted, on_the_axes_has_its_table_of_values) {
    struct Entry {
        float s1;
        float s2;
        std::uint16_t of_65535;
        std::uint16_t of_4095;
    };
    constexpr Entry entries[] = {
        {0, 0, 32768, 2048},      {-0.0f, -0.0f, 32768, 2048}, {0, 9, 49151, 3071},
        {-0.0f, 9, 49151, 3071},  {0, -9, 16384, 1024},        {-7, 0, 65535, 4095},
        {-7, -0.0f, 65535, 4095}, {7, 0, 32768, 2048},         {7, -0.0f, 32768, 2048}};
    for (Entry const& entry : entries) {
        EXPECT_EQ(stored_azimuth(entry.s1, entry.s2, 65535.0f), entry.of_65535)
            << entry.s1 << ' ' << entry.s2;
        EXPECT_EQ(stored_azimuth(entry.s1, entry.s2, 4095.0f), entry.of_4095)
            << entry.s1 << ' ' << entry.s2;
    }
}

TEST(Azimuth_weighted, of_an_angle_rounds_all_four_steps) {
    auto const value_in = [](unsigned mode, std::uint32_t theta) {
        Arithmetic_mode const set(mode);
        return bits(azimuth_of_angle_weighted(std::bit_cast<float>(theta), 65535.0f));
    };
    EXPECT_EQ(value_in(nearest, 0xC01B08F7u), 0x45EA68DCu);
    EXPECT_EQ(value_in(nearest, 0x40442DFEu), 0x477CE352u);
    EXPECT_EQ(value_in(upward, 0xC034349Du), 0x45547049u);
    EXPECT_EQ(value_in(upward, 0x401B6771u), 0x4762EE0Cu);
    EXPECT_EQ(value_in(downward, 0xC0028C92u), 0x46338E83u);
    EXPECT_EQ(value_in(downward, 0xBE158F16u), 0x46F41840u);
}

TEST(Azimuth_weighted, on_the_s2_axis_follows_the_rounding_mode) {
    {
        Arithmetic_mode const set(upward);
        EXPECT_EQ(bits(azimuth_weighted(0.0f, 9.0f, 65535.0f)), 0x473FFF40u);
        EXPECT_EQ(bits(azimuth_weighted(0.0f, -9.0f, 65535.0f)), 0x467FFF02u);
    }
    Arithmetic_mode const set(downward);
    EXPECT_EQ(bits(azimuth_weighted(0.0f, 9.0f, 65535.0f)), 0x473FFF3Eu);
    EXPECT_EQ(bits(azimuth_weighted(0.0f, -9.0f, 65535.0f)), 0x467FFF00u);
}

TEST(Azimuth_weighted, on_the_diagonals_takes_the_reflected_rows) {
    // The two approximations are 0.284 degrees apart here; rcp moves each by less than 0.03.
    EXPECT_NEAR(azimuth_weighted(5.0f, 5.0f, 180.0f), 112.64186f, 0.03f);
    EXPECT_NEAR(azimuth_weighted(-5.0f, 5.0f, 180.0f), 157.35812f, 0.03f);
    EXPECT_NEAR(azimuth_weighted(-5.0f, -5.0f, 180.0f), 22.64187f, 0.03f);
    EXPECT_NEAR(azimuth_weighted(5.0f, -5.0f, 180.0f), 67.35814f, 0.03f);
}

TEST(Azimuth_weighted, near_the_negative_s1_axis_wraps_to_zero) {
    EXPECT_EQ(stored_azimuth(-60000.0f, -0.01f, 4095.0f), 0);
    EXPECT_EQ(stored_azimuth(-60000.0f, 0.01f, 4095.0f), 4095);
}

TEST(Azimuth_weighted, of_nans_is_the_maximum_except_on_the_s2_axis) {
    EXPECT_EQ(stored_azimuth(not_a_number, 1.0f, 4095.0f), 4095);
    EXPECT_EQ(stored_azimuth(not_a_number, 0.0f, 4095.0f), 4095);
    EXPECT_EQ(stored_azimuth(1.0f, not_a_number, 4095.0f), 4095);
    EXPECT_EQ(stored_azimuth(-1.0f, not_a_number, 4095.0f), 4095);
    EXPECT_EQ(stored_azimuth(0.0f, not_a_number, 4095.0f), 1024);
}

TEST(Azimuth_weighted, treats_a_subnormal_s1_as_zero_when_told_to) {
    // rcp takes the subnormal for a zero in any mode, so t is 0 * infinity without the mode.
    EXPECT_EQ(stored_azimuth(subnormal, 5.0f, 4095.0f), 3071);
    EXPECT_EQ(stored_azimuth(-subnormal, 0.0f, 4095.0f), 4095);
    Arithmetic_mode const set(subnormals_are_zero);
    EXPECT_EQ(stored_azimuth(-subnormal, 0.0f, 4095.0f), 2048);
}

TEST(Dolp_weighted, of_3_4_10_is_half_by_the_processor_at_hand) {
    std::uint16_t const value = stored_dolp({10.0f, 3.0f, 4.0f}, 4095.0f);
    EXPECT_TRUE(value == 2047 || value == 2048) << value;
    EXPECT_EQ(dolp_weighted({10.0f, 3.0f, 4.0f}, 1.0f), 5.0f * rcp(10.0f));
}

TEST(Dolp_weighted, rounds_both_squares_before_their_sum) {
    float const length = std::bit_cast<float>(0x4777455Cu);
    EXPECT_EQ(dolp_weighted({1.0f, 54145.0f, 32793.0f}, 1.0f), length * rcp(1.0f));
}

TEST(Dolp_weighted, is_zero_where_s0_is_zero) {
    EXPECT_EQ(stored_dolp({0.0f, 5.0f, -5.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({-0.0f, 0.0f, 0.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({0.0f, infinity, 1.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({0.0f, not_a_number, 1.0f}, 4095.0f), 0);
}

TEST(Dolp_weighted, has_its_edges_away_from_zero) {
    EXPECT_EQ(stored_dolp({10.0f, 0.0f, 0.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({-10.0f, 3.0f, 4.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({1.0f, 3.0f, 4.0f}, 4095.0f), 4095);
    EXPECT_EQ(stored_dolp({1.0f, 1e30f, 0.0f}, 4095.0f), 4095);
    EXPECT_EQ(stored_dolp({-1.0f, 1e30f, 0.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({not_a_number, 1.0f, 0.0f}, 4095.0f), 4095);
}

TEST(Dolp_weighted, of_a_subnormal_s0_depends_on_the_mode) {
    EXPECT_EQ(stored_dolp({subnormal, 1.0f, 0.0f}, 4095.0f), 4095);
    EXPECT_EQ(stored_dolp({-subnormal, 1.0f, 0.0f}, 4095.0f), 0);
    EXPECT_EQ(stored_dolp({subnormal, 0.0f, 0.0f}, 4095.0f), 4095);
    Arithmetic_mode const set(subnormals_are_zero);
    EXPECT_EQ(stored_dolp({subnormal, 1.0f, 0.0f}, 4095.0f), 0);
}

TEST(Clamp_weighted, rounds_ties_to_even) {
    EXPECT_EQ(clamp_and_convert_weighted(2047.5f, 4095.0f), 2048);
    EXPECT_EQ(clamp_and_convert_weighted(2046.5f, 4095.0f), 2046);
    EXPECT_EQ(clamp_and_convert_weighted(0.5f, 4095.0f), 0);
    EXPECT_EQ(clamp_and_convert_weighted(1.5f, 4095.0f), 2);
    EXPECT_EQ(clamp_and_convert_weighted(4094.75f, 4095.0f), 4095);
}

TEST(Clamp_weighted, takes_limits_and_special_values) {
    EXPECT_EQ(clamp_and_convert_weighted(not_a_number, 4095.0f), 4095);
    EXPECT_EQ(clamp_and_convert_weighted(-not_a_number, 4095.0f), 4095);
    EXPECT_EQ(clamp_and_convert_weighted(infinity, 4095.0f), 4095);
    EXPECT_EQ(clamp_and_convert_weighted(-infinity, 4095.0f), 0);
    EXPECT_EQ(clamp_and_convert_weighted(-0.0f, 4095.0f), 0);
    EXPECT_EQ(clamp_and_convert_weighted(-7.0f, 4095.0f), 0);
    EXPECT_EQ(clamp_and_convert_weighted(4095.0f, 4095.0f), 4095);
    EXPECT_EQ(clamp_and_convert_weighted(4100.0f, 4095.0f), 4095);
}

TEST(Clamp_weighted, keeps_the_low_bits_of_a_maximum_beyond_16_bits) {
    EXPECT_EQ(clamp_and_convert_weighted(65536.0f, 70000.0f), 0);
    EXPECT_EQ(clamp_and_convert_weighted(1e30f, 70000.0f), 70000 - 65536);
    EXPECT_EQ(clamp_and_convert_weighted(1e30f, 1e20f), 0);
}

TEST(Clamp_weighted, converts_in_the_rounding_mode) {
    auto const stored_in = [](unsigned mode, float value) {
        Arithmetic_mode const set(mode);
        return clamp_and_convert_weighted(value, 4095.0f);
    };
    EXPECT_EQ(stored_in(upward, 2.25f), 3);
    EXPECT_EQ(stored_in(downward, 2.75f), 2);
    EXPECT_EQ(stored_in(toward_zero, 2.75f), 2);
    EXPECT_EQ(stored_in(nearest, 2.75f), 3);
}

} // namespace
