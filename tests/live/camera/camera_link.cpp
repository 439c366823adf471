#include "camera_link.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace simulated_camera {
namespace {

// What goes out between two pauses. A timer's slack is about as long as a computer takes for it.
constexpr std::size_t bytes_at_once = 131072;
constexpr std::size_t most_at_once = 256;

std::size_t share_of(std::size_t whole, std::size_t part, std::size_t parts) {
    return whole * part / parts;
}

} // namespace

Camera_link::Camera_link(sockaddr_in const& receiver, std::size_t packet_size, Faults const& faults)
    : receiver_{receiver}, data_bytes_{packet_size - network_header_bytes - header_bytes},
      faults_{faults}, random_{faults.seed}, socket_{socket(
                                                 AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)} {
    if (socket_ < 0) {
        throw std::system_error(errno, std::generic_category(), "no socket to send from");
    }
}

Camera_link::~Camera_link() {
    close(socket_);
}

void Camera_link::send(
    Image const& image, std::span<std::byte const> data, std::chrono::nanoseconds time) {
    auto const start = std::chrono::steady_clock::now();
    Sent const before = sent_;
    if (!is_lost()) {
        send_one(leader_of(image));
    }
    std::vector<Packet> packets = packets_of(image, data);
    std::size_t const groups =
        std::max({data.size() / bytes_at_once, packets.size() / most_at_once, std::size_t{1}});
    for (std::size_t group = 0; group < 2 * groups; ++group) {
        std::this_thread::sleep_until(
            start +
            time * static_cast<std::int64_t>(group) / static_cast<std::int64_t>(2 * groups));
        std::size_t const first = share_of(packets.size(), group, 2 * groups);
        std::size_t const end = share_of(packets.size(), group + 1, 2 * groups);
        if (group == groups) {
            fail_in_the_middle();
        }
        send_together(std::span(packets).subspan(first, end - first));
    }
    if (!is_lost()) {
        send_one(trailer_of(image, static_cast<std::uint32_t>(packets.size() + 1)));
    }
    ++sent_.frames;
    sent_.packets += packets.size() + 2;
    sent_.damaged_frames += sent_.lost_packets > before.lost_packets ? 1U : 0U;
}

void Camera_link::send_test_packet(std::size_t packet_size) {
    send_one(std::vector<std::byte>(packet_size - network_header_bytes));
}

std::vector<Camera_link::Packet> Camera_link::packets_of(
    Image const& image, std::span<std::byte const> data) const {
    std::vector<Packet> packets;
    for (std::size_t first = 0; first < data.size(); first += data_bytes_) {
        packets.push_back(
            {data_header(image, static_cast<std::uint32_t>(packets.size() + 1)),
             data.subspan(first, std::min(data_bytes_, data.size() - first))});
    }
    return packets;
}

void Camera_link::send_together(std::span<Packet> packets) {
    std::vector<std::array<iovec, 2>> parts(packets.size());
    std::vector<mmsghdr> messages;
    for (std::size_t index = 0; index < packets.size(); ++index) {
        if (is_lost()) {
            continue;
        }
        Packet& packet = packets[index];
        parts[index] = {
            {{packet.header.data(), packet.header.size()},
             {const_cast<std::byte*>(packet.data.data()), packet.data.size()}}};
        mmsghdr message{};
        message.msg_hdr.msg_name = &receiver_;
        message.msg_hdr.msg_namelen = sizeof receiver_;
        message.msg_hdr.msg_iov = parts[index].data();
        message.msg_hdr.msg_iovlen = parts[index].size();
        messages.push_back(message);
    }
    std::span<mmsghdr> left = messages;
    while (!left.empty()) {
        int const gone = sendmmsg(socket_, left.data(), static_cast<unsigned>(left.size()), 0);
        // What a link cannot take is lost, as on a real one.
        left = left.subspan(static_cast<std::size_t>(std::max(gone, 1)));
    }
}

void Camera_link::send_one(std::span<std::byte const> packet) {
    [[maybe_unused]] ssize_t const gone = sendto(
        socket_, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&receiver_),
        sizeof receiver_);
}

bool Camera_link::is_lost() {
    bool const lost = static_cast<double>(random_()) < std::ldexp(faults_.lost_share, 64);
    sent_.lost_packets += lost ? 1U : 0U;
    return lost;
}

void Camera_link::fail_in_the_middle() const {
    std::uint64_t const frame = sent_.frames + 1;
    if (faults_.last_before_death && frame > *faults_.last_before_death) {
        _exit(EXIT_SUCCESS);
    }
    if (faults_.stall && faults_.stall->frame == frame) {
        std::this_thread::sleep_for(faults_.stall->time);
    }
}

} // namespace simulated_camera
