// Caps and properties change while frames flow.
#include "element_harness.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace element_harness;
using expected_outputs::frame_of;
using expected_outputs::Output;
using polarization::Frame;
using polarization::Mosaic;
using polarization::Scale;

TEST(Element_changes, caps_change_between_frames) {
    Harness harness({{"plane", "angle"}, {"layout", "2"}});
    Frame const narrow = frame_of({33, 7}, 8);
    Frame const wide = frame_of({48, 20}, 8);
    for (unsigned round = 0; round < 2; ++round) {
        harness.set("bit-depth", "8");
        for (Frame const* const frame : {&narrow, &wide}) {
            ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame->size()));
            harness.push(*frame);
            expect_output(
                harness.pull(), *frame, ideal_settings(Mosaic::from_phase(2), Scale(8)),
                Output::angle);
        }
        harness.set("bit-depth", "12");
        Frame const deep = frame_of({34, 9}, 12);
        ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, deep.size()));
        harness.push(deep);
        expect_output(
            harness.pull(), deep, ideal_settings(Mosaic::from_phase(2), Scale(12)), Output::angle);
    }
    EXPECT_TRUE(harness.errors().empty());
}

TEST(Element_changes, properties_hold_from_the_next_frame_on) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}, {"bit-depth", "12"}});
    Frame const frame = frame_of({33, 7}, 12);
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, frame.size()));
    auto const expect = [&](auto const& settings, Output output, bool is_masked = true) {
        ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
        expect_output(harness.pull(), frame, settings, output, polarization::Mode::fast, is_masked);
    };
    auto settings = ideal_settings(Mosaic::from_phase(2), Scale(12));
    expect(settings, Output::s0);
    harness.set("plane", "angle");
    expect(settings, Output::angle);
    harness.set("mask", "false");
    expect(settings, Output::angle, false);
    harness.set("plane", "dolp");
    expect(settings, Output::dolp);
    harness.set("layout", "0,135,45,90");
    harness.set("threads", "2");
    settings = ideal_settings(Mosaic::from_phase(0), Scale(12));
    expect(settings, Output::dolp);
    harness.set("full-scale", "4095");
    settings = ideal_settings(Mosaic::from_phase(0), Scale(12, 4095));
    expect(settings, Output::dolp);
    harness.set("mode", "calibrated");
    ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
    expect_output(harness.pull(), frame, settings, Output::dolp, polarization::Mode::calibrated);
    EXPECT_TRUE(harness.errors().empty());
}

TEST(Element_changes, another_thread_may_change_properties) {
    Harness harness(Properties{{"layout", "2"}});
    Frame const frame = frame_of({64, 32}, 8);
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame.size()));
    std::atomic<bool> is_over = false;
    std::thread other([&] {
        for (unsigned round = 0; !is_over; ++round) {
            harness.set("plane", round % 2 == 0 ? "s0" : "degree");
            harness.set("full-scale", round % 3 == 0 ? "255" : "0");
            harness.set("layout", round % 5 == 0 ? "135,0,90,45" : "2");
        }
    });
    std::size_t received = 0;
    for (unsigned count = 0; count < 200; ++count) {
        EXPECT_EQ(harness.push(frame), GST_FLOW_OK);
        while (harness.waiting() > 0) {
            Received const output = harness.pull();
            std::size_t const bytes = output.format == GST_VIDEO_FORMAT_BGRx ? 4 : 2;
            EXPECT_EQ(output.bytes.size(), std::size_t{64} * 32 * bytes);
            ++received;
        }
    }
    is_over = true;
    other.join();
    EXPECT_GT(received, 0U);
    EXPECT_TRUE(harness.errors().empty());
}

TEST(Element_changes, a_property_that_cannot_be_ends_the_stream_with_its_reason) {
    Harness harness(Properties{{"layout", "2"}});
    Frame const frame = frame_of({32, 8}, 8);
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame.size()));
    ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
    harness.set("layout", "4");
    EXPECT_EQ(harness.push(frame), GST_FLOW_ERROR);
    EXPECT_EQ(harness.errors(), std::vector<std::string>{"the phase is 4; give 0, 1, 2 or 3"});
}

TEST(Element_changes, a_property_that_is_mended_brings_the_planes_back) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}});
    Frame const frame = frame_of({32, 8}, 8);
    auto const settings = ideal_settings(Mosaic::from_phase(2), Scale(8));
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame.size()));
    for (unsigned round = 0; round < 2; ++round) {
        harness.set("layout", "4");
        EXPECT_EQ(harness.push(frame), GST_FLOW_ERROR);
        EXPECT_EQ(harness.push(frame), GST_FLOW_ERROR); // and not in silence as if it were taken
        EXPECT_EQ(harness.errors(), std::vector<std::string>{"the phase is 4; give 0, 1, 2 or 3"});
        EXPECT_EQ(harness.waiting(), 0U);
        harness.set("layout", "2");
        EXPECT_EQ(harness.push(frame), GST_FLOW_OK);
        expect_output(harness.pull(), frame, settings, Output::s0);
    }
    EXPECT_TRUE(harness.errors().empty());
}

// The format of what comes out would change with the property, which is negotiated.
TEST(Element_changes, a_property_that_is_mended_after_negotiation_failed_does_too) {
    Harness harness({{"plane", "s0"}, {"layout", "2"}});
    Frame const frame = frame_of({32, 8}, 8);
    auto const settings = ideal_settings(Mosaic::from_phase(2), Scale(8));
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame.size()));
    for (auto const& [plane, output] :
         {std::pair("degree", Output::degree), std::pair("degree", Output::degree),
          std::pair("s0", Output::s0)}) {
        harness.set("plane", "angle");
        harness.set("layout", "4");
        EXPECT_NE(harness.push(frame), GST_FLOW_OK);
        EXPECT_EQ(harness.errors(), std::vector<std::string>{"the phase is 4; give 0, 1, 2 or 3"});
        harness.set("plane", plane);
        harness.set("layout", "2");
        EXPECT_EQ(harness.push(frame), GST_FLOW_OK);
        expect_output(harness.pull(), frame, settings, output);
    }
    EXPECT_TRUE(harness.errors().empty());
}

} // namespace
