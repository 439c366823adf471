/// @file
/// The element `polarization` of GStreamer.
#pragma once

#include <glib-object.h>

namespace polarization_element {

/// A GstVideoFilter; registered with the first call.
GType element_type();

} // namespace polarization_element
