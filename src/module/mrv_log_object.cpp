#include "module/mrv_log_object.hpp"

#include <dlfcn.h>

namespace {

using Get_log = void* (*)(char const* module_name, char const* log_qualifier);
using Free_log = void (*)(char const* module_name, char const* log_qualifier);

template <typename Function>
Function find_function(void* library, char const* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

} // namespace

Mrv_log_object::Mrv_log_object() {
    library_handle = dlopen("libveldrane_mrv_logger.so", RTLD_LAZY);
    if (library_handle == nullptr) {
        return;
    }
    auto const get_log = find_function<Get_log>(library_handle, "mrv_get_log");
    if (get_log == nullptr) {
        return;
    }
    log_handle = get_log(module_name.c_str(), log_qualifier.c_str());
    if (log_handle == nullptr) {
        return;
    }
    log_function = find_function<Log_function>(library_handle, "mrv_log");
    is_bound = log_function != nullptr;
}

Mrv_log_object::~Mrv_log_object() {
    if (library_handle == nullptr) {
        return;
    }
    // The two strings identify the log, so it is freed even if none was got.
    if (auto const free_log = find_function<Free_log>(library_handle, "mrv_free_log")) {
        try {
            free_log(module_name.c_str(), log_qualifier.c_str());
        } catch (...) {
            // A library in the midst of an error is not unloaded under its own feet.
            return;
        }
    }
    dlclose(library_handle);
}
