/// @file
/// Sends calls of one loaded library elsewhere, and leaves those of all others alone. A replacement
/// in the program's own symbols would also catch the sanitizers, which look up their interceptors
/// with dlsym before the program runs.

#pragma once

namespace lifecycle {

/// Every call from the library behind `handle` to the imported function `name` goes to
/// `replacement` from now on. Gives up if the library imports no such function.
void redirect(void* handle, char const* name, void* replacement);

} // namespace lifecycle
