#include "veldrane_mrv/polarization/sensor_pixels.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"

#include <cmath>
#include <numbers>
#include <string>

namespace veldrane_mrv::polarization {
namespace {

Calibration_maps const& maps_of(Calibration const& sensor) {
    if (sensor.maps == nullptr) {
        throw Argument_error(
            "the sensor's model", std::string(name_of(sensor.model)),
            "give a calibration with maps, of model gain or pixel");
    }
    return *sensor.maps;
}

Analyser analyser_of(Calibration const& sensor, std::size_t index) {
    Calibration_maps const& maps = *sensor.maps;
    auto const number = [index](std::vector<float> const& map) {
        return static_cast<double>(map[index]);
    };
    if (sensor.model == Calibration_model::pixel) {
        return {number(maps.throughput), number(maps.diattenuation), number(maps.orientation), {}};
    }
    // Positions count from the corner of the whole sensor.
    std::size_t const row = maps.region.row + index / maps.region.width;
    std::size_t const column = maps.region.column + index % maps.region.width;
    Analyser analyser = sensor.analysers[cell_position(row, column)];
    analyser.throughput /= number(maps.gain);
    return analyser;
}

} // namespace

Sensor_pixels::Sensor_pixels(Calibration const& sensor)
    : size_{maps_of(sensor).region.size()}, bit_depth_{sensor.maps->bit_depth} {
    Calibration_maps const& maps = *sensor.maps;
    pixels_.reserve(size_.width * size_.height);
    for (std::size_t index = 0; index < size_.width * size_.height; ++index) {
        Analyser const analyser = analyser_of(sensor, index);
        double const half = analyser.throughput / 2.0;
        double const doubled = analyser.orientation * std::numbers::pi / 90.0;
        pixels_.push_back(
            {static_cast<float>(half),
             static_cast<float>(half * analyser.diattenuation * std::cos(doubled)),
             static_cast<float>(half * analyser.diattenuation * std::sin(doubled)),
             maps.dark_level[index]});
    }
    for (std::uint32_t const index : maps.bad_pixels) {
        pixels_[index] = {0.0F, 0.0F, 0.0F, maps.dark_level[index]};
    }
}

} // namespace veldrane_mrv::polarization
