#include "interruption.hpp"

namespace polarize_tool {
namespace {

std::atomic<bool> requested = false;

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
