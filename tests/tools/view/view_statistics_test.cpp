// Histograms of a region: their range and their bars.
#include "view/view_statistics.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace polarize_tool;
using polarization::Mode;

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

} // namespace
