#include "signals.hpp"

#include "commands.hpp"
#include "interruption.hpp"
#include "messages.hpp"
#include "staged_files.hpp"

#include <csignal>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace polarize_tool {
namespace {

bool is_ignored(int signal) {
    struct sigaction present = {};
    return sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

int next_of(sigset_t const& signals) {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    return signal;
}

// Signals arrive here and nowhere else, as values: unlike a handler this thread may take a mutex,
// and no system call of another thread is cut short.
void wait_for(sigset_t const& signals) {
    next_of(signals);
    request_interruption();
    next_of(signals);
    remove_staged_files();
    complain_at_once(Interrupted().what());
    _exit(interrupted);
}

} // namespace

void catch_interruptions() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (signal == SIGHUP && is_ignored(signal)) {
            continue; // nohup starts a program that is to outlive its terminal
        }
        std::signal(signal, SIG_DFL); // an ignored signal need not reach sigwait()
        sigaddset(&signals, signal);
    }
    // All threads started from now on inherit the mask.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread(wait_for, signals).detach();
    } catch (std::system_error const&) {
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr); // better to end untidily than not at all
    }
    // A full limit on file sizes and a reader that has gone away are reported by write() like a
    // full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace polarize_tool
