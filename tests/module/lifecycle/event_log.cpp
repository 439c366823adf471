#include "event_log.hpp"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace lifecycle {

void note(char const* format, ...) {
    std::array<char, 400> line{};
    std::va_list values;
    va_start(values, format);
    int const wanted = std::vsnprintf(line.data(), line.size() - 1, format, values);
    va_end(values);
    std::size_t const length = std::min(static_cast<std::size_t>(wanted), line.size() - 2);
    line[length] = '\n';
    if (write(STDOUT_FILENO, line.data(), length + 1) != static_cast<ssize_t>(length + 1)) {
        give_up("cannot write the log", format);
    }
}

void give_up(char const* what, char const* detail) {
    std::fprintf(stderr, "lifecycle_scenario: %s: %s\n", what, detail);
    std::_Exit(2);
}

} // namespace lifecycle
