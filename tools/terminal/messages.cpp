#include "terminal/messages.hpp"

#include "terminal/failure.hpp"
#include "terminal/visible_text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <unistd.h>

namespace polarize_tool {
namespace {

std::mutex output_mutex;
std::string status; // what the terminal's last line shows, guarded by output_mutex

constexpr char const* start_of_line_and_erase = "\r\x1b[K";

void write_error(std::string_view text) {
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) {
        return; // nobody is left to be told
    }
}

std::string message(std::string const& line) {
    return "veldrane-polarize: " + visible(line) + "\n";
}

void print_error_line(std::string const& line) {
    std::lock_guard const lock(output_mutex);
    std::string const erase = status.empty() ? "" : start_of_line_and_erase;
    write_error(erase + message(line) + status);
}

void print(std::string const& text) {
    std::lock_guard const lock(output_mutex);
    if (!status.empty()) {
        write_error(start_of_line_and_erase);
    }
    bool const is_out = std::printf("%s\n", text.c_str()) >= 0 && std::fflush(stdout) == 0;
    int const error = errno;
    write_error(status);
    if (!is_out) {
        throw Output_exhausted(
            "standard output", std::string("cannot be written: ") + std::strerror(error));
    }
}

} // namespace

void complain(std::string const& line) {
    print_error_line(line);
}

void warn(std::string const& line) {
    print_error_line("warning: " + line);
}

void remark(std::string const& line) {
    print_error_line(line);
}

void complain_at_once(std::string const& line) {
    // Whoever hangs in a write holds the mutex; `status` may be read only with it.
    std::unique_lock const lock(output_mutex, std::try_to_lock);
    bool const has_bar = lock.owns_lock() && !status.empty();
    pollfd error_output = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&error_output, 1, 0) == 1 && (error_output.revents & POLLOUT) != 0) {
        write_error((has_bar ? start_of_line_and_erase : "") + message(line));
    }
}

void complain_without_memory(std::string_view text) {
    write_error(text);
}

void say(std::string const& line) {
    print(visible(line));
}

void say_lines(std::string const& text) {
    std::string shown;
    for (std::size_t start = 0; start <= text.size();) {
        std::size_t const end = std::min(text.find('\n', start), text.size());
        shown.append(start == 0 ? "" : "\n").append(visible(text.substr(start, end - start)));
        start = end + 1;
    }
    print(shown);
}

bool error_output_is_terminal() {
    return isatty(STDERR_FILENO) != 0;
}

void show_status(std::string const& line) {
    std::lock_guard const lock(output_mutex);
    write_error(start_of_line_and_erase + line);
    status = line;
}

} // namespace polarize_tool
