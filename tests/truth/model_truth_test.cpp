// How near each calibration model comes to the light that the simulation knows: a sensor of which
// no two pixels are alike, calibrated from a series with noise, then frames of known light.
#include "simulated_bench.hpp"

#include "veldrane_mrv/polarization/photon_transfer.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;
using truth::Bench;
using truth::Errors;

// Each made once for all tests of a process.
Bench const& bench() {
    static Bench const made;
    return made;
}

Calibration const& by_gain() {
    static Calibration const made = bench().calibrated(Calibration_model::gain).calibration;
    return made;
}

Calibration const& by_pixel() {
    static Calibration const made = bench().calibrated(Calibration_model::pixel).calibration;
    return made;
}

Calibration by_position() {
    Calibration calibration = by_pixel();
    calibration.model = Calibration_model::position;
    calibration.maps = nullptr;
    return calibration;
}

struct Row {
    Errors systematic;
    Errors noisy;
};

Row print_row(char const* model, Calibration const& calibration) {
    Row const row{bench().errors(calibration, false), bench().errors(calibration, true)};
    std::printf(
        "%-9s systematic %.5f %7.4f deg, with noise %.5f %7.4f deg, %zu pixels\n", model,
        row.systematic.degree, row.systematic.angle, row.noisy.degree, row.noisy.angle,
        row.noisy.pixels);
    return row;
}

TEST(Model_truth, pixel_reaches_the_noise_floor_and_a_fifth_of_the_systematic_error) {
    std::printf("rms errors of degree and angle\n");
    Row const position = print_row("position", by_position());
    Row const gain = print_row("gain", by_gain());
    Row const pixel = print_row("pixel", by_pixel());
    Row const floor = print_row("true maps", bench().true_sensor());
    EXPECT_LT(floor.systematic.degree, 0.0005); // samples are rounded
    EXPECT_LT(pixel.systematic.degree, position.systematic.degree / 5.0);
    EXPECT_LT(pixel.systematic.angle, position.systematic.angle / 5.0);
    EXPECT_LT(gain.systematic.degree, position.systematic.degree);
    EXPECT_LT(gain.systematic.angle, position.systematic.angle);
    EXPECT_LT(pixel.noisy.degree, 1.03 * floor.noisy.degree);
    EXPECT_LT(pixel.noisy.angle, 1.03 * floor.noisy.angle);
    EXPECT_GT(position.noisy.degree, 1.1 * floor.noisy.degree);
}

TEST(Model_truth, maps_measured_are_those_of_the_sensor) {
    Calibration_maps const& expected = *bench().true_sensor().maps;
    Calibration_maps const& found = *by_pixel().maps;
    EXPECT_TRUE(std::includes(
        found.bad_pixels.begin(), found.bad_pixels.end(), expected.bad_pixels.begin(),
        expected.bad_pixels.end()));
    std::printf("%zu bad pixels, %zu found\n", expected.bad_pixels.size(), found.bad_pixels.size());
    EXPECT_LT(found.bad_pixels.size(), expected.bad_pixels.size() + 10);
    double dark = 0.0;
    double throughput = 0.0;
    double diattenuation = 0.0;
    double orientation = 0.0;
    double count = 0.0;
    for (std::uint32_t index = 0; index < expected.dark_level.size(); ++index) {
        if (std::binary_search(found.bad_pixels.begin(), found.bad_pixels.end(), index)) {
            continue;
        }
        auto const off = [index](std::vector<float> const& a, std::vector<float> const& b) {
            return static_cast<double>(a[index]) - static_cast<double>(b[index]);
        };
        double const turned = std::remainder(off(found.orientation, expected.orientation), 180.0);
        dark += std::pow(off(found.dark_level, expected.dark_level), 2);
        throughput += std::pow(off(found.throughput, expected.throughput), 2);
        diattenuation += std::pow(off(found.diattenuation, expected.diattenuation), 2);
        orientation += turned * turned;
        count += 1.0;
    }
    std::printf(
        "rms: dark level %.4f, throughput %.5f, diattenuation %.5f, orientation %.4f degrees\n",
        std::sqrt(dark / count), std::sqrt(throughput / count), std::sqrt(diattenuation / count),
        std::sqrt(orientation / count));
    EXPECT_LT(std::sqrt(dark / count), 0.2);
    EXPECT_LT(std::sqrt(throughput / count), 0.002);
    EXPECT_LT(std::sqrt(diattenuation / count), 0.003);
    EXPECT_LT(std::sqrt(orientation / count), 0.1);
}

TEST(Model_truth, a_part_of_the_rows_is_calibrated_as_in_the_whole) {
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration const& whole = model == Calibration_model::gain ? by_gain() : by_pixel();
        Region const region{0, 63, 256, 48}; // an odd row: the cell is another one there
        Calibration const part = bench().calibrated(model, region).calibration;
        EXPECT_EQ(part.maps->region, region);
        Frame const frame = truth::rows_of(
            record(uniform_light(bench().settings(), 30.0), bench().settings(), 5000), region);
        auto const by_part = truth::measured_light(frame, part, region);
        auto const by_whole = truth::measured_light(frame, whole, region);
        double degree = 0.0;
        double angle = 0.0;
        for (std::size_t index = 0; index < by_part.degrees.size(); ++index) {
            degree = std::max(degree, std::abs(by_part.degrees[index] - by_whole.degrees[index]));
            angle = std::max(
                angle,
                std::abs(std::remainder(by_part.angles[index] - by_whole.angles[index], 180)));
        }
        std::printf(
            "%s: at most %.5f and %.4f degrees between part and whole\n",
            std::string(name_of(model)).c_str(), degree, angle);
        // The gain model's four analysers are means over 3072 pixels here, over 12288 there.
        EXPECT_LT(degree, model == Calibration_model::gain ? 0.003 : 0.001);
        EXPECT_LT(angle, 0.05);
    }
}

TEST(Model_truth, a_pixel_has_the_same_analyser_whatever_is_measured_with_it) {
    Region const region{0, 64, 256, 32};
    Calibration_maps const& whole = *by_pixel().maps;
    Calibration_maps const part =
        *bench().calibrated(Calibration_model::pixel, region).calibration.maps;
    std::size_t checked = 0;
    for (std::uint32_t index = 0; index < part.orientation.size(); ++index) {
        std::uint32_t const same = index + 64 * 256;
        if (!std::binary_search(whole.bad_pixels.begin(), whole.bad_pixels.end(), same)) {
            ASSERT_EQ(part.dark_level[index], whole.dark_level[same]);
            // The last bits are the four positions', by whose level pixels are scaled.
            ASSERT_NEAR(part.diattenuation[index], whole.diattenuation[same], 1e-6);
            ASSERT_NEAR(part.orientation[index], whole.orientation[same], 3e-5);
            ++checked;
        }
    }
    std::printf("%zu pixels\n", checked);
}

TEST(Model_truth, photon_transfer_finds_the_noise) {
    Photon_transfer_options options;
    options.bit_depth = bench().settings().bit_depth;
    options.dark_levels.fill(60.0);
    std::vector<Photon_transfer_point> points;
    for (std::uint64_t level = 0; level <= 6; ++level) {
        Light const light = flat_light(bench().settings(), 0.13 * static_cast<double>(level));
        Frame const first = record(light, bench().settings(), 6000 + 2 * level);
        Frame const second = record(light, bench().settings(), 6001 + 2 * level);
        points.push_back(measure_pair({first.view(), second.view()}, options));
    }
    Noise_model const found = fit_photon_transfer(points).noise;
    Noise_model const expected = noise_of(bench().settings());
    std::printf(
        "%.4f of %.4f electrons per count, read noise %.3f of %.3f electrons\n",
        found.electrons_per_count, expected.electrons_per_count, found.read_noise,
        expected.read_noise);
    EXPECT_NEAR(found.electrons_per_count, expected.electrons_per_count, 0.02 * 2.564);
    EXPECT_NEAR(found.read_noise, expected.read_noise, 0.02 * 2.4);
}

} // namespace
