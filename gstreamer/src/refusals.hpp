/// @file
/// Why caps cannot be, in the words of a user.
#pragma once

#include "conversion_settings.hpp"

#include <gst/gst.h>
#include <string>

namespace polarization_element {

/// Of frames with such caps, where the element takes only `taken`; empty if it takes them.
std::string reason_before(GstCaps const* frames, GstCaps const* taken);

/// Of what comes out, with caps of one format, where the next element takes only `taken`; empty if
/// it takes them.
std::string reason_behind(Output output, GstCaps const* given, GstCaps const* taken);

} // namespace polarization_element
