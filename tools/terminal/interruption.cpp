#include "terminal/interruption.hpp"

namespace polarize_tool {
namespace {

std::atomic<bool> requested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal's handler");

} // namespace

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
