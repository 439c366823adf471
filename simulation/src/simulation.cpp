#include "veldrane_mrv/polarization/simulation.hpp"

#include "veldrane_mrv/polarization/units.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace veldrane_mrv::polarization {
namespace {

constexpr double exposure = 0.8;              // brightest sample, as part of the full scale
constexpr double full_well_electrons = 10500; // electrons of a sample at the full scale
constexpr double read_noise_electrons = 2.4;
constexpr std::size_t pixels_between_checks = 4096;
constexpr std::uint64_t golden_step = 0x9E3779B97F4A7C15U;

void call(Stop_check const& check_stop) {
    if (check_stop) {
        check_stop();
    }
}

// Steele, Lea & Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014.
std::uint64_t scramble(std::uint64_t x) {
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9U;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBU;
    return x ^ (x >> 31);
}

double sum_of_four_parts(std::uint64_t word) {
    return static_cast<double>(
        (word & 0xFFFFU) + ((word >> 16) & 0xFFFFU) + ((word >> 32) & 0xFFFFU) + (word >> 48));
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
double with_noise(double sample, double full_scale, double deviate) {
    double const electrons = sample / full_scale * full_well_electrons;
    double const variance = electrons + read_noise_electrons * read_noise_electrons;
    return (electrons + std::sqrt(variance) * deviate) / full_well_electrons * full_scale;
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

double full_scale_of(Simulation_settings const& settings) {
    return static_cast<double>((1U << settings.bit_depth) - 1U);
}

// Between 0 and 1, evenly distributed.
double uniform_number(std::uint64_t seed, std::uint64_t draw) {
    constexpr double step = 1.0 / 9007199254740992.0; // 2^-53
    return static_cast<double>(scramble(scramble(seed) + golden_step * (draw + 1)) >> 11) * step;
}

} // namespace

double normal_deviate(std::uint64_t seed, std::uint64_t draw) {
    // The sum of twelve uniform numbers has variance 1 and is normal to well below the quantisation
    // of a sample; it needs no logarithm or sine, whose last bits differ between libraries.
    constexpr double uniform_step = 1.0 / 65536.0;
    std::uint64_t const start = scramble(seed + golden_step) + 3 * draw * golden_step;
    double sum = 0.0;
    for (std::uint64_t word = 1; word <= 3; ++word) {
        sum += sum_of_four_parts(scramble(start + word * golden_step));
    }
    return (sum + 6.0) * uniform_step - 6.0;
}

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

Frame record(
    Light const& light, Simulation_settings const& settings, std::uint64_t number,
    Stop_check const& check_stop) {
    double const limit = full_scale_of(settings);
    std::array<Response, 4> const response = responses(settings);
    Frame frame{settings.width, settings.height, {}};
    frame.samples.reserve(light.size());
    std::uint64_t draw = number * light.size();
    for (std::size_t row = 0; row < settings.height; ++row) {
        call(check_stop);
        for (std::size_t column = 0; column < settings.width; ++column, ++draw) {
            double sample =
                response[cell_position(row, column)](light[row * settings.width + column]);
            if (settings.noise) {
                sample = with_noise(sample, limit, normal_deviate(settings.seed, draw));
            }
            frame.samples.push_back(
                static_cast<std::uint16_t>(std::clamp(sample, 0.0, limit - 1.0) + 0.5));
        }
    }
    return frame;
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
