#include "simulation.hpp"

#include "mosaic.hpp"
#include "scene.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace polarize_tool {
namespace {

constexpr double exposure = 0.8;              // brightest sample, as part of the full scale
constexpr double full_well_electrons = 10500; // electrons of a sample at the full scale
constexpr double read_noise_electrons = 2.4;

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

// A polariser at angle t passes S0/2 (1 + p cos 2(t - phi)) = (S0 + S1 cos 2t + S2 sin 2t) / 2
// (Malus's law). At multiples of 45 degrees one of cosine and sine is 0, the other 1 or -1.
double behind_polariser(Stokes const& light, int angle) {
    switch (angle) {
    case 0:
        return (light.s0 + light.s1) / 2.0;
    case 45:
        return (light.s0 + light.s2) / 2.0;
    case 90:
        return (light.s0 - light.s1) / 2.0;
    default:
        return (light.s0 - light.s2) / 2.0;
    }
}

// Shot noise is a Poisson count. At hundreds to thousands of electrons a normal deviate of the
// same variance is as good; read noise adds to the variance.
double with_noise(double sample, double full_scale, double deviate) {
    double const electrons = sample / full_scale * full_well_electrons;
    double const variance = electrons + read_noise_electrons * read_noise_electrons;
    return (electrons + std::sqrt(variance) * deviate) / full_well_electrons * full_scale;
}

std::vector<Stokes> render(Simulation_settings const& settings) {
    Scene const scene(settings.width, settings.height);
    std::vector<Stokes> light;
    light.reserve(settings.width * settings.height);
    for (std::size_t row = 0; row < settings.height; ++row) {
        for (std::size_t column = 0; column < settings.width; ++column) {
            light.push_back(scene.at(row, column));
        }
    }
    return light;
}

// Brings the brightest sample that any polariser could pass to the exposure.
void expose(std::vector<Stokes>& light, double full_scale) {
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
    auto const wrapped = static_cast<float>(degrees < 0.0 ? degrees + 180.0 : degrees);
    // Rounding to float may reach 180 itself, which is 0 again.
    return wrapped < 180.0F ? wrapped : 0.0F;
}

Truth truth_of(std::vector<Stokes> const& light) {
    Truth truth;
    for (auto* plane : {&truth.s0, &truth.s1, &truth.s2, &truth.angle, &truth.degree}) {
        plane->reserve(light.size());
    }
    for (Stokes const& point : light) {
        truth.s0.push_back(static_cast<float>(point.s0));
        truth.s1.push_back(static_cast<float>(point.s1));
        truth.s2.push_back(static_cast<float>(point.s2));
        truth.angle.push_back(angle_in_degrees(point));
        truth.degree.push_back(
            static_cast<float>(std::sqrt(point.s1 * point.s1 + point.s2 * point.s2) / point.s0));
    }
    return truth;
}

Frame record(std::vector<Stokes> const& light, Simulation_settings const& settings, double limit) {
    Frame frame{settings.width, settings.height, {}};
    frame.samples.reserve(light.size());
    for (std::size_t row = 0; row < settings.height; ++row) {
        for (std::size_t column = 0; column < settings.width; ++column) {
            std::size_t const index = row * settings.width + column;
            double sample =
                behind_polariser(light[index], polariser_angle(settings.phase, row, column));
            if (settings.noise) {
                sample = with_noise(sample, limit, normal_deviate(settings.seed, index));
            }
            frame.samples.push_back(
                static_cast<std::uint16_t>(std::clamp(sample, 0.0, limit - 1.0) + 0.5));
        }
    }
    return frame;
}

} // namespace

double normal_deviate(std::uint64_t seed, std::uint64_t draw) {
    // The sum of twelve uniform numbers has variance 1 and is normal to well below the quantisation
    // of a sample; it needs no logarithm or sine, whose last bits differ between libraries.
    constexpr std::uint64_t golden_step = 0x9E3779B97F4A7C15U;
    constexpr double uniform_step = 1.0 / 65536.0;
    std::uint64_t const start = scramble(seed + golden_step) + 3 * draw * golden_step;
    double sum = 0.0;
    for (std::uint64_t word = 1; word <= 3; ++word) {
        sum += sum_of_four_parts(scramble(start + word * golden_step));
    }
    return (sum + 6.0) * uniform_step - 6.0;
}

Simulation simulate(Simulation_settings const& settings) {
    double const full_scale = static_cast<double>((1U << settings.bit_depth) - 1U);
    std::vector<Stokes> light = render(settings);
    expose(light, full_scale);
    return {record(light, settings, full_scale), truth_of(light)};
}

} // namespace polarize_tool
