#include "interruption.hpp"

#include <csignal>

namespace polarize_tool {
namespace {

std::atomic<bool> requested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

void request(int) {
    requested.store(true);
}

} // namespace

void catch_interruptions() {
    struct sigaction action = {};
    action.sa_handler = request;
    // System calls go on where they were; the handler is gone after its first call.
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A full limit on file sizes is reported by write() like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

std::atomic<bool> const& interruption_flag() {
    return requested;
}

void throw_if_interrupted() {
    if (requested.load(std::memory_order_relaxed)) {
        throw Interrupted();
    }
}

} // namespace polarize_tool
