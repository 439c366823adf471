#include "camera_process.hpp"

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace camera_process {
namespace {

constexpr std::chrono::minutes longest_wait(10);
constexpr std::chrono::milliseconds between_tries(20);

// A name that is no file: every user of the machine may take it, and it is free again whatever ends
// the process. It reaches as far as 127.0.0.1 does.
constexpr std::string_view lock_name{"\0simulated_camera", 17};

bool take_lock(int taken) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::memcpy(name.sun_path, lock_name.data(), lock_name.size());
    auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + lock_name.size());
    return bind(taken, reinterpret_cast<sockaddr const*>(&name), size) == 0;
}

} // namespace

Camera_lock::Camera_lock() : socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
    auto const deadline = std::chrono::steady_clock::now() + longest_wait;
    while (!take_lock(socket_)) {
        if (std::chrono::steady_clock::now() > deadline) {
            close(socket_);
            throw std::runtime_error("somebody else keeps the camera");
        }
        std::this_thread::sleep_for(between_tries);
    }
}

Camera_lock::~Camera_lock() {
    close(socket_);
}

Camera_process::Camera_process(std::vector<std::string> const& options) {
    // If the test is killed, so is the camera.
    std::vector<std::string> command = {"/usr/bin/setpriv", "--pdeathsig", "KILL",
                                        SIMULATED_CAMERA,   "--serial",    serial()};
    command.insert(command.end(), options.begin(), options.end());
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    output_ = ends[0];
    program_ = std::make_unique<program_run::Running_program>(command, ends[1]);
    close(ends[1]);
    if (next_line() != "ready") {
        throw std::runtime_error("no camera: " + program_->wait().errors);
    }
}

Camera_process::~Camera_process() {
    close(output_);
}

std::string const& Camera_process::serial() {
    static std::string const name = "SIM" + std::to_string(getpid());
    return name;
}

void Camera_process::unplug() {
    program_->send(SIGKILL);
    program_->wait();
}

std::vector<Sent> Camera_process::stop() {
    program_->send(SIGTERM);
    std::vector<Sent> acquisitions;
    for (std::string line = next_line(); !line.empty(); line = next_line()) {
        Sent sent;
        if (std::sscanf(
                line.c_str(), "sent %lu frames, %lu damaged; %lu packets, %lu lost", &sent.frames,
                &sent.damaged_frames, &sent.packets, &sent.lost_packets) != 4) {
            throw std::runtime_error("unknown line of the camera: " + line);
        }
        acquisitions.push_back(sent);
    }
    program_->wait();
    return acquisitions;
}

std::string Camera_process::next_line() const {
    std::string line;
    char letter = 0;
    while (read(output_, &letter, 1) == 1 && letter != '\n') {
        line += letter;
    }
    return line;
}

} // namespace camera_process
