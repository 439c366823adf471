/// @file
/// The registers of the simulated camera: those that every camera with this protocol has, and those
/// that camera.xml gives names.
#pragma once

#include "sensor.hpp"

#include <arv.h>
#include <cstddef>
#include <cstdint>
#include <netinet/in.h>
#include <optional>
#include <string>

namespace simulated_camera {

struct Defaults {
    polarization::Pixel_format pixel_format = polarization::Pixel_format::mono12p;
    double frame_rate = 30;
    std::size_t packet_size = 1500;
};

/// What the registers ask for.
struct Request {
    polarization::Pixel_format pixel_format;
    std::uint32_t pixel_format_number;
    polarization::Region region;
    double frame_rate;
    std::size_t packet_size;
    sockaddr_in receiver;
};

/// The memory that Aravis' camera serves and the computer on the other side writes to.
class Registers {
public:
    Registers(ArvFakeCamera* camera, Sensor const& sensor, Defaults const& defaults);

    /// Whether somebody who controls the camera has started it.
    bool is_acquiring();
    /// @throws std::runtime_error for a value that camera.xml does not allow
    Request request() const;
    /// The size of a test packet that is asked for, once.
    std::optional<std::size_t> take_test_request();

private:
    std::uint32_t read(std::uint32_t address) const;
    float read_float(std::uint32_t address) const;
    void write(std::uint32_t address, std::uint32_t value);
    void write(std::uint32_t address, float value);
    void write(std::uint32_t address, std::string const& text);

    ArvFakeCamera* camera_;
};

/// Where the computer that receives wants packets.
sockaddr_in receiver_of(ArvFakeCamera* camera);

} // namespace simulated_camera
