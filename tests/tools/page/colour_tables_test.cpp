// Colours of pages: what the tables hold, and whether people who see colours differently can tell
// the angles of the second one apart.
#include "page/colour_tables.hpp"
#include "page/page_colours.hpp"
#include "page/page_encoding.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numeric>

namespace {

using polarize_tool::Colour_tables;
using Colour = std::array<double, 3>;
using Matrix = std::array<Colour, 3>;

// Machado, Oliveira and Fernandes, "A Physiologically-based Model for Simulation of Color Vision
// Deficiency", IEEE TVCG 15 (2009): severity 1, for linear sRGB.
constexpr Matrix protanopia{
    {{0.152286, 1.052583, -0.204868},
     {0.114503, 0.786281, 0.099216},
     {-0.003882, -0.048116, 1.051998}}};
constexpr Matrix deuteranopia{
    {{0.367322, 0.860646, -0.227968},
     {0.280085, 0.672501, 0.047413},
     {-0.011820, 0.042940, 0.968881}}};
constexpr Matrix usual_sight{{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}};
constexpr Matrix xyz_of_srgb{
    {{0.4124564, 0.3575761, 0.1804375},
     {0.2126729, 0.7151522, 0.0721750},
     {0.0193339, 0.1191920, 0.9503041}}};

Colour product(Matrix const& matrix, Colour const& colour) {
    Colour result{};
    for (std::size_t row = 0; row < 3; ++row) {
        result[row] = std::inner_product(colour.begin(), colour.end(), matrix[row].begin(), 0.0);
    }
    return result;
}

// CIELAB with the white D65.
Colour lab(Colour const& linear) {
    Colour const xyz = product(xyz_of_srgb, linear);
    auto const root = [](double share) {
        return share > 216.0 / 24389.0 ? std::cbrt(share) : (share * 24389.0 / 27.0 + 16.0) / 116.0;
    };
    double const x = root(xyz[0] / 0.95047);
    double const y = root(xyz[1]);
    double const z = root(xyz[2] / 1.08883);
    return {116.0 * y - 16.0, 500.0 * (x - y), 200.0 * (y - z)};
}

Colour seen(std::vector<std::uint8_t> const& table, std::size_t index, Matrix const& sight) {
    Colour linear{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        double const level = table[3 * index + channel] / 255.0;
        linear[channel] = level <= 0.04045 ? level / 12.92 : std::pow((level + 0.055) / 1.055, 2.4);
    }
    Colour shown = product(sight, linear);
    for (double& light : shown) {
        light = std::clamp(light, 0.0, 1.0);
    }
    return lab(shown);
}

double difference(Colour const& one, Colour const& other) {
    return std::hypot(one[0] - other[0], one[1] - other[1], one[2] - other[2]);
}

std::size_t brightest(std::size_t hue) {
    return hue % Colour_tables::hue_count * Colour_tables::level_count +
           Colour_tables::level_count - 1;
}

// The least difference between two fully polarised angles at least `apart` hues from each other.
double least_difference(
    std::vector<std::uint8_t> const& table, std::size_t apart, Matrix const& sight) {
    std::vector<Colour> ring;
    for (std::size_t hue = 0; hue < Colour_tables::hue_count; ++hue) {
        ring.push_back(seen(table, brightest(hue), sight));
    }
    double least = 1e9;
    for (std::size_t hue = 0; hue < ring.size(); ++hue) {
        for (std::size_t step = apart; step <= ring.size() / 2; ++step) {
            least = std::min(least, difference(ring[hue], ring[(hue + step) % ring.size()]));
        }
    }
    return least;
}

TEST(Colour_tables, angles_are_told_apart_without_red_or_green) {
    auto const tables = polarize_tool::colour_tables();
    for (Matrix const& sight : {usual_sight, protanopia, deuteranopia}) {
        EXPECT_GT(least_difference(tables.angle_second, 20, sight), 18.0);
    }
    // Which is what the first table does not offer.
    EXPECT_LT(least_difference(tables.angle, 20, deuteranopia), 10.0);
}

TEST(Colour_tables, second_angles_form_a_closed_ring_around_a_grey) {
    auto const tables = polarize_tool::colour_tables();
    auto const& table = tables.angle_second;
    ASSERT_EQ(table.size(), 3 * Colour_tables::hue_count * Colour_tables::level_count);
    for (std::size_t hue = 0; hue < Colour_tables::hue_count; ++hue) {
        Colour const here = seen(table, brightest(hue), usual_sight);
        double const step = difference(here, seen(table, brightest(hue + 1), usual_sight));
        EXPECT_GT(step, 0.3) << hue;
        EXPECT_LT(step, 3.0) << hue;
        EXPECT_NEAR(here[1], 0.0, 1.5) << hue;
        Colour const none = seen(table, hue * Colour_tables::level_count, usual_sight);
        EXPECT_NEAR(none[0], 60.0, 0.5);
        EXPECT_NEAR(none[2], 0.0, 0.5);
    }
    EXPECT_NEAR(seen(table, brightest(45), usual_sight)[0], 88.0, 0.5);
    EXPECT_NEAR(seen(table, brightest(135), usual_sight)[0], 32.0, 0.5);
    EXPECT_NEAR(seen(table, brightest(0), usual_sight)[2], 45.0, 1.0);
    EXPECT_NEAR(seen(table, brightest(90), usual_sight)[2], -45.0, 1.0);
}

TEST(Colour_tables, signed_shares_are_as_bright_on_both_sides) {
    auto const table = polarize_tool::colour_tables().signed_share;
    ASSERT_EQ(table.size(), 3U * 256U);
    EXPECT_EQ(table[3 * 128], 0);
    for (std::size_t reach = 1; reach <= 127; ++reach) {
        Colour const above = seen(table, 128 + reach, usual_sight);
        Colour const below = seen(table, 128 - reach, usual_sight);
        EXPECT_NEAR(above[0], below[0], 1.0) << reach;
        EXPECT_NEAR(above[0], 70.0 * static_cast<double>(reach) / 127.0, 1.0) << reach;
    }
    EXPECT_GT(seen(table, 255, usual_sight)[2], 55.0);
    EXPECT_LT(seen(table, 1, usual_sight)[2], -38.0);
}

TEST(Page_colours, hold_the_tables_and_their_legends) {
    auto const json = nlohmann::json::parse(polarize_tool::page_colours());
    auto const tables = polarize_tool::colour_tables();
    EXPECT_EQ(json["hues"], Colour_tables::hue_count);
    EXPECT_EQ(json["levels"], Colour_tables::level_count);
    EXPECT_EQ(json["angle"], polarize_tool::base64(tables.angle));
    EXPECT_EQ(json["angle_second"], polarize_tool::base64(tables.angle_second));
    EXPECT_EQ(json["signed"], polarize_tool::base64(tables.signed_share));
    for (char const* const name : {"s0", "degree", "signed"}) {
        EXPECT_TRUE(json["bars"][name].get<std::string>().starts_with("data:image/png;"));
    }
    for (char const* const name : {"hue", "second"}) {
        EXPECT_TRUE(json["wheels"][name].get<std::string>().starts_with("<svg "));
    }
}

} // namespace
