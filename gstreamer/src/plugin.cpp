#include "element.hpp"

#include <gst/gst.h>

namespace {

gboolean register_elements(GstPlugin* plugin) {
    return gst_element_register(
        plugin, "polarization", GST_RANK_NONE, polarization_element::element_type());
}

} // namespace

#define PACKAGE "veldrane-mrv-polarization" // by this name the next line takes it
GST_PLUGIN_DEFINE(
    GST_VERSION_MAJOR, GST_VERSION_MINOR, veldranepolarization,
    "Frames of polarisation image sensors to polarimetric planes and pictures", register_elements,
    VELDRANE_VERSION, "Proprietary", "Veldrane MRV polarization processor", "Veldrane")
