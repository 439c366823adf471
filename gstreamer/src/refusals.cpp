#include "refusals.hpp"

namespace polarization_element {
namespace {

// As a user knows it: "RGB", "image/jpeg".
std::string format_in(GstCaps const* caps) {
    GstStructure const* const structure = gst_caps_get_structure(caps, 0);
    char const* const format = gst_structure_get_string(structure, "format");
    return format == nullptr ? gst_structure_get_name(structure) : format;
}

bool takes_format(GstCaps const* taken, std::string const& format) {
    GstCaps* const caps =
        gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, format.c_str(), nullptr);
    bool const does = gst_caps_can_intersect(taken, caps) != FALSE;
    gst_caps_unref(caps);
    return does;
}

} // namespace

std::string reason_before(GstCaps const* frames, GstCaps const* taken) {
    if (gst_caps_can_intersect(frames, taken) != FALSE) {
        return {};
    }
    return "the frames are " + format_in(frames) +
           "; give raw frames as the sensor has them, in GRAY8 or GRAY16_LE";
}

std::string reason_behind(Output output, GstCaps const* given, GstCaps const* taken) {
    if (gst_caps_can_intersect(given, taken) != FALSE) {
        return {};
    }
    if (takes_format(taken, format_in(given))) {
        return "the frames have a size or rate that the next element does not take; change the "
               "caps behind the element, or put videoscale or videorate there";
    }
    return is_picture(output)
               ? "plane is a picture, in BGRx, which the next element does not take; put "
                 "videoconvert before it, or give plane=s0, s1, s2, azimuth or dolp for GRAY16_LE"
               : "plane is one of 16-bit numbers, in GRAY16_LE, which the next element does not "
                 "take; put videoconvert before it, or give plane=angle, degree or intensity for "
                 "BGRx";
}

} // namespace polarization_element
