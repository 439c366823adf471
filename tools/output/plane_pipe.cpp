#include "output/plane_pipe.hpp"

#include "terminal/failure.hpp"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace polarize_tool {
namespace {

// A write to a full pipe would wait for its reader, whatever is asked for meanwhile. To open the
// pipe once more leaves it as it is for all who share standard output.
int open_without_waiting() {
    struct stat status = {};
    bool const is_pipe = fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
    return is_pipe ? open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC) : -1;
}

// As for the pipe that frames come from: 64 KiB make many turns of a plane.
void widen(int pipe) {
    constexpr int bytes = 1 << 20;
    if (fcntl(pipe, F_GETPIPE_SZ) < bytes) {
        fcntl(pipe, F_SETPIPE_SZ, bytes); // or it stays as it is
    }
}

} // namespace

Plane_pipe::Plane_pipe(std::function<bool()> stop_requested, std::function<bool()> end_is_near)
    : stop_requested_{std::move(stop_requested)}, end_is_near_{std::move(end_is_near)},
      own_{open_without_waiting()}, descriptor_{own_.is_open() ? own_.get() : STDOUT_FILENO} {
    widen(descriptor_);
}

bool Plane_pipe::write(std::span<std::uint8_t const> bytes) {
    constexpr int patience = 100; // milliseconds
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds longest_stall(2);
    auto last_taken = Clock::now();
    while (!bytes.empty()) {
        pollfd output = {descriptor_, POLLOUT, 0};
        bool const has_room = poll(&output, 1, patience) > 0;
        if (stop_requested_()) {
            return false;
        }
        if (!has_room) {
            if (end_is_near_ && Clock::now() - last_taken > longest_stall && end_is_near_()) {
                throw Output_exhausted(
                    "standard output",
                    "has taken nothing for 2 s, and is given up; what it has ends within a frame");
            }
            continue;
        }
        ssize_t const written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            throw Output_exhausted(
                "standard output", std::string("cannot be written: ") + std::strerror(errno));
        }
        last_taken = Clock::now();
        bytes = bytes.subspan(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace polarize_tool
