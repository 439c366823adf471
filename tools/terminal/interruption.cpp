#include "terminal/interruption.hpp"

namespace polarize_tool {
namespace {

std::atomic<bool> requested = false;
std::atomic<bool> leaves_something = false;
std::atomic<char const*> what_stays = nullptr;
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal's handler");

} // namespace

char const* Interrupted::what() const noexcept {
    if (char const* const line = what_stays) {
        return line;
    }
    return leaves_something
               ? "interrupted; the same command with --resume, and without --overwrite, goes on"
               : "interrupted; nothing half-written stays";
}

void leave_unfinished(bool something) {
    leaves_something = something;
}

void tell_what_stays(char const* line) {
    what_stays = line;
}

std::atomic<bool> const& interruption_flag() {
    return requested;
}

void request_interruption() {
    requested.store(true);
}

void throw_if_interrupted() {
    if (requested.load(std::memory_order_relaxed)) {
        throw Interrupted();
    }
}

} // namespace polarize_tool
