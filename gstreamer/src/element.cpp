#include "element.hpp"

#include "frame_conversion.hpp"
#include "properties.hpp"
#include "refusals.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <cstdint>
#include <exception>
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>
#include <mutex>
#include <optional>
#include <string>

namespace polarization_element {
namespace {

using polarization::Calibration;
using polarization::Size;

constexpr char const* frames_taken = GST_VIDEO_CAPS_MAKE("{ GRAY16_LE, GRAY8 }");
constexpr char const* frames_given = GST_VIDEO_CAPS_MAKE("{ BGRx, GRAY16_LE }");

/// What the properties say, which any thread may change, with a number that changes with them.
class Shared_options {
public:
    template <class Action>
    void change(Action const& action) {
        std::lock_guard const lock{mutex_};
        action(options_);
        ++version_;
    }
    template <class Action>
    auto look(Action const& action) {
        std::lock_guard const lock{mutex_};
        return action(static_cast<Options const&>(options_), version_);
    }

private:
    std::mutex mutex_;
    Options options_;
    std::uint64_t version_ = 1;
};

/// What follows from options and caps; of the streaming thread.
struct Stream {
    /// Of the frames, by their caps.
    Size size;
    Samples samples = Samples::of_8_bits;
    /// Missing while the options are none for these frames.
    std::optional<Frame_conversion> conversion;
    /// Of the options that it was made of.
    std::uint64_t version = 0;
    /// Read once, while the file's name stays.
    std::string calibration_file;
    std::shared_ptr<Calibration const> calibration;
    /// Why caps or frames were refused, until some are taken: sources offer theirs again and again.
    std::string refusal;
    /// Depth that samples were told to exceed, 0 for none: a stream of such frames is told once.
    int exceeded_depth = 0;
};

/// GStreamer makes and frees the object as C has it; what has constructors is apart.
struct Parts {
    Shared_options options;
    Stream stream;
};

struct Element {
    GstVideoFilter filter;
    Parts* parts;
};

struct Element_class {
    GstVideoFilterClass filter;
};

template <class Object>
Parts& parts_of(Object* object) {
    return *reinterpret_cast<Element*>(object)->parts;
}

GstBaseTransformClass* parent_class() {
    return static_cast<GstBaseTransformClass*>(g_type_class_peek(GST_TYPE_VIDEO_FILTER));
}

template <class Object>
void post(Object* object, GstMessageType type, GQuark domain, int code, std::string const& line) {
    gst_element_message_full(
        reinterpret_cast<GstElement*>(object), type, domain, code, g_strdup(line.c_str()), nullptr,
        "element.cpp", "polarization", 0);
}

template <class Object>
void tell(Object* object, GQuark domain, int code, std::string const& line) {
    std::string& refusal = parts_of(object).stream.refusal;
    if (refusal != line) {
        refusal = line;
        post(object, GST_MESSAGE_ERROR, domain, code, line);
    }
}

// Nothing if there is no reason.
void tell_negotiation(GstBaseTransform* base, std::string const& reason) {
    if (!reason.empty()) {
        tell(base, GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION, reason);
    }
}

// Whether `action` ended without an exception; none of these may reach C.
template <class Object, class Action>
bool succeeds(Object* object, Action const& action) {
    try {
        action();
        return true;
    } catch (polarization::File_error const& error) {
        tell(object, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ, error.what());
    } catch (polarization::Argument_error const& error) {
        tell(object, GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION, error.what());
    } catch (std::exception const&) {
        tell(
            object, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT,
            "the memory is too small for the frames; give smaller frames");
    }
    return false;
}

GstVideoFormat format_of(Output output) {
    return is_picture(output) ? GST_VIDEO_FORMAT_BGRx : GST_VIDEO_FORMAT_GRAY16_LE;
}

Output chosen_output(Parts& parts) {
    return parts.options.look([](Options const& options, auto) { return options.output; });
}

// By the options as they are now.
void renew_conversion(Parts& parts) {
    Stream& stream = parts.stream;
    stream.conversion.reset(); // its memory is free for the new one
    Options options;
    std::uint64_t version = 0;
    parts.options.look([&](Options const& current, std::uint64_t current_version) {
        options = current;
        version = current_version;
    });
    if (options.calibration != stream.calibration_file) {
        stream.calibration.reset();
        stream.calibration_file.clear();
        if (!options.calibration.empty()) {
            stream.calibration = std::make_shared<Calibration const>(
                polarization::load_calibration(options.calibration));
            stream.calibration_file = options.calibration;
        }
    }
    stream.conversion.emplace(options, stream.calibration, stream.size, stream.samples);
    stream.version = version;
    stream.refusal.clear();
}

gboolean start(GstBaseTransform* base) {
    parts_of(base).stream.refusal.clear(); // each attempt is told its reason
    return succeeds(base, [] { polarization::check(polarization::processor_features()); });
}

gboolean stop(GstBaseTransform* base) {
    parts_of(base).stream = {};
    return TRUE;
}

char const* given_format(Parts& parts) {
    return gst_video_format_to_string(format_of(chosen_output(parts)));
}

// Everything but the format is the same on both sides. Whether what is behind takes the format
// shows when caps are set, where the reason can be told; frames are accepted in any case.
GstCaps* transform_caps(
    GstBaseTransform* base, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
    GstCaps* const formats = gst_caps_from_string(frames_taken);
    if (direction == GST_PAD_SINK) {
        gst_caps_set_simple(
            formats, "format", G_TYPE_STRING, given_format(parts_of(base)), nullptr);
    }
    GstStructure const* const with_format = gst_caps_get_structure(formats, 0);
    GstCaps* result = gst_caps_copy(caps);
    for (unsigned index = 0; index < gst_caps_get_size(result); ++index) {
        GstStructure* const structure = gst_caps_get_structure(result, index);
        gst_structure_set_value(
            structure, "format", gst_structure_get_value(with_format, "format"));
        gst_structure_remove_fields(structure, "colorimetry", "chroma-site", nullptr);
    }
    gst_caps_unref(formats);
    result = gst_caps_simplify(result);
    if (filter != nullptr) {
        GstCaps* const all = result;
        result = gst_caps_intersect_full(filter, all, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(all);
    }
    return result;
}

// Why nothing behind takes what comes out of frames with such caps, if that is so.
void explain_mismatch(GstBaseTransform* base, GstCaps* frames) {
    GstCaps* const given = transform_caps(base, GST_PAD_SINK, frames, nullptr);
    GstCaps* const taken = gst_pad_peer_query_caps(base->srcpad, nullptr);
    tell_negotiation(base, reason_behind(chosen_output(parts_of(base)), given, taken));
    gst_caps_unref(given);
    gst_caps_unref(taken);
}

// The pad refuses caps before the element sees them: the reason has to be told still earlier.
GstPadProbeReturn explain_refusal(GstPad* pad, GstPadProbeInfo* info, void* base) {
    GstEvent* const event = gst_pad_probe_info_get_event(info);
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps* caps = nullptr;
        gst_event_parse_caps(event, &caps);
        GstCaps* const taken = gst_pad_get_pad_template_caps(pad);
        tell_negotiation(static_cast<GstBaseTransform*>(base), reason_before(caps, taken));
        gst_caps_unref(taken);
    }
    return GST_PAD_PROBE_OK;
}

gboolean set_info(GstVideoFilter* filter, GstCaps*, GstVideoInfo* in, GstCaps*, GstVideoInfo*) {
    Parts& parts = parts_of(filter);
    parts.stream.size = {
        static_cast<std::size_t>(GST_VIDEO_INFO_WIDTH(in)),
        static_cast<std::size_t>(GST_VIDEO_INFO_HEIGHT(in))};
    bool const is_narrow = GST_VIDEO_INFO_FORMAT(in) == GST_VIDEO_FORMAT_GRAY8;
    parts.stream.samples = is_narrow ? Samples::of_8_bits : Samples::of_16_bits;
    return succeeds(filter, [&] { renew_conversion(parts); });
}

gboolean sink_event(GstBaseTransform* base, GstEvent* event) {
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return parent_class()->sink_event(base, event);
    }
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    gst_caps_ref(caps); // the event is given away
    gboolean const is_done = parent_class()->sink_event(base, event);
    if (is_done == FALSE) {
        explain_mismatch(base, caps);
    } else {
        parts_of(base).stream.refusal.clear(); // caps as before need no new conversion
    }
    gst_caps_unref(caps);
    return is_done;
}

// Negotiates anew if need be, as after a change of properties.
GstFlowReturn submit_input_buffer(GstBaseTransform* base, gboolean is_discont, GstBuffer* input) {
    GstFlowReturn const flow = parent_class()->submit_input_buffer(base, is_discont, input);
    GstCaps* const caps =
        flow == GST_FLOW_NOT_NEGOTIATED ? gst_pad_get_current_caps(base->sinkpad) : nullptr;
    if (caps != nullptr) {
        explain_mismatch(base, caps);
        gst_caps_unref(caps);
    }
    return flow;
}

template <class Byte>
Rows<Byte> rows_of(GstVideoFrame const* frame) {
    return {
        static_cast<Byte*>(GST_VIDEO_FRAME_PLANE_DATA(frame, 0)),
        GST_VIDEO_FRAME_PLANE_STRIDE(frame, 0)};
}

// Once for each depth that is asked for.
void warn_of_excess(GstVideoFilter* filter, Stream& stream) {
    unsigned const largest = stream.conversion->largest_excess();
    polarization::Scale const& scale = stream.conversion->scale();
    if (largest == 0 || stream.exceeded_depth == scale.bit_depth()) {
        return;
    }
    stream.exceeded_depth = scale.bit_depth();
    post(
        filter, GST_MESSAGE_WARNING, GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT,
        "the frames have samples up to " + std::to_string(largest) + ", above the full scale " +
            std::to_string(scale.largest_sample()) +
            " of bit-depth=" + std::to_string(scale.bit_depth()) +
            "; the total intensity may clip; give a larger bit-depth, 16 for samples at the upper "
            "end of 16 bits");
}

GstFlowReturn transform_frame(GstVideoFilter* filter, GstVideoFrame* in, GstVideoFrame* out) {
    Parts& parts = parts_of(filter);
    auto& conversion = parts.stream.conversion;
    auto const fits = [out](Output output) {
        return format_of(output) == GST_VIDEO_FRAME_FORMAT(out);
    };
    // A change of the format waits for the negotiation that it has asked for.
    bool const is_due = parts.options.look([&](Options const& options, std::uint64_t version) {
        return (!conversion || version != parts.stream.version) && fits(options.output);
    });
    GstFlowReturn flow = GST_FLOW_ERROR;
    succeeds(filter, [&] {
        if (is_due) {
            renew_conversion(parts);
        }
        // Both may have changed while they were negotiated.
        if (!conversion || !fits(conversion->output())) {
            flow = GST_BASE_TRANSFORM_FLOW_DROPPED;
            return;
        }
        (*conversion)(rows_of<std::byte const>(in), rows_of<std::byte>(out));
        warn_of_excess(filter, parts.stream);
        flow = GST_FLOW_OK;
    });
    return flow;
}

void set_property(GObject* object, guint id, GValue const* value, GParamSpec* parameter) {
    bool is_known = false;
    parts_of(object).options.change(
        [&](Options& options) { is_known = set_option(options, id, value); });
    if (!is_known) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, parameter);
    }
    gst_base_transform_reconfigure_src(reinterpret_cast<GstBaseTransform*>(object));
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* parameter) {
    bool const is_known = parts_of(object).options.look(
        [&](Options const& options, auto) { return get_option(options, id, value); });
    if (!is_known) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, parameter);
    }
}

void finalize(GObject* object) {
    delete reinterpret_cast<Element*>(object)->parts;
    static_cast<GObjectClass*>(g_type_class_peek(GST_TYPE_VIDEO_FILTER))->finalize(object);
}

void add_pad(
    GstElementClass* element_class, char const* name, GstPadDirection direction,
    char const* formats) {
    GstCaps* const caps = gst_caps_from_string(formats);
    gst_element_class_add_pad_template(
        element_class, gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);
}

void initialise_class(void* type_class, void*) {
    auto* const object_class = static_cast<GObjectClass*>(type_class);
    object_class->set_property = set_property;
    object_class->get_property = get_property;
    object_class->finalize = finalize;
    install_properties(object_class);

    auto* const element_class = static_cast<GstElementClass*>(type_class);
    gst_element_class_set_static_metadata(
        element_class, "Polarisation planes and pictures", "Filter/Converter/Video",
        "Turns raw frames of polarisation image sensors (2x2 mosaic of linear polarisers) into "
        "planes of intensity, linear Stokes quantities, angle and degree of polarisation, or into "
        "pictures of them",
        "Veldrane");
    add_pad(element_class, "sink", GST_PAD_SINK, frames_taken);
    add_pad(element_class, "src", GST_PAD_SRC, frames_given);

    auto* const transform_class = static_cast<GstBaseTransformClass*>(type_class);
    transform_class->start = start;
    transform_class->stop = stop;
    transform_class->transform_caps = transform_caps;
    transform_class->sink_event = sink_event;
    transform_class->submit_input_buffer = submit_input_buffer;

    auto* const filter_class = static_cast<GstVideoFilterClass*>(type_class);
    filter_class->set_info = set_info;
    filter_class->transform_frame = transform_frame;
}

void initialise(GTypeInstance* instance, void*) {
    reinterpret_cast<Element*>(instance)->parts = new Parts;
    auto* const base = reinterpret_cast<GstBaseTransform*>(instance);
    gst_pad_add_probe(
        base->sinkpad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, explain_refusal, base, nullptr);
}

} // namespace

GType element_type() {
    static GType const type = g_type_register_static_simple(
        GST_TYPE_VIDEO_FILTER, "VeldranePolarization", sizeof(Element_class), initialise_class,
        sizeof(Element), initialise, GTypeFlags{});
    return type;
}

} // namespace polarization_element
