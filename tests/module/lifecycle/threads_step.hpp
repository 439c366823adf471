#pragma once

namespace lifecycle {

/// Eight threads that initialise and terminate the module `rounds` times each, and a ninth that
/// runs the transform as long as they do. Calls are counted and compared, not written out.
void initialize_and_terminate_in_threads(int rounds);

} // namespace lifecycle
