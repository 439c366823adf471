// Figures of a region by its pixels, and its histograms: their range and their bars.
#include "view/view_statistics.hpp"

#include "support/samples.hpp"
#include "veldrane_mrv/polarization/units.hpp"
#include "whole_frame.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <string>
#include <vector>

namespace {

using namespace polarize_tool;
using polarization::Mode;
using polarization::Plane;
using polarization::Region;

constexpr polarization::Size size{64, 100};

Quantity_statistics const& named(View_statistics const& statistics, std::string const& name) {
    return *std::ranges::find(statistics.quantities, name, &Quantity_statistics::name);
}

View_statistics statistics_of(std::vector<std::uint16_t> const& samples) {
    Statistics_making making(
        polarization::ideal_settings(polarization::Mosaic::from_phase(2), polarization::Scale(12)),
        Mode::fast);
    return making.make({{samples, size.height, size.width}, {}}, region_of(size));
}

// As many levels a bar, so an even spread has even bars.
TEST(Histograms, show_even_samples_evenly) {
    std::vector<std::uint16_t> samples(size.width * size.height);
    for (std::size_t const levels : {3U, 64U, 100U, 161U, 1000U}) {
        for (std::size_t at = 0; at < samples.size(); ++at) {
            samples[at] = static_cast<std::uint16_t>(200 + at % levels);
        }
        auto const found = statistics_of(samples);
        auto const& raw = named(found, "raw");
        std::size_t const step = (levels + 63) / 64;
        ASSERT_EQ(raw.counts.size(), (levels + step - 1) / step);
        EXPECT_EQ(raw.from, 200);
        EXPECT_EQ(raw.to, 200 + static_cast<double>(step * raw.counts.size()));
        auto const even = static_cast<double>(samples.size() * step) / static_cast<double>(levels);
        for (std::size_t bar = 0; bar + 1 < raw.counts.size(); ++bar) {
            EXPECT_NEAR(static_cast<double>(raw.counts[bar]), even, static_cast<double>(step));
        }
    }
}

// S0 of 12 bits has four steps of its plane to a level.
TEST(Histograms, of_s0_have_bars_of_its_levels) {
    std::vector<std::uint16_t> samples(size.width * size.height);
    for (std::size_t row = 0; row < size.height; ++row) {
        for (std::size_t column = 0; column < size.width; ++column) {
            samples[row * size.width + column] = static_cast<std::uint16_t>(1000 + row);
        }
    }
    auto const found = statistics_of(samples);
    auto const& s0 = named(found, "s0");
    EXPECT_NEAR(s0.from, 2001, 0.2);
    ASSERT_GT(s0.counts.size(), 32U);
    auto const [least, largest] = std::minmax_element(s0.counts.begin(), s0.counts.end() - 1);
    EXPECT_LE(*largest, *least + 2 * size.width);
    EXPECT_GT(*least, 0U);
}

TEST(Histograms, span_what_there_is) {
    std::vector<std::uint16_t> samples(size.width * size.height);
    for (std::size_t at = 0; at < samples.size(); ++at) {
        samples[at] = static_cast<std::uint16_t>(2000 + at % 7);
    }
    auto const found = statistics_of(samples);
    for (char const* const name : {"s0", "dolp", "s1_s0", "s2_s0", "raw"}) {
        auto const& quantity = named(found, name);
        double const bar =
            (quantity.to - quantity.from) / static_cast<double>(quantity.counts.size());
        EXPECT_NEAR(quantity.from, quantity.least.value(), 0.2) << name;
        EXPECT_GT(quantity.to, quantity.largest.value()) << name;
        EXPECT_GT(quantity.counts.front(), 0U) << name;
        EXPECT_GT(quantity.counts.back(), 0U) << name;
        EXPECT_LT(quantity.to, quantity.largest.value() + bar + 0.2) << name;
    }
    EXPECT_LT(named(found, "dolp").to, 0.01);
    EXPECT_GT(named(found, "s1_s0").from, -0.01);
}

void expect_figures_of_pixels(Case const& one) {
    Whole whole(one);
    Region const region{7, 3, 30, 140};
    Statistics_making making(one.settings, one.mode);
    making.make({one.view(), one.saturated}, {0, 0, 20, 20});
    auto const found = making.make({one.view(), one.saturated}, region);
    std::map<std::string, std::vector<double>> values;
    double x = 0;
    double y = 0;
    double lengths = 0;
    std::size_t valid = 0;
    std::size_t weak = 0;
    double const full_scale = one.settings.scale.full_scale();
    for_each_pixel(region, 1000, {0, 0}, [&](std::size_t row, std::size_t column) {
        std::size_t const at = row * one.size.width + column;
        double const s0 = whole.planes.integer_plane(Plane::s0)[at];
        double const s1 = whole.signs.s1[at];
        double const s2 = whole.signs.s2[at];
        if ((whole.validity[at] & (1 | 2 | 4)) != 0) {
            return;
        }
        weak += whole.validity[at] == 8 ? 1U : 0U;
        ++valid;
        values["raw"].push_back(one.samples[at]);
        values["s0"].push_back(s0 * one.settings.scale.sample_units_per_step());
        if (s0 > 0) {
            values["dolp"].push_back(whole.planes.integer_plane(Plane::dolp)[at] / full_scale);
            double const ratio = std::clamp(s1 / s0, -1.0, 1.0);
            values["s1_s0"].push_back(static_cast<double>(std::lround(32767 * ratio)) / 32767);
        }
        x += s1;
        y += s2;
        lengths += std::hypot(s1, s2);
    });
    EXPECT_EQ(found.pixels, 30U * 140U);
    EXPECT_EQ(found.valid_pixels, valid);
    EXPECT_EQ(valid < found.pixels, !one.saturated.empty());
    EXPECT_EQ(weak > 0, one.settings.noise.has_value());
    for (auto const& [name, numbers] : values) {
        double mean = 0;
        for (double const number : numbers) {
            mean += number / static_cast<double>(numbers.size());
        }
        double variance = 0;
        for (double const number : numbers) {
            variance += (number - mean) * (number - mean) / static_cast<double>(numbers.size());
        }
        Quantity_statistics const& quantity = named(found, name);
        EXPECT_NEAR(quantity.mean.value(), mean, 1e-9 * (1 + std::fabs(mean))) << name;
        EXPECT_NEAR(quantity.deviation.value(), std::sqrt(variance), 1e-9 * (1 + mean)) << name;
        EXPECT_NEAR(quantity.least.value(), std::ranges::min(numbers), 1e-12) << name;
        EXPECT_NEAR(quantity.largest.value(), std::ranges::max(numbers), 1e-9) << name;
        std::uint64_t counted = 0;
        for (std::uint64_t const count : quantity.counts) {
            counted += count;
        }
        EXPECT_EQ(counted, numbers.size()) << name;
    }
    double const mean = polarization::within_half_turn(std::atan2(y, x) * 90 / std::numbers::pi);
    double const r = std::hypot(x, y) / lengths;
    EXPECT_NEAR(named(found, "azimuth").mean.value(), mean, 1e-9);
    EXPECT_NEAR(
        named(found, "azimuth").deviation.value(),
        std::sqrt(-2 * std::log(r)) * 90 / std::numbers::pi, 1e-9);
}

// In both modes, with saturated pixels and with ones too weak for a degree.
TEST(Statistics, are_those_of_the_pixels) {
    for (std::size_t const seed : {2U, 3U, 5U}) {
        Case one = make_case(seed, support::Sample_kind::few_levels, {49, 150});
        if (seed == 5) {
            one.settings.noise = {.electrons_per_count = 0.01, .read_noise = 1};
        }
        expect_figures_of_pixels(one);
    }
}

// The page shows it beside the plane's own value.
TEST(Statistics, of_one_pixel_have_the_angle_of_its_plane) {
    Case const one = make_case(2, support::Sample_kind::few_levels, {20, 40});
    Whole whole(one);
    Statistics_making making(one.settings, one.mode);
    std::size_t valid = 0;
    for (std::size_t column = 0; column < one.size.width; ++column) {
        std::size_t const at = 7 * one.size.width + column;
        auto const found = making.make({one.view(), one.saturated}, {column, 7, 1, 1});
        auto const& angle = named(found, "azimuth");
        if ((whole.validity[at] & (1 | 2 | 4)) != 0) {
            EXPECT_EQ(found.valid_pixels, 0U);
            EXPECT_FALSE(angle.mean || named(found, "s0").mean || named(found, "raw").mean);
        } else if (whole.signs.s1[at] != 0 || whole.signs.s2[at] != 0) {
            EXPECT_EQ(
                angle.mean.value(),
                polarization::angle_of_azimuth(
                    whole.planes.integer_plane(Plane::azimuth)[at], one.settings.scale));
            EXPECT_EQ(angle.deviation.value(), 0.0);
            ++valid;
        }
    }
    EXPECT_GT(valid, 0U);
}

TEST(Statistics, of_darkness_have_no_angle_and_no_degree) {
    Case const one = make_case(2, support::Sample_kind::all_zero, {40, 40});
    Statistics_making making(one.settings, one.mode);
    auto const found = making.make({one.view(), one.saturated}, region_of(one.size));
    EXPECT_EQ(named(found, "s0").mean, 0.0);
    EXPECT_EQ(named(found, "s0").deviation, 0.0);
    for (char const* const name : {"dolp", "azimuth", "s1_s0", "s2_s0"}) {
        EXPECT_FALSE(named(found, name).mean) << name;
        EXPECT_FALSE(named(found, name).deviation) << name;
    }
}

} // namespace
