/// @file
/// Stands in for the logging library. Built once per behaviour; each build reports every call of
/// its functions to the program that loaded it.

#include <stdexcept>

/// Defined by the program.
extern "C" void logging_library_called(
    char const* function, char const* module_name, char const* log_qualifier);

namespace {

enum class Behaviour { works, returns_null, throws_exception, throws_number };

template <Behaviour behaviour>
void misbehave() {
    if constexpr (behaviour == Behaviour::throws_exception) {
        throw std::runtime_error("the log is broken");
    }
    if constexpr (behaviour == Behaviour::throws_number) {
        throw 7;
    }
}

} // namespace

extern "C" {

[[gnu::visibility("default")]] extern int the_only_log;
int the_only_log = 0;

#ifdef GET_LOG
[[gnu::visibility("default")]] void* mrv_get_log(
    char const* module_name, char const* log_qualifier) {
    constexpr Behaviour behaviour = Behaviour::GET_LOG;
    logging_library_called("mrv_get_log", module_name, log_qualifier);
    misbehave<behaviour>();
    return behaviour == Behaviour::returns_null ? nullptr : &the_only_log;
}
#endif

#ifdef FREE_LOG
[[gnu::visibility("default")]] void mrv_free_log(
    char const* module_name, char const* log_qualifier) {
    logging_library_called("mrv_free_log", module_name, log_qualifier);
    misbehave<Behaviour::FREE_LOG>();
}
#endif

#ifdef LOG
[[gnu::visibility("default")]] void mrv_log() {
    logging_library_called("mrv_log", "", "");
}
#endif
}
