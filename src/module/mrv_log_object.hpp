#pragma once

#include <string>

/// One binding to the optional logging library, libveldrane_mrv_logger.so. The constructor makes
/// the one attempt to bind, the destructor releases what there is. A binding may be partial:
/// whatever is missing leaves its field null and ends the attempt, and none of it is an error.
///
/// The order of the fields is fixed: they are reached through the exported `logger`.
struct Mrv_log_object {
    /// @throws std::bad_alloc, or what mrv_get_log throws. The logging library stays open then,
    /// since what was thrown may come from it.
    Mrv_log_object();
    ~Mrv_log_object();
    Mrv_log_object(Mrv_log_object const&) = delete;
    Mrv_log_object& operator=(Mrv_log_object const&) = delete;

    using Log_function = void (*)();

    void* library_handle = nullptr;
    void* log_handle = nullptr;
    Log_function log_function = nullptr; ///< looked up for clients of `logger`, never called here
    bool is_bound = false;               ///< all three fields above are set
    std::string module_name = "VELDRANE_MRV_POLARIZATION_PROCESSOR_VECTOR_AVX2";
    std::string log_qualifier;
};
