/// @file
/// Frames from the camera for as long as it is asked for them.
#pragma once

#include "camera_link.hpp"
#include "registers.hpp"

#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <vector>

namespace simulated_camera {

struct Schedule {
    std::uint16_t first_number = 1;
    /// Nothing comes after these, though the camera still answers.
    std::uint64_t frames = std::numeric_limits<std::uint64_t>::max();
    struct Change {
        std::uint64_t frame;
        polarization::Size size;
    };
    /// From this frame on, counted from 1, the upper left part or more of the sensor is sent,
    /// whatever the registers say.
    std::optional<Change> change;
    /// The largest packet that gets through.
    std::size_t largest_packet = 9000;
};

class Camera_stream {
public:
    /// Makes the frames of the pixel format in the registers.
    Camera_stream(
        ArvFakeCamera* camera, Sensor const& sensor, Defaults const& defaults,
        Schedule const& schedule, Faults const& faults);

    /// Serves one acquisition after another until `ends`, and prints a line after each.
    void run(std::atomic<bool> const& ends);

private:
    using Payloads = std::vector<std::vector<std::byte>>;

    void acquire(std::atomic<bool> const& ends);
    void answer_test_request();
    Payloads payloads_of(Request const& request, polarization::Region const& region);

    ArvFakeCamera* camera_;
    Sensor sensor_;
    Registers registers_;
    Schedule schedule_;
    Faults faults_;
    std::map<unsigned, std::vector<polarization::Frame>> exposures_; // by bit depth
};

} // namespace simulated_camera
