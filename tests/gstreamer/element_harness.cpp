#include "element_harness.hpp"

#include <cstring>
#include <gtest/gtest.h>

namespace element_harness {

Harness::Harness(Properties const& properties)
    : harness_{gst_harness_new("polarization")}, bus_{gst_bus_new()} {
    gst_element_set_bus(harness_->element, bus_);
    for (auto const& [name, value] : properties) {
        set(name, value);
    }
}

Harness::~Harness() {
    gst_element_set_bus(harness_->element, nullptr);
    gst_harness_teardown(harness_);
    gst_object_unref(bus_);
}

void Harness::set(std::string const& property, std::string const& value) {
    gst_util_set_object_arg(G_OBJECT(harness_->element), property.c_str(), value.c_str());
}

std::string Harness::get(std::string const& property) {
    GValue value = G_VALUE_INIT;
    g_object_get_property(G_OBJECT(harness_->element), property.c_str(), &value);
    char* const text =
        G_VALUE_HOLDS_STRING(&value) ? g_value_dup_string(&value) : gst_value_serialize(&value);
    std::string result = text == nullptr ? "" : text;
    g_free(text);
    g_value_unset(&value);
    return result;
}

bool Harness::takes(GstVideoFormat format, polarization::Size const& size) {
    format_ = format;
    GstCaps* const caps = gst_caps_new_simple(
        "video/x-raw", "format", G_TYPE_STRING, gst_video_format_to_string(format), "width",
        G_TYPE_INT, static_cast<int>(size.width), "height", G_TYPE_INT,
        static_cast<int>(size.height), "framerate", GST_TYPE_FRACTION, 30, 1, nullptr);
    // Not the function of the harness, which ends the program where caps are refused.
    gst_pad_push_event(harness_->srcpad, gst_event_new_stream_start("frames"));
    gst_pad_push_event(harness_->srcpad, gst_event_new_caps(caps));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(harness_->srcpad, gst_event_new_segment(&segment));
    // The pad that pushes keeps refused caps too, the element's does not.
    GstPad* const pad = gst_element_get_static_pad(harness_->element, "sink");
    GstCaps* current = gst_pad_get_current_caps(pad);
    bool const is_taken = current != nullptr && gst_caps_is_equal(current, caps) != FALSE;
    gst_clear_caps(&current);
    gst_object_unref(pad);
    gst_caps_unref(caps);
    return is_taken;
}

void Harness::set_behind(std::string const& caps) {
    gst_harness_set_sink_caps_str(harness_, caps.c_str());
}

GstFlowReturn Harness::push(
    polarization::Frame const& frame, std::size_t padding, std::size_t before) {
    std::size_t const sample_bytes = format_ == GST_VIDEO_FORMAT_GRAY8 ? 1 : 2;
    std::size_t const stride = frame.width * sample_bytes + padding;
    std::vector<std::uint8_t> bytes(before + stride * frame.height, 0x5A);
    for (std::size_t index = 0; index < frame.samples.size(); ++index) {
        std::memcpy(
            bytes.data() + before + index / frame.width * stride +
                index % frame.width * sample_bytes,
            &frame.samples[index], sample_bytes);
    }
    GstBuffer* const buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
    gsize offsets[GST_VIDEO_MAX_PLANES] = {before};
    int strides[GST_VIDEO_MAX_PLANES] = {static_cast<int>(stride)};
    gst_buffer_add_video_meta_full(
        buffer, GST_VIDEO_FRAME_FLAG_NONE, format_, static_cast<guint>(frame.width),
        static_cast<guint>(frame.height), 1, offsets, strides);
    GST_BUFFER_PTS(buffer) = time_;
    time_ += GST_SECOND / 30;
    return gst_harness_push(harness_, buffer);
}

Received Harness::pull() {
    GstBuffer* const buffer = gst_harness_try_pull(harness_);
    if (buffer == nullptr) {
        ADD_FAILURE() << "no buffer";
        return {};
    }
    GstCaps* const caps = gst_pad_get_current_caps(harness_->sinkpad);
    GstVideoInfo info;
    GstVideoFrame frame;
    Received received;
    if (gst_video_info_from_caps(&info, caps) &&
        gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
        received.format = GST_VIDEO_INFO_FORMAT(&info);
        received.size = {
            static_cast<std::size_t>(GST_VIDEO_INFO_WIDTH(&info)),
            static_cast<std::size_t>(GST_VIDEO_INFO_HEIGHT(&info))};
        received.time = GST_BUFFER_PTS(buffer);
        auto const row_bytes =
            received.size.width * static_cast<std::size_t>(GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, 0));
        auto const* row = static_cast<std::uint8_t const*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
        for (std::size_t number = 0; number < received.size.height; ++number) {
            received.bytes.insert(received.bytes.end(), row, row + row_bytes);
            row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
        }
        gst_video_frame_unmap(&frame);
    }
    gst_caps_unref(caps);
    gst_buffer_unref(buffer);
    return received;
}

std::size_t Harness::waiting() {
    return gst_harness_buffers_in_queue(harness_);
}

std::vector<std::string> Harness::errors() {
    return texts_of(GST_MESSAGE_ERROR);
}

std::vector<std::string> Harness::warnings() {
    return texts_of(GST_MESSAGE_WARNING);
}

std::vector<std::string> Harness::texts_of(GstMessageType type) {
    std::vector<std::string> texts;
    while (GstMessage* const message = gst_bus_pop_filtered(bus_, type)) {
        GError* error = nullptr;
        auto* const parse =
            type == GST_MESSAGE_ERROR ? gst_message_parse_error : gst_message_parse_warning;
        parse(message, &error, nullptr);
        texts.emplace_back(error->message);
        g_clear_error(&error);
        gst_message_unref(message);
    }
    return texts;
}

void expect_output(
    Received const& received, polarization::Frame const& frame,
    polarization::Settings const& settings, expected_outputs::Output output,
    polarization::Mode mode, bool is_masked) {
    EXPECT_EQ(
        received.format, polarization_element::is_picture(output) ? GST_VIDEO_FORMAT_BGRx
                                                                  : GST_VIDEO_FORMAT_GRAY16_LE);
    EXPECT_EQ(received.size, frame.size());
    EXPECT_TRUE(
        received.bytes == expected_outputs::bytes_of(frame, settings, output, mode, is_masked));
}

} // namespace element_harness
