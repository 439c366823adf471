// What cannot be is refused before the first frame, once and with its reason.
#include "element_harness.hpp"

#include <gtest/gtest.h>

namespace {

using namespace element_harness;
using polarization::Size;

struct Refusal {
    Properties properties;
    GstVideoFormat format;
    Size size;
    std::string text;
};

constexpr auto gray8 = GST_VIDEO_FORMAT_GRAY8;
constexpr auto gray16 = GST_VIDEO_FORMAT_GRAY16_LE;

TEST(Element_refusals, each_is_one_error_with_value_and_remedy) {
    std::vector<Refusal> const refusals{
        {{},
         gray8,
         {32, 8},
         "layout is not given; give the polariser angles of the top-left cell row by row, such as "
         "layout=90,45,135,0, or a calibration"},
        {{{"layout", "0,45,90,135"}},
         gray8,
         {32, 8},
         "the layout of the mosaic is 0,45,90,135; give the angles of the top-left cell row by "
         "row, one of 0,135,45,90 (phase 0); 45,90,0,135 (phase 1); 90,45,135,0 (phase 2); "
         "135,0,90,45 (phase 3)"},
        {{{"layout", "4"}}, gray8, {32, 8}, "the phase is 4; give 0, 1, 2 or 3"},
        {{{"layout", "2"}},
         gray16,
         {32, 8},
         "bit-depth is not given; give the significant bits of a sample, such as bit-depth=12: "
         "16-bit frames do not tell them"},
        {{{"layout", "2"}, {"bit-depth", "12"}},
         gray8,
         {32, 8},
         "bit-depth is 12, but the frames are of 8 bits (GRAY8); put video/x-raw,format=GRAY16_LE "
         "before the element, or give bit-depth=8"},
        {{{"layout", "2"}},
         gray8,
         {15, 8},
         "the width of the frame is 15; give a frame of at least 16 columns, or of at least 2 if "
         "it has exactly 2 rows"},
        {{{"layout", "2"}},
         gray8,
         {32, 1},
         "the height of the frame is 1; give a frame of at least 2 rows"},
        {{{"calibration", "/none/sensor.json"}},
         gray8,
         {32, 8},
         "/none/sensor.json: cannot be read: No such file or directory; give a calibration "
         "file that can be read"}};
    for (Refusal const& refusal : refusals) {
        Harness harness(refusal.properties);
        EXPECT_FALSE(harness.takes(refusal.format, refusal.size));
        EXPECT_FALSE(harness.takes(refusal.format, refusal.size));
        EXPECT_EQ(harness.errors(), std::vector<std::string>{refusal.text});
    }
}

TEST(Element_refusals, a_format_that_the_next_element_does_not_take_is_named) {
    Harness plane({{"plane", "s0"}, {"layout", "2"}});
    plane.set_behind("video/x-raw, format=BGRx");
    EXPECT_FALSE(plane.takes(gray8, {32, 8}));
    EXPECT_EQ(
        plane.errors(),
        std::vector<std::string>{
            "plane is one of 16-bit numbers, in GRAY16_LE, which the next element does not take; "
            "put videoconvert before it, or give plane=angle, degree or intensity for BGRx"});

    Harness picture({{"plane", "degree"}, {"layout", "2"}});
    picture.set_behind("video/x-raw, format=GRAY16_LE");
    EXPECT_FALSE(picture.takes(gray8, {32, 8}));
    EXPECT_EQ(
        picture.errors(),
        std::vector<std::string>{
            "plane is a picture, in BGRx, which the next element does not take; put videoconvert "
            "before it, or give plane=s0, s1, s2, azimuth or dolp for GRAY16_LE"});
}

TEST(Element_refusals, a_plane_that_the_next_element_stops_taking_is_named) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}});
    harness.set_behind("video/x-raw, format=GRAY16_LE");
    polarization::Frame const frame = expected_outputs::frame_of({32, 8}, 8);
    ASSERT_TRUE(harness.takes(gray8, frame.size()));
    ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
    harness.set("plane", "angle");
    EXPECT_EQ(harness.push(frame), GST_FLOW_NOT_NEGOTIATED);
    ASSERT_EQ(harness.errors().size(), 1U);
}

TEST(Element_refusals, corrected_properties_are_taken) {
    Harness harness;
    EXPECT_FALSE(harness.takes(gray8, {32, 8}));
    harness.set("layout", "2");
    EXPECT_TRUE(harness.takes(gray8, {32, 8}));
    EXPECT_EQ(harness.push(expected_outputs::frame_of({32, 8}, 8)), GST_FLOW_OK);
}

// The planes are those of `process`, which warns as well.
TEST(Element_refusals, samples_above_the_bit_depth_are_warned_of_once) {
    for (std::string const threads : {"1", "2"}) {
        Harness harness(
            {{"plane", "s0"}, {"layout", "2"}, {"bit-depth", "12"}, {"threads", threads}});
        auto const frame = expected_outputs::frame_of({512, 530}, 12);
        ASSERT_TRUE(harness.takes(gray16, frame.size()));
        ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
        EXPECT_TRUE(harness.warnings().empty());
        auto large = frame;
        large.samples[17] = 4096;
        large.samples.back() = 5000;
        ASSERT_EQ(harness.push(large), GST_FLOW_OK);
        ASSERT_EQ(harness.push(large), GST_FLOW_OK);
        harness.set("full-scale", "4095");
        ASSERT_EQ(harness.push(large), GST_FLOW_OK);
        EXPECT_EQ(
            harness.warnings(),
            std::vector<std::string>{
                "the frames have samples up to 5000, above the full scale 4095 of bit-depth=12; "
                "the total intensity may clip; give a larger bit-depth, 16 for samples at the "
                "upper end of 16 bits"});
        harness.set("bit-depth", "10");
        ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
        EXPECT_EQ(harness.warnings().size(), 1U);
        harness.set("bit-depth", "13");
        ASSERT_EQ(harness.push(large), GST_FLOW_OK);
        EXPECT_TRUE(harness.warnings().empty());
    }
}

// The pad refuses these by itself, and most elements before it have no words for it.
TEST(Element_refusals, frames_that_are_not_raw_are_named) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}});
    auto const frame = expected_outputs::frame_of({32, 8}, 8);
    ASSERT_TRUE(harness.takes(gray8, frame.size()));
    for (auto const& [format, name] :
         {std::pair(GST_VIDEO_FORMAT_RGB, "RGB"), {GST_VIDEO_FORMAT_GRAY16_BE, "GRAY16_BE"}}) {
        for (unsigned round = 0; round < 2; ++round) {
            EXPECT_FALSE(harness.takes(format, frame.size()));
            EXPECT_FALSE(harness.takes(format, frame.size()));
            EXPECT_EQ(
                harness.errors(), std::vector<std::string>{
                                      std::string("the frames are ") + name +
                                      "; give raw frames as the sensor has them, in GRAY8 or "
                                      "GRAY16_LE"});
            ASSERT_TRUE(harness.takes(gray8, frame.size()));
            EXPECT_EQ(harness.push(frame), GST_FLOW_OK);
        }
    }
}

TEST(Element_refusals, a_size_that_the_next_element_does_not_take_is_told) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}});
    harness.set_behind("video/x-raw, width=64");
    EXPECT_FALSE(harness.takes(gray8, {32, 8}));
    EXPECT_EQ(
        harness.errors(),
        std::vector<std::string>{
            "the frames have a size or rate that the next element does not take; change the caps "
            "behind the element, or put videoscale or videorate there"});
    EXPECT_TRUE(harness.takes(gray8, {64, 8}));
}

} // namespace
