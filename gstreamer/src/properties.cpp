#include "properties.hpp"

#include <array>
#include <gst/gst.h>

namespace polarization_element {
namespace {

enum Property : unsigned {
    property_plane = 1,
    property_layout,
    property_bit_depth,
    property_calibration,
    property_mode,
    property_full_scale,
    property_mask,
    property_threads
};

constexpr auto flags = static_cast<GParamFlags>(
    static_cast<int>(G_PARAM_READWRITE) | static_cast<int>(G_PARAM_STATIC_STRINGS) |
    static_cast<int>(GST_PARAM_MUTABLE_PLAYING));

GEnumValue choice(Output output, char const* text, char const* name) {
    return {static_cast<int>(output), text, name};
}

GEnumValue choice(Mode_choice mode, char const* text, char const* name) {
    return {static_cast<int>(mode), text, name};
}

// GLib keeps the values for good.
GType plane_type() {
    static std::array const values{
        choice(
            Output::angle, "Picture (BGRx): angle as hue, dimmed by the degree of polarisation",
            "angle"),
        choice(Output::degree, "Picture (BGRx): degree of polarisation in colours", "degree"),
        choice(
            Output::intensity, "Picture (BGRx): total intensity S0 in grey, white at full scale",
            "intensity"),
        choice(Output::s0, "Plane (GRAY16_LE): total intensity S0", "s0"),
        choice(Output::s1, "Plane (GRAY16_LE): S1 = I(0) - I(90), negative ones as 0", "s1"),
        choice(Output::s2, "Plane (GRAY16_LE): S2 = I(45) - I(135), negative ones as 0", "s2"),
        choice(
            Output::azimuth,
            "Plane (GRAY16_LE): (angle of polarisation + 90 degrees) modulo 180 degrees, which are "
            "full scale",
            "azimuth"),
        choice(Output::dolp, "Plane (GRAY16_LE): degree of polarisation, 1 is full scale", "dolp"),
        GEnumValue{}};
    static GType const type = g_enum_register_static("VeldranePolarizationPlane", values.data());
    return type;
}

GType mode_type() {
    static std::array const values{
        choice(Mode_choice::automatic, "calibrated with a calibration, else fast", "auto"),
        choice(
            Mode_choice::fast, "One call of the processor a frame; not with calibration", "fast"),
        choice(
            Mode_choice::calibrated,
            "Every pixel through the weights of its position; those of ideal analysers without a "
            "calibration",
            "calibrated"),
        GEnumValue{}};
    static GType const type = g_enum_register_static("VeldranePolarizationMode", values.data());
    return type;
}

std::string text_of(GValue const* value) {
    char const* const text = g_value_get_string(value);
    return text == nullptr ? std::string() : std::string(text);
}

void set_text(GValue* value, std::string const& text) {
    g_value_set_string(value, text.empty() ? nullptr : text.c_str());
}

GParamSpec* number(
    char const* name, char const* title, char const* text, unsigned most, unsigned usual) {
    return g_param_spec_uint(name, title, text, 0, most, usual, flags);
}

} // namespace

void install_properties(GObjectClass* object_class) {
    Options const usual;
    auto const install = [object_class](Property id, GParamSpec* parameter) {
        g_object_class_install_property(object_class, id, parameter);
    };
    gst_type_mark_as_plugin_api(plane_type(), GstPluginAPIFlags{});
    gst_type_mark_as_plugin_api(mode_type(), GstPluginAPIFlags{});
    install(
        property_plane,
        g_param_spec_enum(
            "plane", "Plane",
            "What comes out: a picture for the eye (BGRx) or a plane of 16-bit numbers (GRAY16_LE)",
            plane_type(), static_cast<int>(usual.output), flags));
    install(
        property_layout, g_param_spec_string(
                             "layout", "Layout",
                             "Polariser angles in degrees of the top-left 2x2 cell, row by row, "
                             "such as 90,45,135,0, "
                             "or the phase, 0 to 3; required unless a calibration tells it",
                             nullptr, flags));
    install(
        property_bit_depth,
        number(
            "bit-depth", "Bit depth",
            "Significant bits of a sample, 1 to 16, 8 at most for GRAY8; 0 is 8 for GRAY8 and that "
            "of "
            "the calibration's maps for GRAY16_LE, where it is required without maps. Larger "
            "samples are warned of once; all of each frame are looked at",
            16, usual.bit_depth));
    install(
        property_calibration,
        g_param_spec_string(
            "calibration", "Calibration",
            "File of the sensor's calibration, as `veldrane-polarize calibrate` writes it", nullptr,
            flags));
    install(
        property_mode, g_param_spec_enum(
                           "mode", "Mode", "How pixels are computed", mode_type(),
                           static_cast<int>(usual.mode), flags));
    install(
        property_full_scale,
        number(
            "full-scale", "Full scale",
            "N of the 16-bit planes, 1 to 65535: 180 degrees of azimuth, a degree of 1, and an S0 "
            "of "
            "2 (2^B - 1) samples of B bits; 2^B - 1 keeps S0, S1, S2 in sample units. 0 is 65535 "
            "with S0, S1, S2 scaled",
            65535, usual.full_scale));
    install(
        property_mask,
        g_param_spec_boolean(
            "mask", "Mask",
            "Grey in the pictures angle and degree where a pixel is not valid: "
            "saturated; with a calibration also below dark, bad or weak as far as it "
            "tells",
            usual.is_masked ? TRUE : FALSE, flags));
    install(
        property_threads,
        number(
            "threads", "Threads",
            "Threads that share each frame, 1 to 1024; 0 is one a core. The result is the same",
            1024, usual.threads));
}

bool set_option(Options& options, unsigned id, GValue const* value) {
    switch (id) {
    case property_plane:
        options.output = static_cast<Output>(g_value_get_enum(value));
        return true;
    case property_layout:
        options.layout = text_of(value);
        return true;
    case property_bit_depth:
        options.bit_depth = g_value_get_uint(value);
        return true;
    case property_calibration:
        options.calibration = text_of(value);
        return true;
    case property_mode:
        options.mode = static_cast<Mode_choice>(g_value_get_enum(value));
        return true;
    case property_full_scale:
        options.full_scale = g_value_get_uint(value);
        return true;
    case property_mask:
        options.is_masked = g_value_get_boolean(value) != FALSE;
        return true;
    case property_threads:
        options.threads = g_value_get_uint(value);
        return true;
    default:
        return false;
    }
}

bool get_option(Options const& options, unsigned id, GValue* value) {
    switch (id) {
    case property_plane:
        g_value_set_enum(value, static_cast<int>(options.output));
        return true;
    case property_layout:
        set_text(value, options.layout);
        return true;
    case property_bit_depth:
        g_value_set_uint(value, options.bit_depth);
        return true;
    case property_calibration:
        set_text(value, options.calibration);
        return true;
    case property_mode:
        g_value_set_enum(value, static_cast<int>(options.mode));
        return true;
    case property_full_scale:
        g_value_set_uint(value, options.full_scale);
        return true;
    case property_mask:
        g_value_set_boolean(value, options.is_masked ? TRUE : FALSE);
        return true;
    case property_threads:
        g_value_set_uint(value, options.threads);
        return true;
    default:
        return false;
    }
}

} // namespace polarization_element
