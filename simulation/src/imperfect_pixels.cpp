#include "veldrane_mrv/polarization/imperfect_pixels.hpp"

#include "random_numbers.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

namespace veldrane_mrv::polarization {
namespace {

// Wider than any sensor, so that a pixel keeps its numbers whatever the width.
constexpr std::uint64_t places_per_row = 65536;
constexpr double least_diattenuation = 0.1;
constexpr double least_throughput_of_pixel = 0.01;

/// What a seed of its own is for.
enum Purpose : std::size_t { gain, orientation, diattenuation, dark_level, defect };

void check(char const* name, double value, double least, double most) {
    if (!(value >= least && value <= most)) {
        std::ostringstream given;
        given << value;
        std::ostringstream remedy;
        remedy << "give " << least << " to " << most;
        throw Argument_error(name, given.str(), remedy.str());
    }
}

void check(Pixel_spread const& spread, double full_scale) {
    check("gain_spread", spread.gain_spread, 0.0, 0.2);
    check("orientation_spread", spread.orientation_spread, 0.0, 5.0);
    check("diattenuation_spread", spread.diattenuation_spread, 0.0, 0.2);
    check("mean_diattenuation", spread.mean_diattenuation, least_diattenuation, 1.0);
    check("dark_level", spread.dark_level, 0.0, full_scale / 4.0);
    check("dark_spread", spread.dark_spread, 0.0, full_scale / 4.0);
    check("hot_pixels", spread.hot_pixels, 0.0, 0.1);
    check("dead_pixels", spread.dead_pixels, 0.0, 0.1);
}

// Rounding to float may reach 180 itself, which is 0 again.
float orientation_in_range(double degrees) {
    auto const wrapped = static_cast<float>(within_half_turn(degrees));
    return wrapped < 180.0F ? wrapped : 0.0F;
}

/// Fills maps pixel by pixel.
class Draw {
public:
    Draw(Calibration_maps& maps, Pixel_spread const& spread) : maps_{maps}, spread_{spread} {
        std::size_t const pixels = maps.region.width * maps.region.height;
        for (auto* map :
             {&maps.dark_level, &maps.throughput, &maps.diattenuation, &maps.orientation}) {
            map->reserve(pixels);
        }
        for (std::size_t purpose = 0; purpose < seeds_.size(); ++purpose) {
            seeds_[purpose] = seed_for(spread.seed, purpose);
        }
    }

    void add(std::uint64_t place, Analyser const& mean) {
        auto const spread = [&](Purpose purpose, double deviation) {
            return deviation * normal_deviate(seeds_[purpose], place);
        };
        double const throughput = mean.throughput * (1.0 + spread(gain, spread_.gain_spread));
        maps_.throughput.push_back(
            static_cast<float>(std::max(throughput, least_throughput_of_pixel)));
        maps_.diattenuation.push_back(static_cast<float>(std::clamp(
            mean.diattenuation + spread(diattenuation, spread_.diattenuation_spread),
            least_diattenuation, 1.0)));
        maps_.orientation.push_back(orientation_in_range(
            mean.orientation + spread(orientation, spread_.orientation_spread)));
        double const dark = spread_.dark_level + spread(dark_level, spread_.dark_spread);
        add_dark_level(place, dark);
    }

private:
    void add_dark_level(std::uint64_t place, double level) {
        double const defect_number = uniform_number(seeds_[defect], place);
        bool const is_hot = defect_number < spread_.hot_pixels;
        if (defect_number < spread_.hot_pixels + spread_.dead_pixels) {
            maps_.bad_pixels.push_back(static_cast<std::uint32_t>(maps_.dark_level.size()));
        }
        auto const largest = static_cast<double>((1U << maps_.bit_depth) - 1U);
        // At the full scale a pixel would be a hot one.
        maps_.dark_level.push_back(
            static_cast<float>(is_hot ? largest : std::clamp(level, 0.0, largest - 1.0)));
    }

    Calibration_maps& maps_;
    Pixel_spread const& spread_;
    std::array<std::uint64_t, 5> seeds_{};
};

} // namespace

Calibration imperfect_pixels(
    Simulation_settings const& settings, Pixel_spread const& spread, Stop_check const& check_stop) {
    check(spread, static_cast<double>((1U << settings.bit_depth) - 1U));
    Calibration sensor = ideal_calibration(Mosaic::from_phase(settings.phase));
    for (std::size_t position = 0; position < sensor.analysers.size(); ++position) {
        Analyser& analyser = sensor.analysers[position];
        analyser.diattenuation = spread.mean_diattenuation;
        if (settings.analysers) {
            analyser = (*settings.analysers)[position];
        }
        analyser.dark_level = spread.dark_level;
    }
    sensor.matrices = matrices_of(sensor.analysers);
    sensor.quality.condition_number = condition_number(sensor.analysers);

    Calibration_maps maps;
    maps.sensor = {settings.width, settings.height};
    maps.region = region_of(maps.sensor);
    maps.bit_depth = settings.bit_depth;
    Draw draw(maps, spread);
    for (std::size_t row = 0; row < settings.height; ++row) {
        if (check_stop) {
            check_stop();
        }
        for (std::size_t column = 0; column < settings.width; ++column) {
            draw.add(row * places_per_row + column, sensor.analysers[cell_position(row, column)]);
        }
    }
    sensor.model = Calibration_model::pixel;
    sensor.maps = std::make_shared<Calibration_maps const>(std::move(maps));
    if (settings.noise) {
        sensor.noise = noise_of(settings);
    }
    return sensor;
}

} // namespace veldrane_mrv::polarization
