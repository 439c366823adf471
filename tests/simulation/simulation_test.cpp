// The simulated frame: physics of the scene, statistics of the noise, sampling, determinism.
#include "veldrane_mrv/polarization/simulation.hpp"

#include "veldrane_mrv/polarization/imperfect_pixels.hpp"
#include "veldrane_mrv/polarization/scene.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <numbers>
#include <utility>

namespace {

namespace polarization = veldrane_mrv::polarization;
using namespace polarization;

TEST(Fresnel, known_values_of_glass) {
    Fresnel_reflectances const normal = fresnel_reflectances(1.0, 1.5);
    EXPECT_NEAR(normal.perpendicular, 0.04, 1e-12);
    EXPECT_NEAR(normal.parallel, 0.04, 1e-12);
    Fresnel_reflectances const brewster = fresnel_reflectances(std::cos(std::atan(1.5)), 1.5);
    EXPECT_NEAR(brewster.parallel, 0.0, 1e-12);
    EXPECT_NEAR(brewster.perpendicular, 25.0 / 169.0, 1e-12);
    Fresnel_reflectances const grazing = fresnel_reflectances(0.0, 1.5);
    EXPECT_NEAR(grazing.perpendicular, 1.0, 1e-12);
    EXPECT_NEAR(grazing.parallel, 1.0, 1e-12);
}

// Closed forms of the degree of polarisation over the viewing angle, from the literature on shape
// from polarisation.
TEST(Fresnel, degrees_of_reflected_and_emerging_light) {
    double const n = 1.5;
    for (double angle = 0.05; angle < 1.55; angle += 0.05) {
        Fresnel_reflectances const r = fresnel_reflectances(std::cos(angle), n);
        double const s2 = std::sin(angle) * std::sin(angle);
        double const root = std::sqrt(n * n - s2);
        double const reflected =
            2 * s2 * std::cos(angle) * root / (n * n - s2 - n * n * s2 + 2 * s2 * s2);
        double const emerging =
            (n - 1 / n) * (n - 1 / n) * s2 /
            (2 + 2 * n * n - (n + 1 / n) * (n + 1 / n) * s2 + 4 * std::cos(angle) * root);
        double const difference = r.perpendicular - r.parallel;
        double const sum = r.perpendicular + r.parallel;
        EXPECT_NEAR(difference / sum, reflected, 1e-9) << angle;
        EXPECT_NEAR(difference / (2.0 - sum), emerging, 1e-9) << angle;
    }
}

TEST(Scene, light_is_physical_everywhere) {
    std::size_t points = 0;
    for (auto const& [width, height] : {std::pair<std::size_t, std::size_t>{320, 256}, {2, 2}}) {
        Scene const scene(width, height);
        for (std::size_t row = 0; row < height; ++row) {
            for (std::size_t column = 0; column < width; ++column, ++points) {
                Stokes const light = scene.at(row, column);
                ASSERT_GT(light.s0, 0.0);
                ASSERT_LE(std::hypot(light.s1, light.s2), light.s0);
            }
        }
    }
    std::printf("%zu points\n", points);
}

// On the dark upper part of the ball reflection wins, and its electric vector lies across the
// normal's azimuth: at the top of the ball horizontally, at its right side vertically.
TEST(Scene, angle_on_the_ball_follows_its_surface) {
    Scene const scene(1001, 1001);
    Stokes const top = scene.at(500 - 320, 500);
    EXPECT_GT(top.s1, 0.15 * top.s0);
    EXPECT_NEAR(top.s2, 0.0, 1e-9);
    Stokes const right = scene.at(500, 500 + 320);
    EXPECT_LT(right.s1, -0.15 * right.s0);
    Stokes const upper_right = scene.at(500 - 230, 500 + 230);
    EXPECT_LT(upper_right.s2, -0.15 * upper_right.s0); // across 45 degrees
}

TEST(Scene, neighbouring_points_differ_little) {
    Scene const scene(1200, 1000);
    double largest = 0.0;
    for (std::size_t row = 0; row < 1000; ++row) {
        Stokes last = scene.at(row, 0);
        for (std::size_t column = 1; column < 1200; ++column) {
            Stokes const here = scene.at(row, column);
            largest = std::max(
                {largest, std::abs(here.s0 - last.s0), std::abs(here.s1 - last.s1),
                 std::abs(here.s2 - last.s2)});
            last = here;
        }
    }
    EXPECT_LT(largest, 0.2);
}

TEST(Simulation, deviates_have_mean_0_and_variance_1) {
    constexpr std::uint64_t draws = 200000;
    double sum = 0.0;
    double squares = 0.0;
    double products = 0.0;
    double previous = 0.0;
    for (std::uint64_t draw = 0; draw < draws; ++draw) {
        double const deviate = normal_deviate(5, draw);
        sum += deviate;
        squares += deviate * deviate;
        products += deviate * previous;
        previous = deviate;
    }
    EXPECT_NEAR(sum / draws, 0.0, 0.01);
    EXPECT_NEAR(squares / draws, 1.0, 0.015);
    EXPECT_NEAR(products / draws, 0.0, 0.01);
    EXPECT_NE(normal_deviate(5, 0), normal_deviate(6, 0));
}

// Literals: they must come out alike on every platform and in every build.
TEST(Simulation, deviates_are_the_same_everywhere) {
    EXPECT_EQ(normal_deviate(1, 0) * 65536.0, 11886.0);
    EXPECT_EQ(normal_deviate(1, 1) * 65536.0, 17115.0);
    EXPECT_EQ(normal_deviate(~0ULL, 5013504) * 65536.0, -16247.0);
}

TEST(Simulation, same_seed_same_frame_other_seed_other_frame) {
    Simulation_settings settings;
    settings.width = 200;
    settings.height = 120;
    Simulation const first = simulate(settings);
    Simulation const again = simulate(settings);
    EXPECT_EQ(first.frame.samples, again.frame.samples);
    EXPECT_EQ(first.truth.angle, again.truth.angle);
    settings.seed = 2;
    Simulation const other = simulate(settings);
    EXPECT_NE(first.frame.samples, other.frame.samples);
    EXPECT_EQ(first.truth.s0, other.truth.s0);
}

TEST(Simulation, samples_are_the_truth_behind_each_polariser) {
    int checked = 0;
    for (int phase = 0; phase < 4; ++phase) {
        auto const mosaic = polarization::Mosaic::from_phase(phase);
        Simulation_settings settings;
        settings.width = 90;
        settings.height = 70;
        settings.phase = phase;
        settings.bit_depth = 16;
        settings.noise = false;
        Simulation const made = simulate(settings);
        for (std::size_t index = 0; index < made.frame.samples.size(); ++index, ++checked) {
            int const angle = mosaic.angle(index / 90, index % 90);
            double const p = static_cast<double>(made.truth.degree[index]);
            double const phi = static_cast<double>(made.truth.angle[index]);
            double const expected = static_cast<double>(made.truth.s0[index]) / 2.0 *
                                    (1.0 + p * std::cos((angle - phi) * std::numbers::pi / 90.0));
            ASSERT_NEAR(made.frame.samples[index], expected, 0.52) << index;
        }
    }
    std::printf("%d samples checked\n", checked);
}

TEST(Simulation, truth_planes_agree_with_each_other) {
    Simulation_settings settings;
    settings.width = 150;
    settings.height = 130;
    Truth const truth = simulate(settings).truth;
    for (std::size_t index = 0; index < truth.s0.size(); ++index) {
        double const s1 = static_cast<double>(truth.s1[index]);
        double const s2 = static_cast<double>(truth.s2[index]);
        double const length = std::hypot(s1, s2);
        double const doubled = static_cast<double>(truth.angle[index]) * std::numbers::pi / 90.0;
        ASSERT_NEAR(
            static_cast<double>(truth.degree[index]), length / static_cast<double>(truth.s0[index]),
            1e-5);
        ASSERT_NEAR(length * std::cos(doubled), s1, 1e-3 + 1e-5 * length);
        ASSERT_NEAR(length * std::sin(doubled), s2, 1e-3 + 1e-5 * length);
        ASSERT_GE(truth.angle[index], 0.0F);
        ASSERT_LT(truth.angle[index], 180.0F);
    }
}

TEST(Simulation, brightest_sample_stays_below_saturation_at_every_depth) {
    for (int bit_depth = 8; bit_depth <= 16; ++bit_depth) {
        Simulation_settings settings;
        settings.width = 400;
        settings.height = 300;
        settings.bit_depth = bit_depth;
        auto const samples = simulate(settings).frame.samples;
        double const full_scale = std::pow(2.0, bit_depth) - 1.0;
        double const brightest = *std::max_element(samples.begin(), samples.end());
        EXPECT_LT(brightest, 0.9 * full_scale) << "bit depth " << bit_depth;
        EXPECT_GT(brightest, 0.7 * full_scale) << "bit depth " << bit_depth;
    }
}

// Shot noise: the variance is the number of electrons. In the dark the read noise shows as well.
TEST(Simulation, noise_has_the_variance_of_counted_electrons_and_of_reading) {
    Simulation_settings settings;
    settings.width = 1200;
    settings.height = 1000;
    settings.bit_depth = 16;
    auto const noisy = simulate(settings).frame.samples;
    settings.noise = false;
    auto const clean = simulate(settings).frame.samples;
    constexpr double dark = 600.0;
    double sums[2] = {0.0, 0.0};
    double counts[2] = {0.0, 0.0};
    for (std::size_t index = 0; index < clean.size(); ++index) {
        double const electrons = clean[index] / 65535.0 * 10500.0;
        double const deviation = (noisy[index] - clean[index]) / 65535.0 * 10500.0;
        std::size_t const part = electrons < dark ? 0 : 1;
        sums[part] += deviation * deviation / (electrons + 2.4 * 2.4);
        counts[part] += 1.0;
    }
    std::printf(
        "variance as part of the expected one: %.4f of %.0f dark, %.4f of %.0f bright samples\n",
        sums[0] / counts[0], counts[0], sums[1] / counts[1], counts[1]);
    EXPECT_NEAR(sums[0] / counts[0], 1.0, 0.008);
    EXPECT_NEAR(sums[1] / counts[1], 1.0, 0.008);
}

// Of FNV-1a over the samples: what users have simulated is simulated again, to the bit.
TEST(Simulation, frames_are_the_same_everywhere) {
    Simulation_settings settings;
    settings.width = 64;
    settings.height = 48;
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (std::uint16_t const sample : simulate(settings).frame.samples) {
        hash = (hash ^ sample) * 0x100000001B3U;
    }
    EXPECT_EQ(hash, 0xA3D91442618B803EU);
}

// The photon transfer curve, from dark to bright; the rounding adds a twelfth.
TEST(Simulation, flat_frames_scatter_by_the_noise_model) {
    Simulation_settings settings;
    settings.width = 300;
    settings.height = 200;
    Pixel_spread spread;
    spread.dark_spread = 0.0;
    spread.dark_level = 40.0;
    settings.electrons_per_count = 0.7;
    settings.read_noise = 3.5;
    Calibration const sensor = imperfect_pixels(settings, spread);
    EXPECT_EQ(sensor.noise, (Noise_model{0.7, 3.5}));
    settings.pixels = std::make_shared<Sensor_pixels const>(sensor);
    for (double const level : {0.0, 0.05, 0.4, 0.8}) {
        Light const light = flat_light(settings, level);
        auto const first = record(light, settings, 0).samples;
        auto const second = record(light, settings, 1).samples;
        double mean = 0.0;
        double variance = 0.0;
        auto const count = static_cast<double>(first.size());
        for (std::size_t index = 0; index < first.size(); ++index) {
            double const apart = first[index] - second[index];
            mean += (first[index] + second[index]) / 2.0 / count;
            variance += apart * apart / 2.0 / count;
        }
        double const expected = (mean - 40.0) / 0.7 + 3.5 * 3.5 / 0.7 / 0.7 + 1.0 / 12.0;
        std::printf(
            "level %.2f: mean %.1f, variance %.2f of %.2f\n", level, mean, variance, expected);
        EXPECT_NEAR(mean, 40.0 + level * 4095.0, 0.1 + 0.001 * level * 4095.0);
        EXPECT_NEAR(variance, expected, 0.025 * expected);
    }
}

TEST(Simulation, frames_of_a_run_differ_by_their_noise_alone) {
    Simulation_settings settings;
    settings.width = 100;
    settings.height = 80;
    Light const light = scene_light(settings);
    EXPECT_EQ(record(light, settings, 0).samples, simulate(settings).frame.samples);
    EXPECT_NE(record(light, settings, 1).samples, record(light, settings, 0).samples);
    settings.noise = false;
    EXPECT_EQ(record(light, settings, 1).samples, record(light, settings, 0).samples);
}

TEST(Simulation, imperfect_analysers_stay_within_their_spread) {
    Analyser_spread spread;
    double lowest = 2.0;
    double highest = 0.0;
    for (spread.seed = 0; spread.seed < 500; ++spread.seed) {
        Analysers const analysers = imperfect_analysers(2, spread);
        double mean = 0.0;
        for (std::size_t position = 0; position < 4; ++position) {
            polarization::Analyser const& analyser = analysers[position];
            int const nominal =
                polarization::Mosaic::from_phase(2).angle(position / 2, position % 2);
            mean += analyser.throughput / 4.0;
            ASSERT_NEAR(analyser.throughput, 1.0, 0.1 / 0.95);
            ASSERT_GE(analyser.diattenuation, 0.85);
            ASSERT_LE(analyser.diattenuation, 0.99);
            ASSERT_LE(std::abs(std::remainder(analyser.orientation - nominal, 180.0)), 3.0);
            ASSERT_GE(analyser.orientation, 0.0);
            lowest = std::min(lowest, analyser.diattenuation);
            highest = std::max(highest, analyser.diattenuation);
        }
        ASSERT_NEAR(mean, 1.0, 1e-12);
    }
    std::printf("diattenuations from %.4f to %.4f\n", lowest, highest);
    EXPECT_LT(lowest, 0.852);
    EXPECT_GT(highest, 0.988);
}

// Malus' law with throughput and contrast, on a source behind a polariser.
TEST(Simulation, samples_of_imperfect_analysers_follow_their_figures) {
    Simulation_settings settings;
    settings.width = 20;
    settings.height = 10;
    settings.bit_depth = 16;
    settings.noise = false;
    settings.analysers = imperfect_analysers(0, {});
    std::size_t checked = 0;
    for (double angle = 0.0; angle < 180.0; angle += 11.0) {
        auto const samples = record(uniform_light(settings, angle), settings).samples;
        for (std::size_t index = 0; index < samples.size(); ++index, ++checked) {
            polarization::Analyser const& analyser =
                (*settings.analysers)[polarization::cell_position(index / 20, index % 20)];
            double const apart = (angle - analyser.orientation) * std::numbers::pi / 90.0;
            double const expected = 0.8 * 65535.0 * analyser.throughput / 2.0 *
                                    (1.0 + analyser.diattenuation * std::cos(apart));
            ASSERT_NEAR(samples[index], expected, 0.51);
        }
    }
    std::printf("%zu samples checked\n", checked);
}

// Ctrl-C must not wait for a frame's end, however large the frame.
TEST(Simulation, what_a_check_throws_ends_each_step_at_once) {
    struct Stopped {};
    Simulation_settings settings;
    settings.width = 300;
    settings.height = 200;
    Light const light = scene_light(settings);
    std::size_t calls = 0;
    std::size_t last_call = ~std::size_t{0};
    Stop_check const check = [&] {
        if (++calls == last_call) {
            throw Stopped{};
        }
    };
    auto const scene = [&] { scene_light(settings, check); };
    auto const frame = [&] { record(light, settings, 0, check); };
    auto const truth = [&] { truth_of(light, check); };
    auto const steps = std::to_array<std::pair<std::function<void()>, std::size_t>>(
        {{scene, 200}, {frame, 200}, {truth, 300 * 200 / 4096 + 1}});
    for (auto const& [step, expected] : steps) {
        calls = 0;
        last_call = ~std::size_t{0};
        step();
        EXPECT_EQ(calls, expected);
        calls = 0;
        last_call = 5;
        EXPECT_THROW(step(), Stopped);
        EXPECT_EQ(calls, 5U);
    }
}

} // namespace
