/// @file
/// The way of a camera's packets to the computer, with what can go wrong on it.
#pragma once

#include "stream_packets.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <random>
#include <span>
#include <vector>

namespace simulated_camera {

/// Frames count from 1 in each acquisition, whatever number the camera gives them.
struct Faults {
    /// Of all packets, 0 to 1; nothing is sent again.
    double lost_share = 0;
    std::uint64_t seed = 1;
    /// The program ends in the middle of the frame after this one.
    std::optional<std::uint64_t> last_before_death;
    struct Stall {
        std::uint64_t frame;
        std::chrono::milliseconds time;
    };
    /// A pause in the middle of a frame.
    std::optional<Stall> stall;
};

struct Sent {
    std::uint64_t frames = 0;
    std::uint64_t packets = 0;
    std::uint64_t lost_packets = 0;
    /// Frames with lost packets.
    std::uint64_t damaged_frames = 0;
};

/// Packets of one acquisition.
class Camera_link {
public:
    /// `packet_size` with the headers of IP and UDP.
    /// @throws std::system_error if there is no socket
    Camera_link(sockaddr_in const& receiver, std::size_t packet_size, Faults const& faults);
    ~Camera_link();
    Camera_link(Camera_link const&) = delete;
    Camera_link& operator=(Camera_link const&) = delete;

    /// Spread over `time`: a burst overruns the socket of whoever receives, as on a real link it
    /// cannot.
    void send(Image const& image, std::span<std::byte const> data, std::chrono::nanoseconds time);

    /// One packet of that size, by which the receiver finds out what gets through.
    void send_test_packet(std::size_t packet_size);

    Sent const& sent() const { return sent_; }

private:
    struct Packet {
        Header header;
        std::span<std::byte const> data;
    };

    std::vector<Packet> packets_of(Image const& image, std::span<std::byte const> data) const;
    void send_together(std::span<Packet> packets);
    void send_one(std::span<std::byte const> packet);
    bool is_lost();
    void fail_in_the_middle() const;

    sockaddr_in receiver_;
    std::size_t data_bytes_;
    Faults faults_;
    std::mt19937_64 random_;
    int socket_;
    Sent sent_;
};

} // namespace simulated_camera
