/// @file
/// Names the scene when a call touches memory that it must not touch.

#pragma once

#include "support/scene.hpp"

namespace support {

/// During its life a segmentation fault first prints the scene on standard error. The fault then
/// takes its usual course. Not for use by two threads at once.
class Fault_report {
public:
    explicit Fault_report(Scene const& scene);
    ~Fault_report();
    Fault_report(Fault_report const&) = delete;
    Fault_report& operator=(Fault_report const&) = delete;
};

} // namespace support
