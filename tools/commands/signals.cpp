#include "commands/signals.hpp"

#include "commands/commands.hpp"
#include "output/staged_files.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <semaphore.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace polarize_tool {
namespace {

sem_t arrivals;
std::atomic<bool> is_urgent = false;
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal's handler");

// Runs in whatever thread the system chooses. To block signals for all but one is no way: libraries
// start threads before main(), as those for linear algebra do.
void count_arrival(int signal) {
    int const error = errno;
    // Here, so that whoever is waiting in a system call knows when it returns.
    request_interruption();
    if (signal == SIGQUIT) { // whoever sends it will not wait
        is_urgent = true;
    }
    sem_post(&arrivals);
    errno = error;
}

void wait_for_arrival() {
    while (sem_wait(&arrivals) != 0) {
    }
}

// The second one, where a terminal and whoever started the program may both send the first. A
// thread of its own: unlike the handler it may take a mutex.
void serve_arrivals() {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds same(500);
    wait_for_arrival();
    auto const first = Clock::now();
    bool is_second = false;
    while (!is_second && !is_urgent) {
        wait_for_arrival();
        is_second = Clock::now() - first > same;
    }
    remove_staged_files();
    complain_at_once(Interrupted().what());
    _exit(interrupted);
}

bool is_ignored(int signal) {
    struct sigaction present = {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

} // namespace

void catch_interruptions() {
    // A full limit on file sizes and a reader that has gone away are reported by write() like a
    // full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    sem_init(&arrivals, 0, 0);
    try {
        std::thread(serve_arrivals).detach();
    } catch (std::system_error const&) {
        return; // better to end untidily than not at all
    }
    struct sigaction action = {};
    action.sa_handler = count_arrival;
    // No system call of a thread that works is cut short.
    action.sa_flags = SA_RESTART;
    for (int const signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        if ((signal == SIGHUP || signal == SIGQUIT) && is_ignored(signal)) {
            continue; // nohup and scripts start what is to outlive its terminal
        }
        sigaction(signal, &action, nullptr);
    }
}

} // namespace polarize_tool
