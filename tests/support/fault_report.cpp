#include "support/fault_report.hpp"

#include <csignal>
#include <iostream>

namespace support {
namespace {

Scene const* current_scene{nullptr};
struct sigaction former_action;

/// Returning repeats the faulting instruction under the former action. Formatting text is safe
/// here: the fault comes from pixel code, never from inside the allocator or a stream.
void report_fault(int signal_number) {
    sigaction(signal_number, &former_action, nullptr);
    if (current_scene != nullptr) {
        std::cerr << "memory fault in scene: " << describe(*current_scene) << std::endl;
    }
}

void install_handler_once() {
    static bool const installed = [] {
        struct sigaction action {};
        action.sa_handler = report_fault;
        return sigaction(SIGSEGV, &action, &former_action) == 0;
    }();
    static_cast<void>(installed);
}

} // namespace

Fault_report::Fault_report(Scene const& scene) {
    install_handler_once();
    current_scene = &scene;
}

Fault_report::~Fault_report() {
    current_scene = nullptr;
}

} // namespace support
