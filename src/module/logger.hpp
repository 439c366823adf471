#pragma once

#include "module/mrv_log_object.hpp"
#include "module/unique_ptr_reference_counted.hpp"

/// The module's only global state, exported under its plain name. The transform never touches it.
[[gnu::visibility("default")]] extern unique_ptr_reference_counted<Mrv_log_object> logger;
