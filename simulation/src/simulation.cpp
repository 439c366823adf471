#include "veldrane_mrv/polarization/simulation.hpp"

#include "random_numbers.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

constexpr double exposure = 0.8;              // brightest sample, as part of the full scale
constexpr double full_well_electrons = 10500; // electrons of a sample at the full scale
constexpr std::size_t pixels_between_checks = 4096;

void call(Stop_check const& check_stop) {
    if (check_stop) {
        check_stop();
    }
}

double full_scale_of(Simulation_settings const& settings) {
    return static_cast<double>((1U << settings.bit_depth) - 1U);
}

// What a pixel's analyser makes of light: t / 2 (S0 + c S1 + s S2), with c = D cos 2 phi and
// s = D sin 2 phi (Malus's law).
struct Response {
    double t;
    double c;
    double s;

    double operator()(Stokes const& light) const {
        return t * (light.s0 + c * light.s1 + s * light.s2) / 2.0;
    }
};

// For ideal analysers c and s are -1, 0 or 1, which no cosine gives exactly.
Response ideal_response(int angle) {
    constexpr std::array<double, 4> cosines = {1.0, 0.0, -1.0, 0.0};
    constexpr std::array<double, 4> sines = {0.0, 1.0, 0.0, -1.0};
    auto const eighth = static_cast<std::size_t>(angle / 45);
    return {1.0, cosines[eighth], sines[eighth]};
}

std::array<Response, 4> responses(Simulation_settings const& settings) {
    std::array<Response, 4> result = {};
    auto const mosaic = Mosaic::from_phase(settings.phase);
    for (std::size_t position = 0; position < result.size(); ++position) {
        if (settings.analysers) {
            Analyser const& analyser = (*settings.analysers)[position];
            double const doubled = analyser.orientation * std::numbers::pi / 90.0;
            result[position] = {
                analyser.throughput, analyser.diattenuation * std::cos(doubled),
                analyser.diattenuation * std::sin(doubled)};
        } else {
            result[position] = ideal_response(mosaic.angle(position / 2, position % 2));
        }
    }
    return result;
}

// Shot noise is a Poisson count. At hundreds to thousands of electrons a normal deviate of the
// same variance is as good; read noise adds to the variance.
class Noise {
public:
    explicit Noise(Simulation_settings const& settings)
        : full_scale_{full_scale_of(settings)},
          full_well_{
              settings.electrons_per_count ? *settings.electrons_per_count * full_scale_
                                           : full_well_electrons},
          read_variance_{settings.read_noise * settings.read_noise} {}

    double added_to(double signal, double deviate) const {
        // Rounding of an analyser's row lets crossed light fall below 0, which has no root.
        double const electrons = std::max(signal, 0.0) / full_scale_ * full_well_;
        double const variance = electrons + read_variance_;
        return (electrons + std::sqrt(variance) * deviate) / full_well_ * full_scale_;
    }

private:
    double full_scale_;
    double full_well_; // electrons at the full scale
    double read_variance_;
};

/// Without noise.
struct Clean_sample {
    double signal;
    double dark_level;
};

template <class Clean_samples>
Frame record_samples(
    Simulation_settings const& settings, std::uint64_t number, Stop_check const& check_stop,
    Clean_samples const& clean) {
    double const full_scale = full_scale_of(settings);
    Noise const noise(settings);
    std::size_t const pixels = settings.width * settings.height;
    Frame frame{settings.width, settings.height, {}};
    frame.samples.reserve(pixels);
    for (std::size_t row = 0; row < settings.height; ++row) {
        call(check_stop);
        for (std::size_t column = 0; column < settings.width; ++column) {
            std::size_t const index = row * settings.width + column;
            auto const [signal, dark_level] = clean(row, column, index);
            double sample = signal;
            if (settings.noise) {
                sample =
                    noise.added_to(signal, normal_deviate(settings.seed, number * pixels + index));
            }
            sample = dark_level < full_scale
                         ? std::clamp(sample + dark_level, 0.0, full_scale - 1.0)
                         : full_scale;
            frame.samples.push_back(static_cast<std::uint16_t>(sample + 0.5));
        }
    }
    return frame;
}

// Brings the brightest sample that any polariser could pass to the exposure.
void expose(Light& light, double full_scale) {
    double brightest = 0.0;
    for (Stokes const& point : light) {
        double const polarised = std::sqrt(point.s1 * point.s1 + point.s2 * point.s2);
        brightest = std::max(brightest, (point.s0 + polarised) / 2.0);
    }
    double const gain = exposure * full_scale / brightest;
    for (Stokes& point : light) {
        point = {point.s0 * gain, point.s1 * gain, point.s2 * gain};
    }
}

float angle_in_degrees(Stokes const& light) {
    double const degrees = std::atan2(light.s2, light.s1) * 90.0 / std::numbers::pi;
    auto const wrapped = static_cast<float>(within_half_turn(degrees));
    // Rounding to float may reach 180 itself, which is 0 again.
    return wrapped < 180.0F ? wrapped : 0.0F;
}

} // namespace

Light scene_light(Simulation_settings const& settings, Stop_check const& check_stop) {
    Scene const scene(settings.width, settings.height);
    Light light;
    light.reserve(settings.width * settings.height);
    for (std::size_t row = 0; row < settings.height; ++row) {
        call(check_stop);
        for (std::size_t column = 0; column < settings.width; ++column) {
            light.push_back(scene.at(row, column));
        }
    }
    expose(light, full_scale_of(settings));
    return light;
}

Light uniform_light(Simulation_settings const& settings, double angle) {
    double const level = exposure * full_scale_of(settings);
    double const doubled = angle * std::numbers::pi / 90.0;
    return Light(
        settings.width * settings.height,
        {level, level * std::cos(doubled), level * std::sin(doubled)});
}

Light flat_light(Simulation_settings const& settings, double level) {
    return Light(
        settings.width * settings.height, {2.0 * level * full_scale_of(settings), 0.0, 0.0});
}

Frame record(
    Light const& light, Simulation_settings const& settings, std::uint64_t number,
    Stop_check const& check_stop) {
    if (settings.pixels != nullptr) {
        Sensor_pixels const& pixels = *settings.pixels;
        Size const size{settings.width, settings.height};
        if (pixels.size() != size) {
            throw Argument_error(
                "the sensor's size", to_string(pixels.size()), "give maps of " + to_string(size));
        }
        if (pixels.bit_depth() != settings.bit_depth) {
            throw Argument_error(
                "the sensor's bit depth", std::to_string(pixels.bit_depth()),
                "give maps of " + std::to_string(settings.bit_depth) + " bits");
        }
        return record_samples(
            settings, number, check_stop, [&](std::size_t, std::size_t, std::size_t index) {
                return Clean_sample{pixels.signal(index, light[index]), pixels.dark_level(index)};
            });
    }
    return record_samples(
        settings, number, check_stop,
        [&,
         response = responses(settings)](std::size_t row, std::size_t column, std::size_t index) {
            return Clean_sample{response[cell_position(row, column)](light[index]), 0.0};
        });
}

Truth truth_of(Light const& light, Stop_check const& check_stop) {
    Truth truth;
    for (auto* plane : {&truth.s0, &truth.s1, &truth.s2, &truth.angle, &truth.degree}) {
        plane->reserve(light.size());
    }
    for (Stokes const& point : light) {
        if (truth.s0.size() % pixels_between_checks == 0) {
            call(check_stop);
        }
        truth.s0.push_back(static_cast<float>(point.s0));
        truth.s1.push_back(static_cast<float>(point.s1));
        truth.s2.push_back(static_cast<float>(point.s2));
        truth.angle.push_back(angle_in_degrees(point));
        truth.degree.push_back(
            static_cast<float>(std::sqrt(point.s1 * point.s1 + point.s2 * point.s2) / point.s0));
    }
    return truth;
}

Simulation simulate(Simulation_settings const& settings) {
    Light const light = scene_light(settings);
    return {record(light, settings), truth_of(light)};
}

Noise_model noise_of(Simulation_settings const& settings) {
    double const preset = full_well_electrons / full_scale_of(settings);
    return {settings.electrons_per_count.value_or(preset), settings.read_noise};
}

Analysers imperfect_analysers(int phase, Analyser_spread const& spread) {
    auto const mosaic = Mosaic::from_phase(phase);
    Analysers analysers;
    double sum = 0.0;
    for (std::size_t position = 0; position < analysers.size(); ++position) {
        auto const number = [&](std::uint64_t which) {
            return uniform_number(spread.seed, 3 * position + which);
        };
        auto const off = [](double part, double largest) { return (2.0 * part - 1.0) * largest; };
        Analyser& analyser = analysers[position];
        analyser.throughput = 1.0 + off(number(0), spread.throughput);
        analyser.diattenuation =
            spread.lowest_diattenuation +
            number(1) * (spread.highest_diattenuation - spread.lowest_diattenuation);
        double const orientation =
            mosaic.angle(position / 2, position % 2) + off(number(2), spread.orientation);
        analyser.orientation = within_half_turn(orientation);
        sum += analyser.throughput;
    }
    for (Analyser& analyser : analysers) {
        analyser.throughput *= 4.0 / sum;
    }
    return analysers;
}

} // namespace veldrane_mrv::polarization
