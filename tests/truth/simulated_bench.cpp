#include "simulated_bench.hpp"

#include "veldrane_mrv/polarization/calibrated_transform.hpp"
#include "veldrane_mrv/polarization/dark_frame.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <cmath>
#include <memory>
#include <numbers>

namespace truth {
namespace {

using namespace polarization;

// Noise by frame number: none is used twice.
constexpr std::uint64_t first_dark = 1000;
constexpr std::uint64_t first_known = 2000;
constexpr std::size_t angle_count = 18;
constexpr std::size_t frames_an_angle = 8;
constexpr std::size_t dark_count = 64;
constexpr double level = 0.6; // sample of an ideal analyser along fully polarised light

constexpr Known_light known_lights[] = {{0.1, 20.0},  {0.3, 67.0}, {0.5, 10.0},
                                        {0.5, 100.0}, {0.7, 45.0}, {0.9, 160.0}};

Light light_of(Simulation_settings const& settings, Known_light const& known) {
    double const s0 = level * ((1U << settings.bit_depth) - 1U);
    double const doubled = known.angle * std::numbers::pi / 90.0;
    double const polarised = s0 * known.degree;
    return Light(
        settings.width * settings.height,
        {s0, polarised * std::cos(doubled), polarised * std::sin(doubled)});
}

// 2 % of gain, 1 degree, 3 % of diattenuation.
Pixel_spread pixel_spread() {
    Pixel_spread spread;
    spread.dark_level = 60.0;
    spread.dark_spread = 8.0;
    spread.hot_pixels = spread.dead_pixels = 2e-4;
    return spread;
}

Settings settings_for(Calibration const& calibration, Region const& region) {
    Settings settings = ideal_settings(calibration.mosaic, Scale{12});
    settings.matrices = calibration.matrices;
    if (calibration.maps != nullptr) {
        settings.tables = std::make_shared<Sensor_tables const>(calibration, region);
        settings.matrices = settings.tables->position_matrices();
    }
    return settings;
}

} // namespace

Bench::Bench()
    : settings_{.width = 256, .height = 192, .phase = 2}, sensor_{imperfect_pixels(
                                                              settings_, pixel_spread())} {
    settings_.pixels = std::make_shared<Sensor_pixels const>(sensor_);
    bad_.resize(settings_.width * settings_.height);
    for (std::uint32_t const pixel : sensor_.maps->bad_pixels) {
        bad_[pixel] = true;
    }
}

std::vector<float> Bench::dark_levels(Region const& region) const {
    Dark_frame_average average;
    Light const dark = flat_light(settings_, 0.0);
    for (std::uint64_t number = 0; number < dark_count; ++number) {
        average.add(rows_of(record(dark, settings_, first_dark + number), region).view());
    }
    return average.means();
}

Measured_calibration Bench::calibrated(Calibration_model model, std::optional<Region> part) const {
    Size const sensor{settings_.width, settings_.height};
    Region const region = part.value_or(region_of(sensor));
    Pixel_calibration_options options;
    options.estimation.bit_depth = settings_.bit_depth;
    options.sensor = sensor;
    options.region = region;
    options.dark_levels = dark_levels(region);
    Pixel_calibration series(sensor_.mosaic, std::move(options));
    for (std::uint64_t number = 0; number < angle_count * frames_an_angle; ++number) {
        double const angle = static_cast<double>(number % angle_count) * 180.0 / angle_count;
        Frame const frame =
            rows_of(record(uniform_light(settings_, angle), settings_, number), region);
        Uniform_frame const uniform{.frame = frame.view(), .polariser_angle = angle};
        number == 4 ? series.hold_out(uniform) : series.add(uniform);
    }
    return series.finish(model);
}

Frame Bench::recorded(Known_light const& light, bool noise) const {
    Simulation_settings settings = settings_;
    settings.noise = noise;
    auto const number = static_cast<std::uint64_t>(light.angle);
    return record(light_of(settings, light), settings, first_known + number);
}

// Neighbours as the transform has them: to the right and below, in the last column to the left, in
// the last row above.
bool Bench::is_good(std::size_t row, std::size_t column) const {
    std::size_t const beside = column + 1 < settings_.width ? column + 1 : column - 1;
    std::size_t const below = row + 1 < settings_.height ? row + 1 : row - 1;
    std::size_t const width = settings_.width;
    return !bad_[row * width + column] && !bad_[row * width + beside] &&
           !bad_[below * width + column] && !bad_[below * width + beside];
}

Errors Bench::errors(Calibration const& calibration, bool noise) const {
    Errors errors;
    for (Known_light const& light : known_lights) {
        Measured_light const found = measured_light(
            recorded(light, noise), calibration, region_of({settings_.width, settings_.height}));
        for (std::size_t row = 0; row < settings_.height; ++row) {
            for (std::size_t column = 0; column < settings_.width; ++column) {
                if (!is_good(row, column)) {
                    continue;
                }
                std::size_t const index = row * settings_.width + column;
                double const off = std::remainder(found.angles[index] - light.angle, 180.0);
                errors.angle += off * off;
                errors.degree += std::pow(found.degrees[index] - light.degree, 2);
                ++errors.pixels;
            }
        }
    }
    auto const count = static_cast<double>(errors.pixels);
    errors.degree = std::sqrt(errors.degree / count);
    errors.angle = std::sqrt(errors.angle / count);
    return errors;
}

Measured_light measured_light(Frame frame, Calibration const& calibration, Region const& region) {
    if (calibration.maps == nullptr) {
        std::array<double, 4> levels{};
        for (std::size_t position = 0; position < levels.size(); ++position) {
            levels[position] = calibration.analysers[position].dark_level.value_or(0.0);
        }
        subtract(frame.view(), Dark_frame(frame.height, frame.width, levels), frame.samples);
    }
    Settings const settings = settings_for(calibration, region);
    Planes planes(frame.height, frame.width, {Plane::azimuth, Plane::dolp});
    Calibrated_transform{settings}(frame.view(), planes.views());
    Measured_light result;
    for (std::uint16_t const azimuth : planes.integer_plane(Plane::azimuth)) {
        result.angles.push_back(angle_of_azimuth(azimuth, settings.scale));
    }
    for (std::uint16_t const dolp : planes.integer_plane(Plane::dolp)) {
        result.degrees.push_back(degree_of_dolp(dolp, settings.scale));
    }
    return result;
}

Frame rows_of(Frame const& frame, Region const& region) {
    auto const first =
        frame.samples.begin() + static_cast<std::ptrdiff_t>(region.row * frame.width);
    return {
        frame.width,
        region.height,
        {first, first + static_cast<std::ptrdiff_t>(region.height * frame.width)}};
}

} // namespace truth
