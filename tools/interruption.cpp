#include "interruption.hpp"

#include <csignal>

namespace polarize_tool {
namespace {

std::atomic<bool> requested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler writes it");

void request(int) {
    requested.store(true);
}

bool is_ignored(int signal) {
    struct sigaction present = {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

} // namespace

void catch_interruptions() {
    struct sigaction action = {};
    action.sa_handler = request;
    // System calls go on where they were. The handler stays: the default action of a second signal
    // would end the program before the destructors have removed its temporary files.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    if (!is_ignored(SIGHUP)) { // nohup starts a program that is to outlive its terminal
        sigaction(SIGHUP, &action, nullptr);
    }
    // A full limit on file sizes and a reader that has gone away are reported by write() like a
    // full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
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
