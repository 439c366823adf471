/// @file
/// The element between a test's hands: caps and frames in, buffers and errors out.
#pragma once

#include "expected_outputs.hpp"
#include "veldrane_mrv/polarization/frame.hpp"

#include <cstdint>
#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace element_harness {

namespace polarization = veldrane_mrv::polarization;

using Properties = std::map<std::string, std::string>;

/// What a buffer of the element holds.
struct Received {
    /// Without padding.
    std::vector<std::uint8_t> bytes;
    GstVideoFormat format = GST_VIDEO_FORMAT_UNKNOWN;
    polarization::Size size;
    GstClockTime time = GST_CLOCK_TIME_NONE;
};

class Harness {
public:
    /// Properties as gst-launch takes them.
    explicit Harness(Properties const& properties = {});
    ~Harness();
    Harness(Harness const&) = delete;
    Harness& operator=(Harness const&) = delete;

    void set(std::string const& property, std::string const& value);
    std::string get(std::string const& property);
    GstElement* element() { return harness_->element; }

    /// Whether the element takes frames of that format and size.
    bool takes(GstVideoFormat format, polarization::Size const& size);
    /// What the element behind takes, such as "video/x-raw, format=BGRx".
    void set_behind(std::string const& caps);

    /// Pushes a frame in the format of the last caps, its rows at a stride with `padding` bytes and
    /// its first byte `before` bytes into its memory.
    GstFlowReturn push(
        polarization::Frame const& frame, std::size_t padding = 0, std::size_t before = 0);
    Received pull();
    std::size_t waiting();

    /// Texts of the errors since this was asked last; messages of other kinds are lost.
    std::vector<std::string> errors();
    /// Likewise.
    std::vector<std::string> warnings();

private:
    std::vector<std::string> texts_of(GstMessageType type);

    GstHarness* harness_;
    GstBus* bus_;
    GstVideoFormat format_ = GST_VIDEO_FORMAT_UNKNOWN;
    GstClockTime time_ = 0;
};

/// Expects what the client layer and the pictures give.
void expect_output(
    Received const& received, polarization::Frame const& frame,
    polarization::Settings const& settings, expected_outputs::Output output,
    polarization::Mode mode = polarization::Mode::fast, bool is_masked = true);

} // namespace element_harness
