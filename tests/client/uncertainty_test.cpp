// Stated deviations against the scatter of simulated frames, and the fitted functions against
// numerical integration.

#include "sensor_with_maps.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/uncertainty.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <iostream>
#include <numbers>
#include <random>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr double pi = std::numbers::pi;

double integral(std::function<double(double)> const& function, double from, double to) {
    constexpr int steps = 2000;
    double const step = (to - from) / steps;
    double sum = 0;
    for (int i = 0; i < steps; ++i) {
        sum += function(from + (i + 0.5) * step);
    }
    return sum * step;
}

// Of the length of a vector of length v with a scatter of 1 in both components.
double rice(double length, double v) {
    return length * std::exp(-0.5 * (length - v) * (length - v)) * std::exp(-length * v) *
           std::cyl_bessel_i(0, length * v);
}

double moment(int power, double v) {
    return integral(
        [&](double length) { return std::pow(length, power) * rice(length, v); },
        std::max(0.0, v - 9), v + 9);
}

double median(double v) {
    double below = 0;
    double above = v + 9;
    while (above - below > 1e-6) {
        double const middle = (below + above) / 2;
        bool const is_below =
            integral([&](double length) { return rice(length, v); }, 0, middle) < 0.5;
        (is_below ? below : above) = middle;
    }
    return below;
}

// Naghizadeh-Khouei and Clarke, equation 2, of the distance from the true angle.
double angle_density(double distance, double v) {
    double const eta = v / std::numbers::sqrt2 * std::cos(2 * distance);
    double const root = std::sqrt(pi);
    return (1 / root + eta * std::exp(eta * eta) * (1 + std::erf(eta))) * std::exp(-v * v / 2) /
           root;
}

TEST(Uncertainty, follows_the_distributions_of_weak_polarisation) {
    double worst_degree = 0;
    double worst_angle = 0;
    for (double const v :
         {0.0, 0.1, 0.2, 0.4, 0.6, 0.8, 1.0, 1.3, 1.6, 2.0, 2.5, 3.0, 4.0, 5.0, 7.0, 10.0, 15.0}) {
        auto const ratio = static_cast<float>(median(v));
        double const mean = moment(1, v);
        double const of_degree = std::sqrt(moment(2, v) - mean * mean);
        double const of_angle =
            180 / pi *
            std::sqrt(integral(
                [&](double distance) { return distance * distance * angle_density(distance, v); },
                -pi / 2, pi / 2));
        worst_degree =
            std::max(worst_degree, std::abs(degree_deviation_factor(ratio) / of_degree - 1));
        // The slope of the angle over the ratio is without bound at the median of no signal.
        worst_angle = std::max(worst_angle, std::abs(angle_deviation(ratio) / of_angle - 1));
    }
    std::cout << "largest error of the degree " << worst_degree << ", of the angle " << worst_angle
              << '\n';
    EXPECT_LT(worst_degree, 0.002);
    EXPECT_LT(worst_angle, 0.003);
}

TEST(Uncertainty, tends_to_half_a_turn_without_and_to_linear_propagation_with_much_light) {
    EXPECT_NEAR(angle_deviation(0), 180 / std::sqrt(12.0), 1e-4);
    EXPECT_NEAR(angle_deviation(1), 180 / std::sqrt(12.0), 1e-4);
    EXPECT_NEAR(degree_deviation_factor(0), std::sqrt(2 - pi / 2), 1e-6);
    for (float const ratio : {1e3F, 1e5F}) {
        EXPECT_NEAR(angle_deviation(ratio) * ratio, 90 / pi, 0.01);
        EXPECT_NEAR(degree_deviation_factor(ratio), 1, 1e-5);
    }
    EXPECT_TRUE(angle_deviation(1e12F) >= 0);
    EXPECT_FLOAT_EQ(degree_deviation_factor(1e12F), 1);
}

struct Scene {
    double s0;
    double degree;
    double angle;
    Noise_model noise;
};

struct Deviations {
    std::array<double, 3> stated;
    std::array<double, 3> scatter;
};

constexpr std::size_t frames = 10'000;
constexpr std::size_t side = 200;

/// 10,000 neighbourhoods that share no sample, side by side in one frame.
std::vector<std::uint16_t> noisy_frame(
    Scene const& scene, std::array<Analyser, 4> const& analysers, std::uint64_t seed) {
    std::mt19937_64 random{seed};
    std::normal_distribution<double> read_noise{0, scene.noise.read_noise};
    std::array<std::poisson_distribution<int>, 4> electrons;
    for (std::size_t position = 0; position < 4; ++position) {
        Analyser const& analyser = analysers[position];
        double const turn = 2 * (scene.angle - analyser.orientation) * pi / 180;
        double const light = analyser.throughput / 2 * scene.s0 *
                             (1 + analyser.diattenuation * scene.degree * std::cos(turn));
        electrons[position] =
            std::poisson_distribution<int>{light * scene.noise.electrons_per_count};
    }
    std::vector<std::uint16_t> samples(side * side);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        double const counted = electrons[cell_position(pixel / side, pixel % side)](random);
        double const noisy = counted + (scene.noise.read_noise > 0 ? read_noise(random) : 0.0);
        samples[pixel] = static_cast<std::uint16_t>(
            std::clamp(std::round(noisy / scene.noise.electrons_per_count), 0.0, 4095.0));
    }
    return samples;
}

double root_mean_square(std::vector<double> const& numbers, double mean) {
    double sum = 0;
    for (double const number : numbers) {
        sum += (number - mean) * (number - mean);
    }
    return std::sqrt(sum / static_cast<double>(numbers.size()));
}

Deviations deviations_of(
    Scene const& scene, std::array<Analyser, 4> const& analysers, std::uint64_t seed) {
    std::vector<std::uint16_t> const samples = noisy_frame(scene, analysers, seed);
    Settings settings{Mosaic::from_phase(2), Scale::in_sample_units(12), matrices_of(analysers)};
    settings.noise = scene.noise;
    Planes planes{side, side, {Plane::s0, Plane::azimuth, Plane::dolp, Plane::uncertainty}};
    Frame_transform{settings, {.mode = Mode::calibrated}}({samples, side, side}, planes.views());
    std::array<std::vector<double>, 3> values;
    std::array<std::vector<double>, 3> stated;
    for (std::size_t cell = 0; cell < frames; ++cell) {
        std::size_t const pixel = 2 * (cell / (side / 2)) * side + 2 * (cell % (side / 2));
        Plane_views const views = planes.views();
        values[0].push_back(views.s0[pixel]);
        values[1].push_back(degree_of_dolp(views.dolp[pixel], settings.scale));
        values[2].push_back(std::remainder(
            angle_of_azimuth(views.azimuth[pixel], settings.scale) - scene.angle, 180));
        for (std::size_t number = 0; number < 3; ++number) {
            stated[number].push_back(static_cast<double>(views.uncertainty[3 * pixel + number]));
        }
    }
    Deviations result{};
    for (std::size_t number = 0; number < 3; ++number) {
        double sum = 0;
        for (double const value : values[number]) {
            sum += value;
        }
        // The polynomial of the angle is off by up to 0.15 degrees, the same in all frames; a weak
        // angle scatters about that of the scene.
        bool const is_weak_angle = number == 2 && scene.degree < 3 * result.scatter[1];
        result.scatter[number] = root_mean_square(values[number], is_weak_angle ? 0 : sum / frames);
        std::ranges::nth_element(stated[number], stated[number].begin() + frames / 2);
        result.stated[number] = stated[number][frames / 2];
    }
    return result;
}

std::array<Analyser, 4> ideal_analysers() {
    return ideal_calibration(Mosaic::from_phase(2)).analysers;
}

std::array<Analyser, 4> imperfect_analysers() {
    std::array<Analyser, 4> analysers = ideal_analysers();
    std::array const throughputs = {0.9, 1.05, 1.1, 0.95};
    std::array const diattenuations = {0.8, 0.95, 0.9, 0.85};
    for (std::size_t position = 0; position < 4; ++position) {
        analysers[position].throughput = throughputs[position];
        analysers[position].diattenuation = diattenuations[position];
        analysers[position].orientation += 2;
    }
    return analysers;
}

TEST(Uncertainty, states_the_scatter_of_ten_thousand_frames) {
    std::uint64_t seed = 1;
    double worst_strong = 0;
    double worst_weak = 0;
    for (auto const& analysers : {ideal_analysers(), imperfect_analysers()}) {
        // Bright enough that noise makes no degree of 1 or more, where the plane ends.
        for (double const light : {800.0, 3200.0}) {
            for (double const degree : {0.0, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.4, 0.9}) {
                Scene const scene{light, degree, 20 + 130 * degree, {light / 800, 8}};
                Deviations const found = deviations_of(scene, analysers, seed++);
                bool const is_strong = degree >= 3 * found.scatter[1];
                for (std::size_t number = 0; number < 3; ++number) {
                    double const error = std::abs(found.stated[number] / found.scatter[number] - 1);
                    double& worst = is_strong ? worst_strong : worst_weak;
                    worst = std::max(worst, error);
                    EXPECT_LT(error, is_strong ? 0.05 : 0.15)
                        << "number " << number << ", degree " << degree << ", S0 " << light
                        << ", stated " << found.stated[number] << ", scatter "
                        << found.scatter[number];
                }
            }
        }
    }
    std::cout << "largest error with a strong degree " << worst_strong << ", with a weak one "
              << worst_weak << '\n';
}

/// S0's deviation of one pixel, by the definition.
double deviation_of_s0(Frame_view const& frame, Settings const& settings, std::size_t pixel) {
    std::size_t const row = pixel / frame.width();
    std::size_t const column = pixel % frame.width();
    std::size_t const other_row = row + 1 < frame.height() ? row + 1 : row - 1;
    std::size_t const other_column = column + 1 < frame.width() ? column + 1 : column - 1;
    std::array<double, 4> const samples = {
        static_cast<double>(frame(row, column)), static_cast<double>(frame(row, other_column)),
        static_cast<double>(frame(other_row, column)),
        static_cast<double>(frame(other_row, other_column))};
    Noise_model const& noise = *settings.noise;
    double variance = 0;
    for (std::size_t sample = 0; sample < 4; ++sample) {
        double const weight =
            static_cast<double>(settings.matrices.by_position[cell_position(row, column)][sample]);
        double const read_noise = noise.read_noise / noise.electrons_per_count;
        variance +=
            weight * weight / 4 *
            (samples[sample] / noise.electrons_per_count + read_noise * read_noise + 1.0 / 12);
    }
    return std::sqrt(variance);
}

TEST(Uncertainty, takes_the_weights_and_neighbours_of_every_pixel) {
    std::mt19937 random{5};
    std::size_t pixels = 0;
    for (Size const& size : {Size{2, 2}, {3, 2}, {16, 3}, {17, 16}, {31, 5}, {64, 33}, {129, 4}}) {
        std::vector<std::uint16_t> samples(size.width * size.height);
        std::ranges::generate(samples, [&] { return static_cast<std::uint16_t>(random() % 4096); });
        Settings settings = ideal_settings(Mosaic::from_phase(2), Scale{12});
        settings.matrices = matrices_of(imperfect_analysers());
        settings.noise = {.electrons_per_count = 3, .read_noise = 7};
        Frame_view const frame{samples, size.height, size.width};
        std::vector<float> deviations(3 * samples.size());
        Frame_transform{settings, {.mode = Mode::calibrated}}(frame, {.uncertainty = deviations});
        for (std::size_t pixel = 0; pixel < samples.size(); ++pixel, ++pixels) {
            double const expected = deviation_of_s0(frame, settings, pixel);
            ASSERT_NEAR(deviations[3 * pixel], expected, 1e-4 * expected)
                << pixel << " of " << to_string(size);
        }
        Settings const ideal = [&] {
            Settings changed = settings;
            changed.matrices = ideal_matrices(settings.mosaic);
            return changed;
        }();
        Frame_transform{settings}(frame, {.uncertainty = deviations});
        double const expected = deviation_of_s0(frame, ideal, 1);
        EXPECT_NEAR(deviations[3], expected, 1e-4 * expected) << "fast mode";
    }
    std::cout << pixels << " pixels\n";
}

// By the definition, in double precision: cov = W diag(var) W^T, then the angle's deviation across
// the direction of (S1, S2), where polarisation is strong.
TEST(Uncertainty, takes_gains_and_weights_of_single_pixels) {
    Size const size{.width = 53, .height = 10};
    std::mt19937 random{6};
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration const sensor = client_test::sensor_with_maps(model, size, 7);
        auto const tables = std::make_shared<Sensor_tables const>(sensor, Region{0, 0, 53, 10}, 30);
        Settings settings{
            sensor.mosaic, Scale{12}, tables->position_matrices(), tables, Noise_model{20, 4}};
        std::vector<std::uint16_t> samples(size.width * size.height);
        std::ranges::generate(
            samples, [&] { return static_cast<std::uint16_t>(300 + random() % 3700); });
        Frame_view const frame{samples, size.height, size.width};
        std::vector<float> deviations(3 * samples.size());
        Frame_transform{settings, {.mode = Mode::calibrated}}(frame, {.uncertainty = deviations});
        for (std::size_t row = 0; row < size.height; ++row) {
            std::size_t const below = row + 1 < size.height ? row + 1 : row - 1;
            for (std::size_t column = 0; column < size.width; ++column) {
                std::size_t const beside = column + 1 < size.width ? column + 1 : column - 1;
                std::array const rows = {row, row, below, below};
                std::array const columns = {column, beside, column, beside};
                std::array<float, 16> const weights = tables->matrix(row, column);
                std::array<double, 3> stokes{};
                std::array<std::array<double, 3>, 3> covariance{};
                for (std::size_t k = 0; k < 4; ++k) {
                    std::size_t const at = rows[k] * size.width + columns[k];
                    auto const dark = static_cast<double>(sensor.maps->dark_level[at]);
                    double const gain = model == Calibration_model::gain
                                            ? static_cast<double>(sensor.maps->gain[at])
                                            : 1.0;
                    double const light = samples[at] - dark;
                    double const variance = gain * gain * (light / 20 + 0.04 + 1.0 / 12);
                    for (std::size_t i = 0; i < 3; ++i) {
                        auto const weight = static_cast<double>(weights[4 * i + k]);
                        stokes[i] += weight * light * gain;
                        for (std::size_t j = 0; j < 3; ++j) {
                            covariance[i][j] +=
                                weight * static_cast<double>(weights[4 * j + k]) * variance;
                        }
                    }
                }
                float const* const stated = deviations.data() + 3 * (row * size.width + column);
                double const expected = std::sqrt(covariance[0][0]) / 2;
                ASSERT_NEAR(stated[0], expected, 2e-3 * expected);
                double const length = std::hypot(stokes[1], stokes[2]);
                double const across = std::sqrt(
                                          (stokes[1] * stokes[1] * covariance[2][2] +
                                           stokes[2] * stokes[2] * covariance[1][1] -
                                           2 * stokes[1] * stokes[2] * covariance[1][2])) /
                                      length;
                if (length > 20 * across) {
                    double const angle = 90 / pi * across / length;
                    ASSERT_NEAR(stated[2], angle, 1e-2 * angle) << row << ' ' << column;
                }
            }
        }
    }
}

TEST(Uncertainty, is_none_of_the_degree_in_the_dark) {
    std::vector<std::uint16_t> const samples(16 * 4);
    Settings settings = ideal_settings(Mosaic::from_phase(0), Scale{12});
    settings.noise = {.electrons_per_count = 1, .read_noise = 2};
    std::vector<float> deviations(3 * samples.size());
    Uncertainty_estimator{settings, Mode::calibrated}({samples, 4, 16}, deviations);
    EXPECT_FLOAT_EQ(deviations[0], std::sqrt(4 + 1.0F / 12));
    EXPECT_TRUE(std::isnan(deviations[1]));
    EXPECT_NEAR(deviations[2], 51.96, 0.01);
}

TEST(Uncertainty, refuses_noise_that_is_none) {
    Settings settings = ideal_settings(Mosaic::from_phase(0), Scale{12});
    EXPECT_THROW(noise_of(settings), Argument_error);
    for (Noise_model const& noise :
         {Noise_model{0, 1},
          {-1, 1},
          {std::nan(""), 1},
          {HUGE_VAL, 1},
          {1, -1},
          {1, std::nan("")}}) {
        settings.noise = noise;
        EXPECT_THROW((Frame_transform{settings}), Argument_error);
    }
    settings.noise = {.electrons_per_count = 1, .read_noise = 0};
    EXPECT_EQ(noise_of(settings), *settings.noise);
}

} // namespace
