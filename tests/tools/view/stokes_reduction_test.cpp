// Angles, degrees, ratios and flags of squares, in vectors and what is left over.
#include "view/stokes_reduction.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace {

using namespace polarize_tool;

std::int16_t expected_ratio(std::int32_t number, std::int32_t s0) {
    double const ratio = s0 == 0 ? 0.0 : std::clamp(32767.0 * number / s0, -32767.0, 32767.0);
    return static_cast<std::int16_t>(std::lround(ratio));
}

TEST(Reduction, rounds_as_double_arithmetic_does) {
    std::mt19937 random(5);
    constexpr std::size_t count = 1003;
    std::vector<std::int32_t> s0(count);
    std::vector<std::int32_t> s1(count);
    std::vector<std::int32_t> s2(count);
    std::vector<std::uint16_t> azimuths(count);
    std::vector<std::uint16_t> degrees(count);
    for (unsigned round = 0; round < 200; ++round) {
        auto const any = [&] { return static_cast<std::int32_t>(random()) >> (1 + random() % 30); };
        std::ranges::generate(s1, any);
        std::ranges::generate(s2, any);
        std::ranges::generate(s0, [&] { return any() & 0x3fffffff; });
        azimuths_of(s1, s2, 65535, azimuths);
        degrees_of(s0, s1, s2, 65535, degrees);
        for (std::size_t at = 0; at < count; ++at) {
            double const x = s1[at];
            double const y = s2[at];
            double const turns = std::atan2(y, x) / (2 * std::numbers::pi) + 0.5;
            ASSERT_EQ(azimuths[at], std::lround(turns * 65535)) << x << " " << y;
            double const degree = s0[at] == 0 ? 0 : std::min(std::hypot(x, y) / s0[at], 1.0);
            ASSERT_EQ(degrees[at], std::lround(degree * 65535)) << s0[at] << " " << x << " " << y;
        }
    }
}

TEST(Ratios_of_sums, are_the_nearest_halves_away_from_0) {
    std::vector<std::int32_t> s0{0, 0, 0, 65534, 65534, 65534, 1, 1, 100, 2147483647, 2147483647};
    std::vector<std::int32_t> numbers{0, 5, -5, 1, -1, 3, 7, -7, 0, 2147483647, -2147483647};
    std::mt19937 random{3};
    for (unsigned count = 0; count < 4000; ++count) {
        s0.push_back(static_cast<std::int32_t>(random() % (count % 2 == 0 ? 70000 : 50)));
        numbers.push_back(static_cast<std::int32_t>(random() % 140000) - 70000);
    }
    for (std::size_t left_over = 0; left_over < 4; ++left_over) {
        std::size_t const count = s0.size() - left_over;
        std::vector<std::int16_t> ratios(count);
        ratios_of(std::span(numbers).first(count), std::span(s0).first(count), ratios);
        for (std::size_t at = 0; at < count; ++at) {
            ASSERT_EQ(ratios[at], expected_ratio(numbers[at], s0[at]))
                << numbers[at] << " by " << s0[at];
        }
    }
}

TEST(Flags_of_squares, are_those_of_any_column) {
    std::vector<std::uint8_t> const columns{1, 0, 2, 0, 0, 0, 8, 8, 4, 2, 1};
    std::vector<std::uint8_t> flags(4);
    add_columns(columns, 3, flags);
    EXPECT_EQ(flags, (std::vector<std::uint8_t>{3, 0, 12, 3}));
}

} // namespace
