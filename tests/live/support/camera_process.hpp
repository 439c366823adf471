/// @file
/// The simulated camera as a process of its own. Its port on 127.0.0.1 is the protocol's, so there
/// is one such camera on a machine at a time.
#pragma once

#include "program_run.hpp"

#include <memory>
#include <string>
#include <vector>

namespace camera_process {

/// The right to start the camera; waits until nobody else on this machine has it.
class Camera_lock {
public:
    /// @throws std::runtime_error after ten minutes
    Camera_lock();
    ~Camera_lock();
    Camera_lock(Camera_lock const&) = delete;
    Camera_lock& operator=(Camera_lock const&) = delete;

private:
    int socket_;
};

/// What the camera says it has sent in an acquisition.
struct Sent {
    unsigned long frames = 0;
    unsigned long damaged_frames = 0;
    unsigned long packets = 0;
    unsigned long lost_packets = 0;
};

/// Runs from its start, when it is ready, to `stop`.
class Camera_process {
public:
    /// simulated_camera --serial SERIAL OPTIONS; only with the lock held
    /// @throws std::runtime_error if it does not get ready
    explicit Camera_process(std::vector<std::string> const& options = {});
    ~Camera_process();
    Camera_process(Camera_process const&) = delete;
    Camera_process& operator=(Camera_process const&) = delete;

    static std::string const& serial();
    /// By which Aravis finds it.
    static std::string id() { return "Simulated-Mosaic-" + serial(); }

    bool is_running() { return program_->is_running(); }
    /// Ends it at once, as if it were unplugged.
    void unplug();
    /// Ends it; one element for each acquisition.
    std::vector<Sent> stop();

private:
    /// Up to the end of a line or of the output.
    std::string next_line() const;

    int output_ = -1;
    std::unique_ptr<program_run::Running_program> program_;
};

} // namespace camera_process
