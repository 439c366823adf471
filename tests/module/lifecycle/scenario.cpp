/// @file
/// A client of the module that carries out the steps named on its command line, one after another,
/// and writes what it does and what the module calls to standard output. A step may have a number:
/// "lock_fails=35".

#include "counted_allocations.hpp"
#include "event_log.hpp"
#include "frame.hpp"
#include "observed_module.hpp"
#include "threads_step.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <new>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace lifecycle {
namespace {

void call(char const* name, int (*function)()) {
    // Outlives the handlers, in which an exception's own memory is freed.
    Counted_scope const counted;
    try {
        note("%s returned %d", name, function());
    } catch (std::system_error const& error) {
        note("%s threw std::system_error, error %d", name, error.code().value());
    } catch (std::bad_alloc const&) {
        note("%s threw std::bad_alloc", name);
    } catch (std::runtime_error const& error) {
        note("%s threw std::runtime_error: %s", name, error.what());
    } catch (int number) {
        note("%s threw the number %d", name, number);
    }
}

void initialize(int) {
    call("initialize", the_module().initialize);
}

void terminate(int) {
    call("terminate", the_module().terminate);
}

void transform(int) {
    static Frame_planes first{};
    static bool is_first = true;
    Frame_planes planes{};
    int result = 0;
    {
        Counted_scope const counted;
        result = compute(the_module(), planes);
    }
    if (is_first) {
        first = planes;
        is_first = false;
    }
    bool const is_full = std::ranges::count(planes.s0, not_written) == 0;
    note(
        "transform returned %d, %s, %s", result, is_full ? "every pixel" : "some pixels",
        planes == first ? "the same planes" : "other planes");
}

char const* pick(void const* found, void const* expected, char const* name, char const* other) {
    return found == nullptr ? "null" : found == expected ? name : other;
}

// The object that a client sees, and the memory that the module has on the heap.
void state(int) {
    Logger const& logger = *the_module().logger;
    Mrv_log_object const* const record = logger.object.get();
    if (record == nullptr) {
        note("state: count %d, no record, %d allocations", logger.count, live_allocations());
        return;
    }
    void* const library = logging_library_handle();
    void const* const log = library == nullptr ? nullptr : dlsym(library, "the_only_log");
    void const* const log_function = library == nullptr ? nullptr : dlsym(library, "mrv_log");
    note(
        "state: count %d, library %s, log %s, function %s, %s", logger.count,
        pick(record->library_handle, library, "open", "strange"),
        pick(record->log_handle, log, "got", "strange"),
        pick(
            reinterpret_cast<void const*>(record->log_function), log_function, "mrv_log",
            "strange"),
        record->is_bound ? "bound" : "not bound");
}

void names(int) {
    Mrv_log_object const& record = *the_module().logger->object;
    note(
        "names: \"%s\" of %zu, \"%s\" of %zu", record.module_name.c_str(),
        record.module_name.size(), record.log_qualifier.c_str(), record.log_qualifier.size());
}

template <typename Field>
void note_field(void const* object, char const* name, Field const& field) {
    auto const offset = reinterpret_cast<char const*>(&field) - static_cast<char const*>(object);
    note("%s at %td, %zu bytes", name, offset, sizeof field);
}

void layout(int) {
    Logger const& logger = *the_module().logger;
    note_field(&logger, "logger", logger);
    note_field(&logger, "object", logger.object);
    note_field(&logger, "count", logger.count);
    note_field(&logger, "lock", logger.lock);
    Mrv_log_object const& record = *logger.object;
    note_field(&record, "library_handle", record.library_handle);
    note_field(&record, "log_handle", record.log_handle);
    note_field(&record, "log_function", record.log_function);
    note_field(&record, "is_bound", record.is_bound);
    note_field(&record, "module_name", record.module_name);
    note_field(&record, "log_qualifier", record.log_qualifier);
}

struct Step {
    std::string_view name;
    void (*run)(int number);
};

constexpr Step steps[] = {
    {"load", [](int) { load_module(); }},
    {"unload",
     [](int) {
         unload_module();
         note("%d allocations", live_allocations());
     }},
    {"initialize", initialize},
    {"terminate", terminate},
    {"transform", transform},
    {"state", state},
    {"names", names},
    {"layout", layout},
    {"set_count", [](int number) { the_module().logger->count = number; }},
    {"lock_fails", let_next_lock_fail},
    {"allocation_fails", let_allocation_fail},
    {"watch_logger", [](int) { note_logger_during_calls(); }},
    {"logging_library",
     [](int) {
         note("logging library %s", logging_library_is_loaded() ? "in memory" : "not in memory");
     }},
    {"threads", initialize_and_terminate_in_threads},
    // Handlers run in the reverse order: before "load", this is after the module's own.
    {"allocations_at_exit",
     [](int) { std::atexit([] { note("at exit: %d allocations", live_allocations()); }); }},
};

void run(std::string_view text) {
    auto const name = text.substr(0, text.find('='));
    auto const* const step = std::ranges::find(steps, name, &Step::name);
    if (step == std::end(steps)) {
        give_up("there is no such step", text.data());
    }
    step->run(name == text ? 0 : std::atoi(text.data() + name.size() + 1));
}

} // namespace
} // namespace lifecycle

int main(int argument_count, char** arguments) {
    for (char const* step :
         std::span(arguments, static_cast<std::size_t>(argument_count)).subspan(1)) {
        lifecycle::run(step);
    }
}
