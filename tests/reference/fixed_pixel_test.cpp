// Covers the arithmetic of a fixed pixel, one of a vector block: neighbourhoods and phases on
// frames of telling samples, azimuth and degree of polarisation against literals worked out with
// exact rationals, and the places where it must differ from that of a weighted pixel.

#include "reference/arithmetic_mode.hpp"
#include "reference/fixed_pixel.hpp"

#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

using namespace reference;

constexpr float infinity = std::numeric_limits<float>::infinity();

std::uint32_t bits(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

std::uint16_t stored_azimuth(float s1, float s2, float m) {
    return clamp_and_convert_fixed(azimuth_fixed(s1, s2, m), m);
}

/// Six rows of 33 samples: one block of columns and its right neighbour column are read.
struct Block_frame {
    static constexpr std::size_t width = 33;

    template <typename Sample>
    explicit Block_frame(Sample const& sample) : raw(6 * width) {
        for (std::size_t i = 0; i < raw.size(); ++i) {
            raw[i] = static_cast<std::uint16_t>(sample(i / width, i % width));
        }
    }

    Stokes at(std::int32_t phase, std::size_t row, std::size_t column) const {
        Polarization_computation_arguments arguments{};
        arguments.height = 6;
        arguments.width = width;
        arguments.polar_phase = phase;
        arguments.raw_image = raw.data();
        return stokes_fixed(arguments, row, column);
    }

    std::vector<std::uint16_t> raw;
};

TEST(Stokes_fixed, takes_differences_along_the_two_diagonals_of_the_cell) {
    // Even-even 1000, even-odd 200, odd-even 30, odd-odd 4, wherever the cell begins.
    Block_frame const frame([](std::size_t row, std::size_t column) {
        static constexpr unsigned cell[2][2] = {{1000, 200}, {30, 4}};
        return cell[row % 2][column % 2];
    });
    struct Expected {
        std::int32_t phase;
        float s1;
        float s2;
    };
    static constexpr Expected expected[] = {{0, 996, -170}, {1, -170, 996}, {2, -996, 170},
                                            {3, 170, -996}, {4, 996, -170}, {-1, 996, -170}};
    for (auto const& [phase, s1, s2] : expected) {
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t column = 0; column < 16; ++column) {
                Stokes const stokes = frame.at(phase, row, column);
                EXPECT_EQ(stokes.s0, 617.0f) << phase << ' ' << row << ' ' << column;
                EXPECT_EQ(stokes.s1, s1) << phase << ' ' << row << ' ' << column;
                EXPECT_EQ(stokes.s2, s2) << phase << ' ' << row << ' ' << column;
            }
        }
    }
}

TEST(Stokes_fixed, reads_the_columns_and_rows_from_the_pixel_on) {
    Block_frame const frame([](std::size_t row, std::size_t column) {
        return (std::size_t{1} << row) * 100 + column * column;
    });
    Stokes const upper_left = frame.at(1, 0, 0);
    EXPECT_EQ(upper_left.s0, (100 + 101 + 200 + 201) / 2.0f);
    EXPECT_EQ(upper_left.s1, 200.0f - 101.0f);
    EXPECT_EQ(upper_left.s2, 100.0f - 201.0f);
    Stokes const lower_right = frame.at(1, 3, 15);
    EXPECT_EQ(lower_right.s0, (800 + 225 + 800 + 256 + 1600 + 225 + 1600 + 256) / 2.0f);
    EXPECT_EQ(lower_right.s1, (800.0f + 256.0f) - (1600.0f + 225.0f));
    EXPECT_EQ(lower_right.s2, (1600.0f + 256.0f) - (800.0f + 225.0f));
}

TEST(Stokes_fixed, in_phase_0_takes_one_sample_of_s0_from_the_row_above) {
    Block_frame const rows([](std::size_t row, std::size_t) { return row; });
    for (std::int32_t const phase : {0, 7, -1, 1, 2, 3}) {
        bool const irregular = phase < 1 || phase > 3;
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t column = 0; column < 32; ++column) {
                bool const from_above = irregular && row % 2 == 1 && column % 16 < 8;
                float const expected = static_cast<float>(2 * row + (from_above ? 0 : 1));
                EXPECT_EQ(rows.at(phase, row, column).s0, expected)
                    << phase << ' ' << row << ' ' << column;
            }
        }
    }
}

TEST(Stokes_fixed, in_phase_0_takes_that_sample_from_the_even_column) {
    Block_frame const frame([](std::size_t row, std::size_t column) {
        return row == 0 ? (column % 2 == 0 ? 1000u : 20u) : 0u;
    });
    EXPECT_EQ(frame.at(0, 1, 0).s0, 500.0f);
    EXPECT_EQ(frame.at(0, 1, 7).s0, 500.0f);
    EXPECT_EQ(frame.at(0, 1, 8).s0, 0.0f);
    EXPECT_EQ(frame.at(0, 1, 0).s1, 0.0f);
    EXPECT_EQ(frame.at(0, 1, 0).s2, 0.0f);
}

TEST(Stokes_fixed, of_equal_samples_is_zero_of_the_sign_of_the_rounding_mode) {
    Block_frame const frame([](std::size_t, std::size_t) { return 65535u; });
    EXPECT_EQ(frame.at(0, 1, 3).s0, 131070.0f);
    EXPECT_EQ(bits(frame.at(0, 1, 3).s1), 0u);
    Arithmetic_mode const set(downward);
    EXPECT_EQ(bits(frame.at(0, 1, 3).s1), 0x80000000u);
}

TEST(Rescale_fixed, multiplies_by_the_approximate_reciprocal) {
    EXPECT_EQ(rescale_fixed(4095.0f, 65535.0f, 4095.0f), 268365824.0f * rcp(4095.0f));
    EXPECT_EQ(clamp_and_convert_fixed(rescale_fixed(0.0f, 4095.0f, 0.0f), 4095.0f), 4095);
}

TEST(Azimuth_fixed, on_the_axes_has_its_table_of_values) {
    struct Entry {
        float s1;
        float s2;
        std::uint16_t of_65535;
        std::uint16_t of_4095;
    };
    constexpr Entry entries[] = {{0, 0, 32768, 2048},  {-0.0f, -0.0f, 32768, 2048},
                                 {0, 9, 49151, 3071},  {0, -9, 16384, 1024},
                                 {-7, 0, 65535, 4095}, {-7, -0.0f, 65535, 4095},
                                 {7, 0, 32768, 2048},  {7, -0.0f, 32768, 2048}};
    for (Entry const& entry : entries) {
        EXPECT_EQ(stored_azimuth(entry.s1, entry.s2, 65535.0f), entry.of_65535)
            << entry.s1 << ' ' << entry.s2;
        EXPECT_EQ(stored_azimuth(entry.s1, entry.s2, 4095.0f), entry.of_4095)
            << entry.s1 << ' ' << entry.s2;
    }
}

float angle_from_bits(float (&angle)(float, float), std::uint32_t ratio, float offset) {
    return angle(std::bit_cast<float>(ratio), offset);
}

TEST(Angle_from_tangent, fuses_the_polynomial_and_the_offset) {
    auto& angle = angle_from_tangent;
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F61C79Bu, 0.0f)), 0x3F39D63Eu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F53D6AFu, pi_constant)), 0x4075994Bu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3EFAE5C9u, pi_constant)), 0x40661CDFu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F156053u, -pi_constant)), 0xC0273079u);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F678CA9u, -pi_constant)), 0xC019DCE3u);
}

TEST(Angle_from_cotangent, fuses_the_polynomial_and_adds_the_offset_apart) {
    auto& angle = angle_from_cotangent;
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F5A4EEAu, half_pi_constant)), 0x3F5C50ACu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0xBED53066u, half_pi_constant)), 0x3FFB1D3Cu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0xBF53AF39u, -half_pi_constant)), 0xBF6010CAu);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3EC899ABu, -half_pi_constant)), 0xBFF85992u);
}

TEST(Angle_from_cotangent, rounds_the_negated_product_in_the_mode) {
    auto& angle = angle_from_cotangent;
    {
        Arithmetic_mode const set(upward);
        EXPECT_EQ(bits(angle_from_bits(angle, 0xBE97DD21u, half_pi_constant)), 0x3FED56B4u);
        EXPECT_EQ(bits(angle_from_bits(angle, 0xBF3C8E04u, -half_pi_constant)), 0xBF6E689Eu);
    }
    Arithmetic_mode const set(downward);
    EXPECT_EQ(bits(angle_from_bits(angle, 0x3F432CC0u, half_pi_constant)), 0x3F6A1CE5u);
    EXPECT_EQ(bits(angle_from_bits(angle, 0xBF1607BDu, -half_pi_constant)), 0xBF85102Du);
}

TEST(Azimuth_fixed, of_an_angle_fuses_the_degrees_and_multiplies_by_the_scale) {
    auto const value_in = [](unsigned mode, std::uint32_t theta) {
        Arithmetic_mode const set(mode);
        return bits(azimuth_of_angle_fixed(std::bit_cast<float>(theta), 65535.0f));
    };
    EXPECT_EQ(value_in(nearest, 0xBF4A7F73u), 0x46BF8A3Fu);
    EXPECT_EQ(value_in(nearest, 0x3E589B8Cu), 0x47089DD1u);
    EXPECT_EQ(value_in(upward, 0xC031664Fu), 0x457104BDu);
    EXPECT_EQ(value_in(upward, 0xBF2E766Bu), 0x46C876BDu);
    EXPECT_EQ(value_in(downward, 0xC02A9369u), 0x459B431Bu);
    EXPECT_EQ(value_in(downward, 0x4019DD1Bu), 0x4761F2FDu);
}

TEST(Azimuth_fixed, on_the_axes_follows_the_rounding_mode) {
    {
        Arithmetic_mode const set(upward);
        EXPECT_EQ(bits(azimuth_fixed(0.0f, 0.0f, 65535.0f)), 0x46FFFF01u);
        EXPECT_EQ(bits(azimuth_fixed(0.0f, 9.0f, 65535.0f)), 0x473FFF41u);
        EXPECT_EQ(bits(azimuth_fixed(0.0f, -9.0f, 65535.0f)), 0x467FFF02u);
        EXPECT_EQ(azimuth_fixed(-9.0f, 0.0f, 65535.0f), 65535.0f);
    }
    Arithmetic_mode const set(downward);
    EXPECT_EQ(bits(azimuth_fixed(0.0f, 0.0f, 65535.0f)), 0x46FFFEFFu);
    EXPECT_EQ(bits(azimuth_fixed(0.0f, 9.0f, 65535.0f)), 0x473FFF3Du);
    EXPECT_EQ(bits(azimuth_fixed(0.0f, -9.0f, 65535.0f)), 0x467FFEFFu);
    EXPECT_EQ(bits(azimuth_fixed(-9.0f, 0.0f, 65535.0f)), 0x477FFEFDu);
}

TEST(Azimuth_fixed, on_the_diagonals_takes_the_reflected_rows) {
    EXPECT_NEAR(azimuth_fixed(5.0f, 5.0f, 180.0f), 112.64186f, 0.03f);
    EXPECT_NEAR(azimuth_fixed(-5.0f, 5.0f, 180.0f), 157.35812f, 0.03f);
    EXPECT_NEAR(azimuth_fixed(-5.0f, -5.0f, 180.0f), 22.64187f, 0.03f);
    EXPECT_NEAR(azimuth_fixed(5.0f, -5.0f, 180.0f), 67.35814f, 0.03f);
}

TEST(Azimuth_fixed, is_near_the_true_angle_and_near_but_not_equal_to_the_weighted_one) {
    unsigned compared = 0;
    unsigned different = 0;
    double largest = 0.0;
    for (int s1 = -300; s1 <= 300; s1 += 3) {
        for (int s2 = -301; s2 <= 301; s2 += 2) {
            float const x = static_cast<float>(s1) * 211.0f;
            float const y = static_cast<float>(s2) * 217.0f;
            float const fixed = azimuth_fixed(x, y, 180.0f);
            float const weighted = azimuth_weighted(x, y, 180.0f);
            double const truth = std::atan2(y, x) * 90.0 / std::acos(-1.0) + 90.0;
            largest = std::max(largest, std::fabs(static_cast<double>(fixed) - truth));
            EXPECT_NEAR(fixed, weighted, 1e-4f) << x << ' ' << y;
            different += bits(fixed) != bits(weighted) ? 1u : 0u;
            ++compared;
        }
    }
    std::printf(
        "%u angles, %u rounded otherwise, largest error %.4f degrees\n", compared, different,
        largest);
    EXPECT_GT(different, compared / 20);
    EXPECT_LT(largest, 0.16);
}

TEST(Dolp_fixed, fuses_the_square_of_s2_alone) {
    float const length = std::bit_cast<float>(0x4777455Bu);
    EXPECT_EQ(dolp_fixed({1.0f, 54145.0f, 32793.0f}, 1.0f), rcp(1.0f) * length);
}

TEST(Dolp_fixed, has_its_edges) {
    auto const stored = [](Stokes const& stokes) {
        return clamp_and_convert_fixed(dolp_fixed(stokes, 4095.0f), 4095.0f);
    };
    EXPECT_EQ(stored({0.0f, 0.0f, 0.0f}), 0);
    EXPECT_EQ(stored({0.0f, 5.0f, 5.0f}), 0);
    EXPECT_EQ(stored({10.0f, 0.0f, 0.0f}), 0);
    EXPECT_EQ(stored({1.0f, 3.0f, 4.0f}), 4095);
    std::uint16_t const half = stored({10.0f, 3.0f, 4.0f});
    EXPECT_TRUE(half == 2047 || half == 2048) << half;
}

TEST(Clamp_fixed, rounds_ties_to_even_and_saturates_at_both_ends) {
    EXPECT_EQ(clamp_and_convert_fixed(2.5f, 4095.0f), 2);
    EXPECT_EQ(clamp_and_convert_fixed(3.5f, 4095.0f), 4);
    EXPECT_EQ(clamp_and_convert_fixed(-1.0f, 4095.0f), 0);
    EXPECT_EQ(clamp_and_convert_fixed(4100.0f, 4095.0f), 4095);
    EXPECT_EQ(clamp_and_convert_fixed(65536.0f, 70000.0f), 65535);
    EXPECT_EQ(clamp_and_convert_fixed(infinity, 1e20f), 0);
    EXPECT_EQ(clamp_and_convert_fixed(std::nanf(""), 4095.0f), 4095);
}

TEST(Clamp_fixed, converts_in_the_rounding_mode) {
    Arithmetic_mode const set(upward);
    EXPECT_EQ(clamp_and_convert_fixed(2.25f, 4095.0f), 3);
    EXPECT_EQ(clamp_and_convert_fixed(-0.75f, 4095.0f), 0);
}

} // namespace
