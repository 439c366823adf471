#include "registers.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>
#include <utility>

namespace simulated_camera {
namespace {

using polarization::Pixel_format;

// Of the protocol.
constexpr std::uint32_t manufacturer_text = 0x48;
constexpr std::uint32_t model_text = 0x68;
constexpr std::uint32_t timestamp_frequency = 0x940;
constexpr std::uint32_t stream_packet_size = 0xd04;
constexpr std::uint32_t test_packet_bit = 1U << 31U;
constexpr std::uint32_t packet_size_bits = 0xffff;

// As in camera.xml. They are not those of Aravis' own description: at these its camera would send
// frames by itself.
constexpr std::uint32_t sensor_width = 0xa000;
constexpr std::uint32_t sensor_height = 0xa004;
constexpr std::uint32_t width = 0xa008;
constexpr std::uint32_t height = 0xa00c;
constexpr std::uint32_t offset_x = 0xa010;
constexpr std::uint32_t offset_y = 0xa014;
constexpr std::uint32_t pixel_format = 0xa018;
constexpr std::uint32_t acquisition_mode = 0xa020;
constexpr std::uint32_t acquisition = 0xa024;
constexpr std::uint32_t frame_rate = 0xa028;
constexpr std::uint32_t exposure_time = 0xa02c;
constexpr std::uint32_t gain = 0xa030;
constexpr std::uint32_t gain_auto = 0xa034;
constexpr std::uint32_t exposure_auto = 0xa038;
constexpr std::uint32_t continuous = 1;

// Of the GenICam pixel format naming convention.
constexpr std::array<std::pair<Pixel_format, std::uint32_t>, 9> format_numbers = {
    {{Pixel_format::mono8, 0x01080001},
     {Pixel_format::mono10, 0x01100003},
     {Pixel_format::mono10_packed, 0x010c0004},
     {Pixel_format::mono12, 0x01100005},
     {Pixel_format::mono12_packed, 0x010c0006},
     {Pixel_format::mono16, 0x01100007},
     {Pixel_format::mono14, 0x01100025},
     {Pixel_format::mono10p, 0x010a0046},
     {Pixel_format::mono12p, 0x010c0047}}};

std::uint32_t number_of(Pixel_format format) {
    return std::find_if(
               format_numbers.begin(), format_numbers.end(),
               [&](auto const& entry) { return entry.first == format; })
        ->second;
}

Pixel_format format_of(std::uint32_t number) {
    auto const* const found =
        std::find_if(format_numbers.begin(), format_numbers.end(), [&](auto const& entry) {
            return entry.second == number;
        });
    if (found == format_numbers.end()) {
        throw std::runtime_error("no pixel format has the number " + std::to_string(number));
    }
    return found->first;
}

std::uint32_t word(std::size_t number) {
    return static_cast<std::uint32_t>(number);
}

} // namespace

Registers::Registers(ArvFakeCamera* camera, Sensor const& sensor, Defaults const& defaults)
    : camera_{camera} {
    write(manufacturer_text, std::string("Simulated"));
    write(model_text, std::string("Mosaic"));
    write(timestamp_frequency, std::uint32_t{1000000000});
    write(stream_packet_size, word(defaults.packet_size));
    write(sensor_width, word(sensor.size.width));
    write(sensor_height, word(sensor.size.height));
    write(width, word(sensor.size.width));
    write(height, word(sensor.size.height));
    write(pixel_format, number_of(defaults.pixel_format));
    write(acquisition_mode, continuous);
    write(frame_rate, static_cast<float>(defaults.frame_rate));
    write(exposure_time, 10000.0F);
    write(gain, 0.0F);
    write(gain_auto, std::uint32_t{0});
    write(exposure_auto, std::uint32_t{0});
}

bool Registers::is_acquiring() {
    if (arv_fake_camera_get_control_channel_privilege(camera_) == 0) {
        write(acquisition, std::uint32_t{0}); // who controlled it has gone
    }
    return read(acquisition) != 0;
}

Request Registers::request() const {
    std::uint32_t const format = read(pixel_format);
    Request const request{
        format_of(format),
        format,
        {read(offset_x), read(offset_y), read(width), read(height)},
        static_cast<double>(read_float(frame_rate)),
        read(stream_packet_size) & packet_size_bits,
        receiver_of(camera_)};
    if (request.region.width * polarization::stored_bits_of(request.pixel_format) % 8 != 0) {
        throw std::runtime_error("rows of " + to_string(request.region) + " end within a byte");
    }
    if (!(request.frame_rate > 0)) {
        throw std::runtime_error("the frame rate is not above 0");
    }
    return request;
}

std::optional<std::size_t> Registers::take_test_request() {
    std::uint32_t const value = read(stream_packet_size);
    if ((value & test_packet_bit) == 0) {
        return std::nullopt;
    }
    write(stream_packet_size, value & ~test_packet_bit);
    return value & packet_size_bits;
}

std::uint32_t Registers::read(std::uint32_t address) const {
    std::uint32_t value = 0;
    arv_fake_camera_read_register(camera_, address, &value);
    return value;
}

float Registers::read_float(std::uint32_t address) const {
    return std::bit_cast<float>(read(address));
}

void Registers::write(std::uint32_t address, std::uint32_t value) {
    arv_fake_camera_write_register(camera_, address, value);
}

void Registers::write(std::uint32_t address, float value) {
    write(address, std::bit_cast<std::uint32_t>(value));
}

void Registers::write(std::uint32_t address, std::string const& text) {
    arv_fake_camera_write_memory(camera_, address, word(text.size() + 1), text.c_str());
}

sockaddr_in receiver_of(ArvFakeCamera* camera) {
    sockaddr_in receiver{};
    GSocketAddress* const address = arv_fake_camera_get_stream_address(camera);
    g_socket_address_to_native(address, &receiver, sizeof receiver, nullptr);
    g_object_unref(address);
    return receiver;
}

} // namespace simulated_camera
