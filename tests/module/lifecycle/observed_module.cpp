#include "observed_module.hpp"

#include "event_log.hpp"
#include "redirection.hpp"

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>
#include <string_view>

namespace lifecycle {
namespace {

Module module{};
std::atomic<int> lock_error = 0;
bool notes_logger = false;
bool counts_only = false;
Call_counts counts{};
std::atomic<bool> call_is_under_way = false;

// Written and read by calls that the module makes under its lock, so it needs none of its own: a
// call outside of the lock shows in ThreadSanitizer.
void* opened_library = nullptr;

void* try_lock(void* is_held) {
    auto* const lock = module.logger->lock.native_handle();
    int const result = pthread_mutex_trylock(lock);
    *static_cast<bool*>(is_held) = result == EBUSY;
    if (result == 0) {
        pthread_mutex_unlock(lock);
    }
    return nullptr;
}

// Tried from a thread that certainly does not hold it: the holder's own attempt would succeed if
// the mutex were a recursive one. std::thread would allocate with operator new.
bool lock_is_held() {
    bool is_held = false;
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, try_lock, &is_held) != 0 ||
        pthread_join(thread, nullptr) != 0) {
        give_up("cannot start a thread", "to try the lock");
    }
    return is_held;
}

char const* lock_remark() {
    return lock_is_held() ? "" : ", without the lock";
}

char const* handle_remark(void* handle) {
    return handle == opened_library ? "" : ", on another handle";
}

void count(std::atomic<std::size_t>& calls) {
    calls.fetch_add(1, std::memory_order_relaxed);
}

// One call of the module to the outside, from its beginning to its end. All atomics here are
// relaxed: any other order would order the threads by itself and hide a missing lock from
// ThreadSanitizer.
class Call {
public:
    Call() {
        if (call_is_under_way.exchange(true, std::memory_order_relaxed)) {
            count(counts.overlapping);
        }
    }
    ~Call() { call_is_under_way.store(false, std::memory_order_relaxed); }
    Call(Call const&) = delete;
    Call& operator=(Call const&) = delete;
};

void* recorded_dlopen(char const* name, int mode) {
    Call const call;
    opened_library = dlopen(name, mode);
    if (counts_only) {
        count(counts.opened);
    } else if (mode == RTLD_LAZY) {
        note("dlopen(\"%s\", RTLD_LAZY)%s", name, lock_remark());
    } else {
        note("dlopen(\"%s\", mode %d)%s", name, mode, lock_remark());
    }
    return opened_library;
}

void* recorded_dlsym(void* handle, char const* name) {
    Call const call;
    if (!counts_only) {
        note("dlsym(\"%s\")%s%s", name, handle_remark(handle), lock_remark());
    }
    return dlsym(handle, name);
}

int recorded_dlclose(void* handle) {
    Call const call;
    if (counts_only) {
        count(counts.closed);
    } else {
        note("dlclose%s%s", handle_remark(handle), lock_remark());
    }
    return dlclose(handle);
}

int recorded_lock(pthread_mutex_t* mutex) {
    if (mutex != module.logger->lock.native_handle()) {
        note("lock of another mutex");
        return pthread_mutex_lock(mutex);
    }
    if (int const error = lock_error.exchange(0, std::memory_order_relaxed); error != 0) {
        note("lock fails with %d", error);
        return error;
    }
    int const result = pthread_mutex_lock(mutex);
    if (!counts_only) {
        note("lock");
    }
    return result;
}

int recorded_unlock(pthread_mutex_t* mutex) {
    if (!counts_only) {
        note("unlock");
    }
    return pthread_mutex_unlock(mutex);
}

template <typename Function>
void redirect_to(char const* name, Function* replacement) {
    redirect(module.handle, name, reinterpret_cast<void*>(replacement));
}

template <typename Symbol>
void find(Symbol*& symbol, char const* name) {
    symbol = reinterpret_cast<Symbol*>(dlsym(module.handle, name));
    if (symbol == nullptr) {
        give_up("the module does not export", name);
    }
}

} // namespace

Module const& load_module() {
    module.handle = dlopen(MODULE_FILE, RTLD_NOW | RTLD_LOCAL);
    if (module.handle == nullptr) {
        give_up("cannot load the module", dlerror());
    }
    find(module.initialize, "qn_polarization_processor_vector_avx2_module_initialize");
    find(module.terminate, "qn_polarization_processor_vector_avx2_module_terminate");
    find(module.transform, "qn_polarization_processor_transform_vector_avx2");
    find(module.logger, "logger");
    redirect_to("dlopen", recorded_dlopen);
    redirect_to("dlsym", recorded_dlsym);
    redirect_to("dlclose", recorded_dlclose);
    redirect_to("pthread_mutex_lock", recorded_lock);
    redirect_to("pthread_mutex_unlock", recorded_unlock);
    return module;
}

Module const& the_module() {
    if (module.handle == nullptr) {
        give_up("a step needs the module", "load it first");
    }
    return module;
}

void unload_module() {
    dlclose(the_module().handle);
    bool const stays = dlopen(MODULE_FILE, RTLD_LAZY | RTLD_NOLOAD) != nullptr;
    note("module %s", stays ? "still loaded" : "unloaded");
}

void let_next_lock_fail(int error) {
    lock_error = error;
}

void note_logger_during_calls() {
    notes_logger = true;
}

Call_counts const& count_calls_only() {
    counts_only = true;
    return counts;
}

void* logging_library_handle() {
    return opened_library;
}

bool logging_library_is_loaded() {
    void* const handle = dlopen("libveldrane_mrv_logger.so", RTLD_LAZY | RTLD_NOLOAD);
    return handle != nullptr && dlclose(handle) == 0;
}

} // namespace lifecycle

// Called by the logging library.
extern "C" [[gnu::visibility("default")]] void logging_library_called(
    char const* function, char const* module_name, char const* log_qualifier) {
    using namespace lifecycle;
    Call const call;
    if (counts_only) {
        count(std::string_view(function) == "mrv_get_log" ? counts.got : counts.freed);
        return;
    }
    note("%s(\"%s\", \"%s\")%s", function, module_name, log_qualifier, lock_remark());
    if (notes_logger) {
        bool const holds_record = module.logger->object != nullptr;
        note(
            "  meanwhile count %d, %s", module.logger->count,
            holds_record ? "record" : "no record");
    }
}
