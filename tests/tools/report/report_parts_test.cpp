// The parts of a report: encodings that a browser must undo exactly, statistics of planes that can
// be worked out by hand, and pictures that follow their scales.
#include "page/colour_tables.hpp"
#include "page/page_encoding.hpp"
#include "report/report_encoding.hpp"
#include "report/report_figures.hpp"
#include "report/report_pictures.hpp"
#include "report/report_statistics.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>

namespace {

using polarize_tool::Element_counts;
using Plane = std::vector<std::uint16_t>;

std::string base64_of(std::string const& text) {
    return polarize_tool::base64({reinterpret_cast<std::uint8_t const*>(text.data()), text.size()});
}

TEST(Report_encoding, base64_of_the_standard_s_test_vectors) {
    EXPECT_EQ(base64_of(""), "");
    EXPECT_EQ(base64_of("f"), "Zg==");
    EXPECT_EQ(base64_of("fo"), "Zm8=");
    EXPECT_EQ(base64_of("foo"), "Zm9v");
    EXPECT_EQ(base64_of("foob"), "Zm9vYg==");
    EXPECT_EQ(base64_of("fooba"), "Zm9vYmE=");
    EXPECT_EQ(base64_of("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64_of("\xff\xfe\xfb"), "//77");
}

TEST(Report_encoding, text_cannot_leave_its_place_in_the_page) {
    EXPECT_EQ(
        polarize_tool::html_text("<a href=\"x\">&</a>"),
        "&lt;a href=&quot;x&quot;&gt;&amp;&lt;/a&gt;");
    EXPECT_EQ(
        polarize_tool::json_for_html("{\"a\":\"</script><!--\"}"),
        "{\"a\":\"\\u003c/script>\\u003c!--\"}");
}

TEST(Report_encoding, values_are_not_searched_for_further_places) {
    EXPECT_EQ(
        polarize_tool::filled("{{a}}-{{b}}{{a}}", {{"a", "{{b}}"}, {"b", "2"}}), "{{b}}-2{{b}}");
    EXPECT_THROW(polarize_tool::filled("{{c}}", {}), std::out_of_range);
}

TEST(Report_statistics, counts_of_a_plane_worked_out_by_hand) {
    Element_counts const counts(Plane{5, 1, 9, 9});
    EXPECT_DOUBLE_EQ(counts.mean(), 6.0);
    EXPECT_EQ(counts.largest(), 9U);
    EXPECT_EQ(counts.quantile(0.0), 1U);
    EXPECT_EQ(counts.quantile(0.25), 1U);
    EXPECT_EQ(counts.quantile(0.5), 5U);
    EXPECT_EQ(counts.quantile(0.51), 9U);
    EXPECT_EQ(counts.quantile(1.0), 9U);
    EXPECT_DOUBLE_EQ(counts.share_above(5), 0.5);
    EXPECT_DOUBLE_EQ(counts.share_above(9), 0.0);
    EXPECT_EQ(counts.histogram(2, 10), (std::vector<double>{1.0, 3.0}));
    EXPECT_EQ(counts.histogram(2, 4), (std::vector<double>{1.0, 3.0}));
}

TEST(Report_statistics, the_mean_angle_goes_around_the_end_of_the_scale) {
    // Full scale 180: an element is a degree. Angles 170 and 10 average to 0, not to 90.
    Plane const s0(3, 100);
    Plane const azimuth{80, 100, 37};
    Plane const dolp{60, 60, 0};
    auto const result = polarize_tool::angle_statistics({s0, azimuth, dolp, 3, 1, 180}, 18);
    EXPECT_NEAR(std::min(result.mean, 180.0 - result.mean), 0.0, 1e-9);
    EXPECT_NEAR(result.concentration, std::cos(20.0 * 3.14159265358979 / 180.0), 1e-9);
    EXPECT_DOUBLE_EQ(result.without_angle, 1.0 / 3.0);
    EXPECT_DOUBLE_EQ(result.histogram[1], 60.0);  // 10 degrees
    EXPECT_DOUBLE_EQ(result.histogram[17], 60.0); // 170
    EXPECT_DOUBLE_EQ(std::accumulate(result.histogram.begin(), result.histogram.end(), 0.0), 120.0);
}

TEST(Report_statistics, every_angle_is_its_own_mean) {
    unsigned angles = 0;
    for (unsigned azimuth = 0; azimuth <= 180; ++azimuth, ++angles) {
        Plane const s0(1, 100);
        Plane const plane{static_cast<std::uint16_t>(azimuth)};
        Plane const dolp{50};
        auto const result = polarize_tool::angle_statistics({s0, plane, dolp, 1, 1, 180}, 10);
        double const wanted = (azimuth + 90) % 180;
        double const apart = std::abs(result.mean - wanted);
        EXPECT_NEAR(std::min(apart, 180.0 - apart), 0.0, 1e-9) << azimuth;
        EXPECT_NEAR(result.concentration, 1.0, 1e-12);
    }
    std::printf("%u angles\n", angles);
}

TEST(Report_pictures, scales_end_at_round_degrees_and_never_at_nothing) {
    Element_counts const dark(Plane(100, 0));
    EXPECT_EQ(polarize_tool::picture_scales(dark, dark, 1000).s0_top, 1U);
    struct Case {
        unsigned degree;
        double top;
    };
    for (Case const& wanted :
         {Case{0, 0.05}, Case{50, 0.05}, Case{51, 0.1}, Case{150, 0.2}, Case{300, 0.3},
          Case{301, 0.5}, Case{501, 1.0}, Case{1000, 1.0}}) {
        Element_counts const dolp(Plane(100, static_cast<std::uint16_t>(wanted.degree)));
        EXPECT_DOUBLE_EQ(polarize_tool::picture_scales(dark, dolp, 1000).degree_top, wanted.top)
            << wanted.degree;
    }
}

TEST(Report_pictures, large_frames_are_binned_to_at_most_1400_pixels) {
    struct Case {
        std::size_t width;
        std::size_t height;
        std::size_t binning;
        std::size_t picture_width;
    };
    for (Case const& wanted :
         {Case{1400, 2, 1, 1400}, Case{1401, 3, 2, 701}, Case{16, 2801, 3, 6}}) {
        Plane const plane(wanted.width * wanted.height, 20);
        auto const pictures = polarize_tool::report_pictures(
            {plane, plane, plane, wanted.width, wanted.height, 100}, {20, 1.0});
        EXPECT_EQ(pictures.binning, wanted.binning);
        EXPECT_EQ(pictures.s0.width, wanted.picture_width);
        EXPECT_EQ(pictures.angle.width, wanted.picture_width);
        EXPECT_TRUE(pictures.degree.uri.starts_with("data:image/"));
    }
}

TEST(Report_pictures, pixels_that_are_not_valid_are_left_out_or_grey) {
    Plane plane(1401 * 3, 20);
    std::vector<std::uint8_t> validity(plane.size());
    auto const pictures = [&](std::span<std::uint8_t const> marks) {
        return polarize_tool::report_pictures(
            {plane, plane, plane, 1401, 3, 100, marks}, {20, 1.0});
    };
    std::string const plain = pictures({}).degree.uri;
    EXPECT_EQ(pictures(validity).degree.uri, plain);
    // One of four pixels that become one of the picture.
    plane[0] = 90;
    validity[0] = 1;
    EXPECT_EQ(pictures(validity).degree.uri, plain);
    EXPECT_NE(pictures({}).degree.uri, plain);
    for (std::size_t const pixel : {1U, 1401U, 1402U}) {
        validity[pixel] = 1;
    }
    EXPECT_NE(pictures(validity).degree.uri, plain);
}

TEST(Report_pictures, tables_hold_a_colour_for_each_hue_and_level) {
    auto const tables = polarize_tool::colour_tables();
    EXPECT_EQ(tables.s0.size(), 3U * 256U);
    EXPECT_EQ(tables.degree.size(), 3U * 256U);
    EXPECT_EQ(tables.angle.size(), 3U * 180U * 64U);
    EXPECT_EQ(tables.s0.front(), 0);
    EXPECT_EQ(tables.s0.back(), 255);
    // Angle 0 is red, 90 degrees a bluish green, and no degree black.
    std::size_t const red = 3 * 63;
    EXPECT_GT(tables.angle[red], tables.angle[red + 2]);
    std::size_t const green = 3 * (90 * 64 + 63);
    EXPECT_LT(tables.angle[green], tables.angle[green + 2]);
    EXPECT_EQ(tables.angle[0], 0);
}

TEST(Report_figures, ticks_are_round_and_within_the_axis) {
    using polarize_tool::Ticks;
    EXPECT_EQ(
        polarize_tool::linear_ticks(0.5), (Ticks{
                                              {0.0, "0.0"},
                                              {0.2, "0.1"},
                                              {0.4, "0.2"},
                                              {0.6000000000000001, "0.3"},
                                              {0.8, "0.4"},
                                              {1.0, "0.5"}}));
    for (double end : {0.05, 0.3, 1.0, 7.3, 255.0, 4096.0, 131070.0}) {
        Ticks const ticks = polarize_tool::linear_ticks(end);
        EXPECT_GE(ticks.size(), 3U) << end;
        EXPECT_LE(ticks.size(), 7U) << end;
        EXPECT_LE(ticks.back().first, 1.0 + 1e-9) << end;
    }
}

} // namespace
