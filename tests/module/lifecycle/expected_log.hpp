/// @file
/// The words in which a scenario's log speaks, to put expected logs together from.

#pragma once

#include <string>

namespace lifecycle {

inline std::string look_up(std::string const& function) {
    return "dlsym(\"" + function + "\")\n";
}

inline std::string const open = "dlopen(\"libveldrane_mrv_logger.so\", RTLD_LAZY)\n";
inline std::string const close = "dlclose\n";
inline std::string const get_log =
    "mrv_get_log(\"VELDRANE_MRV_POLARIZATION_PROCESSOR_VECTOR_AVX2\", \"\")\n";
inline std::string const free_log =
    "mrv_free_log(\"VELDRANE_MRV_POLARIZATION_PROCESSOR_VECTOR_AVX2\", \"\")\n";

/// What a module that is fully served does to bind, and to release.
inline std::string const full_binding =
    open + look_up("mrv_get_log") + get_log + look_up("mrv_log");
inline std::string const full_release = look_up("mrv_free_log") + free_log + close;

/// One call of the exported function that makes `calls` under the lock and returns.
inline std::string initialize(std::string const& calls = "") {
    return "lock\n" + calls + "unlock\ninitialize returned 0\n";
}
inline std::string terminate(std::string const& calls = "") {
    return "lock\n" + calls + "unlock\nterminate returned 0\n";
}

/// `calls` as they are remarked upon if nobody holds the lock.
inline std::string without_lock(std::string const& calls) {
    std::string result;
    for (char const character : calls) {
        result += character == '\n' ? ", without the lock\n" : std::string(1, character);
    }
    return result;
}

/// The "state" step, by count.
inline std::string idle(int count = 0) {
    return "state: count " + std::to_string(count) + ", no record, 0 allocations\n";
}
inline std::string held(int count, std::string const& record) {
    return "state: count " + std::to_string(count) + ", " + record + "\n";
}
inline std::string bound(int count) {
    return held(count, "library open, log got, function mrv_log, bound");
}

} // namespace lifecycle
