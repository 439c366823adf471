#include "sensor.hpp"

#include <span>

namespace simulated_camera {

polarization::Simulation_settings settings_of(Sensor const& sensor, unsigned bit_depth) {
    polarization::Simulation_settings settings;
    settings.width = sensor.size.width;
    settings.height = sensor.size.height;
    settings.phase = sensor.phase;
    settings.bit_depth = static_cast<int>(bit_depth);
    return settings;
}

std::vector<polarization::Frame> exposures(Sensor const& sensor, unsigned bit_depth) {
    polarization::Simulation_settings const settings = settings_of(sensor, bit_depth);
    polarization::Light const light = scene_light(settings);
    std::vector<polarization::Frame> frames;
    for (std::size_t number = 0; number < sensor.frames; ++number) {
        frames.push_back(record(light, settings, number));
    }
    return frames;
}

std::vector<std::byte> payload_of(
    polarization::Frame const& frame, polarization::Region const& region,
    polarization::Pixel_format format) {
    std::size_t const row_bytes = bytes_per_row(format, region.width);
    std::vector<std::byte> payload(region.height * row_bytes);
    for (std::size_t row = 0; row < region.height; ++row) {
        std::size_t const first = (region.row + row) * frame.width + region.column;
        pack_row(
            format, std::span(frame.samples).subspan(first, region.width),
            std::span(payload).subspan(row * row_bytes, row_bytes));
    }
    return payload;
}

} // namespace simulated_camera
