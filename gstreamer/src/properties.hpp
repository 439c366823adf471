/// @file
/// The element's properties: their texts and ranges, and the way into and out of `Options`.
#pragma once

#include "conversion_settings.hpp"

#include <glib-object.h>

namespace polarization_element {

/// Adds the properties to a class, whose `set_property` and `get_property` come before.
void install_properties(GObjectClass* object_class);

/// @param id as the class's functions get it; false if it is none
bool set_option(Options& options, unsigned id, GValue const* value);
bool get_option(Options const& options, unsigned id, GValue* value);

} // namespace polarization_element
