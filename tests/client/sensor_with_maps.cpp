#include "sensor_with_maps.hpp"

#include <random>
#include <vector>

namespace client_test {

using namespace veldrane_mrv::polarization;

Calibration sensor_with_maps(Calibration_model model, Size const& size, std::uint64_t seed) {
    Calibration calibration = ideal_calibration(Mosaic::from_phase(2));
    Calibration_maps maps{.sensor = size, .region = {0, 0, size.width, size.height}};
    maps.bit_depth = 12;
    std::mt19937_64 random{seed};
    auto const between = [&](double low, double high) {
        return static_cast<float>(std::uniform_real_distribution<double>{low, high}(random));
    };
    for (std::uint32_t pixel = 0; pixel < size.width * size.height; ++pixel) {
        maps.dark_level.push_back(between(0, 200));
        if (model == Calibration_model::gain) {
            maps.gain.push_back(between(0.7, 1.3));
        } else {
            int const angle = calibration.mosaic.angle(pixel / size.width, pixel % size.width);
            maps.throughput.push_back(between(0.8, 1.2));
            maps.diattenuation.push_back(between(0.8, 1));
            maps.orientation.push_back(static_cast<float>(angle) + between(0, 5));
        }
        if (random() % 37 == 0) {
            maps.bad_pixels.push_back(pixel);
        }
    }
    calibration.model = model;
    calibration.maps = std::make_shared<Calibration_maps const>(std::move(maps));
    return calibration;
}

} // namespace client_test
