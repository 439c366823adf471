#include "camera_stream.hpp"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace simulated_camera {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds between_looks(1);
constexpr std::size_t smallest_packet = 576; // that every receiver takes

// Block numbers go from 65535 to 1; 0 stands for a test packet.
std::uint16_t number_of_frame(std::uint16_t first, std::uint64_t index) {
    return static_cast<std::uint16_t>((first - 1U + index) % 65535U + 1U);
}

std::uint64_t nanoseconds_since(steady_clock::time_point start) {
    return static_cast<std::uint64_t>(nanoseconds(steady_clock::now() - start).count());
}

void print(Sent const& sent) {
    std::cout << "sent " << sent.frames << " frames, " << sent.damaged_frames << " damaged; "
              << sent.packets << " packets, " << sent.lost_packets << " lost" << std::endl;
}

} // namespace

Camera_stream::Camera_stream(
    ArvFakeCamera* camera, Sensor const& sensor, Defaults const& defaults, Schedule const& schedule,
    Faults const& faults)
    : camera_{camera}, sensor_{sensor},
      registers_(camera, sensor, defaults), schedule_{schedule}, faults_{faults} {
    unsigned const depth = bit_depth_of(defaults.pixel_format);
    exposures_[depth] = exposures(sensor_, depth);
}

void Camera_stream::run(std::atomic<bool> const& ends) {
    while (!ends) {
        answer_test_request();
        if (registers_.is_acquiring()) {
            acquire(ends);
        }
        std::this_thread::sleep_for(between_looks);
    }
}

void Camera_stream::acquire(std::atomic<bool> const& ends) try {
    Request const request = registers_.request();
    polarization::Region region = request.region;
    Payloads payloads = payloads_of(request, region);
    Camera_link link(request.receiver, std::max(request.packet_size, smallest_packet), faults_);
    auto const period = nanoseconds(static_cast<std::int64_t>(1e9 / request.frame_rate));
    auto const start = steady_clock::now();
    auto due = start;
    auto goes_on = [&] { return !ends && registers_.is_acquiring(); };
    while (goes_on()) {
        std::uint64_t const index = link.sent().frames;
        if (index == schedule_.frames || steady_clock::now() < due) {
            auto const soon = steady_clock::now() + between_looks;
            std::this_thread::sleep_until(index == schedule_.frames ? soon : std::min(soon, due));
            continue;
        }
        if (schedule_.change && schedule_.change->frame == index + 1) {
            region = {0, 0, schedule_.change->size.width, schedule_.change->size.height};
            payloads = payloads_of(request, region);
        }
        Image const image{
            number_of_frame(schedule_.first_number, index), nanoseconds_since(start),
            request.pixel_format_number, region};
        link.send(image, payloads[index % payloads.size()], period / 2);
        due += period;
        // No camera sends in a burst what it was held up with: whoever receives it on the same
        // machine was held up too, and the burst would overrun its socket.
        if (auto const now = steady_clock::now(); now > due + period) {
            due = now;
        }
    }
    print(link.sent());
} catch (std::runtime_error const& error) {
    std::cerr << "simulated_camera: " << error.what() << std::endl;
    while (!ends && registers_.is_acquiring()) {
        std::this_thread::sleep_for(between_looks);
    }
}

void Camera_stream::answer_test_request() {
    auto const size = registers_.take_test_request();
    if (size && *size >= smallest_packet && *size <= schedule_.largest_packet) {
        Camera_link(receiver_of(camera_), *size, {}).send_test_packet(*size);
    }
}

Camera_stream::Payloads Camera_stream::payloads_of(
    Request const& request, polarization::Region const& region) {
    if (!fits(region, sensor_.size)) {
        throw std::runtime_error(to_string(region) + " is not on the sensor");
    }
    unsigned const depth = bit_depth_of(request.pixel_format);
    if (!exposures_.contains(depth)) {
        exposures_[depth] = exposures(sensor_, depth);
    }
    Payloads payloads;
    for (polarization::Frame const& frame : exposures_[depth]) {
        payloads.push_back(payload_of(frame, region, request.pixel_format));
    }
    return payloads;
}

} // namespace simulated_camera
