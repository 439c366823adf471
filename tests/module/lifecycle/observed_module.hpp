/// @file
/// The library under test with its calls to the dynamic loader, to its mutex and into the logging
/// library recorded.

#pragma once

#include "module/logger.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <atomic>
#include <cstddef>

namespace lifecycle {

using Logger = decltype(logger);

/// The exported functions and the exported object, as a client finds them.
struct Module {
    void* handle;
    decltype(qn_polarization_processor_vector_avx2_module_initialize)* initialize;
    decltype(qn_polarization_processor_vector_avx2_module_terminate)* terminate;
    decltype(qn_polarization_processor_transform_vector_avx2)* transform;
    Logger* logger;
};

/// Loads the module, or finds the one that the program is linked with, and records its calls from
/// then on. A line says so if a call was made without the module's lock.
Module const& load_module();

/// The module that load_module has loaded.
Module const& the_module();

/// dlclose of the module by its client.
void unload_module();

/// The next attempt to take the module's lock fails with `error`.
void let_next_lock_fail(int error);

/// Adds to the lines of mrv_get_log and mrv_free_log what `logger` holds meanwhile.
void note_logger_during_calls();

/// Where the calls are too many to be written out.
struct Call_counts {
    std::atomic<std::size_t> opened;
    std::atomic<std::size_t> closed;
    std::atomic<std::size_t> got;
    std::atomic<std::size_t> freed;
    std::atomic<std::size_t> overlapping; ///< made while another thread's was under way
};

/// From now on calls are counted, not written.
Call_counts const& count_calls_only();

/// Opened by the latest recorded dlopen; null if that failed.
void* logging_library_handle();

/// Whether the process has the logging library in memory.
bool logging_library_is_loaded();

} // namespace lifecycle
