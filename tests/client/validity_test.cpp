// Marks of whole frames against a search of each pixel's four samples.

#include "sensor_with_maps.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/frame_transform.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"
#include "veldrane_mrv/polarization/validity.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <random>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr std::uint8_t untouched = 77;

using Samples = std::vector<std::uint16_t>;

// To the right and below, in the last column to the left, in the last row above.
std::vector<std::uint16_t> neighbourhood(Frame_view const& frame, std::size_t pixel) {
    std::size_t const row = pixel / frame.width();
    std::size_t const column = pixel % frame.width();
    std::size_t const other_row = row + 1 < frame.height() ? row + 1 : row - 1;
    std::size_t const other_column = column + 1 < frame.width() ? column + 1 : column - 1;
    return {
        frame(row, column), frame(row, other_column), frame(other_row, column),
        frame(other_row, other_column)};
}

TEST(Validity, marks_every_neighbourhood_of_a_saturated_sample_and_none_else) {
    std::mt19937 random{1};
    std::size_t pixels = 0;
    std::size_t marked = 0;
    for (Size const& size : {Size{2, 2}, {3, 2}, {16, 3}, {17, 16}, {64, 33}, {131, 8}}) {
        for (Mode const mode : {Mode::fast, Mode::calibrated}) {
            for (unsigned const level : {1023U, 1024U, 65535U}) {
                Samples samples(size.width * size.height);
                std::ranges::generate(samples, [&] {
                    return static_cast<std::uint16_t>(random() % 9 == 0 ? level : random() % 1023);
                });
                Frame_view const frame{samples, size.height, size.width};
                Frame_transform transform{
                    ideal_settings(Mosaic::from_phase(1), Scale{10}), {.mode = mode}};
                Planes planes{size.height, size.width, {Plane::validity, Plane::s0}};
                transform(frame, planes.views());
                for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
                    bool const is_saturated = std::ranges::any_of(
                        neighbourhood(frame, pixel), [](auto sample) { return sample >= 1023; });
                    ASSERT_EQ(
                        planes.views().validity[pixel],
                        is_saturated ? bit_of(Validity::saturated) : 0)
                        << pixel << " of " << to_string(size);
                    ++pixels;
                    marked += is_saturated ? 1 : 0;
                }
            }
        }
    }
    std::cout << marked << " of " << pixels << " pixels saturated\n";
}

// What the tables say of one sample.
std::uint8_t marks_of(
    Sensor_tables const& tables, std::size_t row, std::size_t column, std::uint16_t sample) {
    bool const is_full = sample >= 4095 || tables.corrected(row, column, sample) == 65535;
    return static_cast<std::uint8_t>(
        (is_full ? 1 : 0) + (tables.is_below_dark(row, column, sample) ? 2 : 0) +
        (tables.is_bad(row, column) ? 4 : 0));
}

TEST(Validity, marks_what_the_calibration_of_single_pixels_knows) {
    Size const size{.width = 131, .height = 60};
    std::mt19937 random{4};
    std::array<std::size_t, 8> found{};
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        auto const tables = std::make_shared<Sensor_tables const>(
            client_test::sensor_with_maps(model, size, 5), Region{0, 0, 131, 60});
        Settings settings{Mosaic::from_phase(2), Scale{12}, tables->position_matrices()};
        settings.tables = tables;
        Samples samples(size.width * size.height);
        std::ranges::generate(samples, [&] {
            auto const kind = random() % 10;
            return static_cast<std::uint16_t>(
                kind == 0   ? 3500 + random() % 596
                : kind == 1 ? random() % 200
                            : 200 + random() % 2000);
        });
        Frame_view const frame{samples, size.height, size.width};
        Planes planes{size.height, size.width, {Plane::validity}};
        Frame_transform{settings, {.mode = Mode::calibrated}}(frame, planes.views());
        for (std::size_t row = 0; row < size.height; ++row) {
            std::size_t const other_row = row + 1 < size.height ? row + 1 : row - 1;
            for (std::size_t column = 0; column < size.width; ++column) {
                std::size_t const other = column + 1 < size.width ? column + 1 : column - 1;
                unsigned expected = 0;
                for (std::size_t const r : {row, other_row}) {
                    for (std::size_t const c : {column, other}) {
                        expected |= marks_of(*tables, r, c, frame(r, c));
                    }
                }
                ASSERT_EQ(planes.views().validity[row * size.width + column], expected)
                    << "row " << row << ", column " << column;
                ++found[expected];
            }
        }
    }
    for (std::size_t marks = 0; marks < found.size(); ++marks) {
        std::cout << found[marks] << " pixels with " << marks << '\n';
        EXPECT_GT(found[marks], 0);
    }
}

TEST(Validity, leaves_the_other_planes_to_the_processor) {
    Samples samples(64 * 40);
    std::mt19937 random{2};
    std::ranges::generate(samples, [&] { return static_cast<std::uint16_t>(random() % 1024); });
    Frame_view const frame{samples, 40, 64};
    Settings const settings = ideal_settings(Mosaic::from_phase(3), Scale{10});
    for (Mode const mode : {Mode::fast, Mode::calibrated}) {
        Frame_transform transform{settings, {.mode = mode}};
        Planes plain{40, 64, {Plane::s0, Plane::dolp}};
        Planes more{40, 64, {Plane::s0, Plane::dolp, Plane::validity}};
        transform(frame, plain.views());
        transform(frame, more.views());
        for (Plane const plane : {Plane::s0, Plane::dolp}) {
            EXPECT_TRUE(std::ranges::equal(plain.integer_plane(plane), more.integer_plane(plane)));
        }
    }
}

// Flat light of S0 = 2000 samples, with the scatter of 10 electrons a count.
Samples scattered_frame(double degree) {
    std::array<double, 4> const means = {1000 * (1 + degree), 1000.0, 1000.0, 1000 * (1 - degree)};
    std::mt19937 random{3};
    std::normal_distribution<double> normal;
    Samples samples(100 * 100);
    for (std::size_t pixel = 0; pixel < samples.size(); ++pixel) {
        double const mean = means[cell_position(pixel / 100, pixel % 100)];
        samples[pixel] =
            static_cast<std::uint16_t>(mean + std::sqrt(mean / 10) * normal(random) + 0.5);
    }
    return samples;
}

std::size_t weak_pixels(double degree, std::optional<Noise_model> const& noise) {
    Samples const samples = scattered_frame(degree);
    Settings settings = ideal_settings(Mosaic::from_phase(0), Scale{12});
    settings.noise = noise;
    std::vector<std::uint8_t> marks(samples.size());
    Validity_marker{settings, Mode::fast}({samples, 100, 100}, marks);
    return static_cast<std::size_t>(std::ranges::count(marks, bit_of(Validity::weak)));
}

TEST(Validity, calls_a_degree_weak_that_cannot_be_told_from_none) {
    Noise_model const noise{.electrons_per_count = 10, .read_noise = 0};
    // Of unpolarised light exp(-9 / 2) of the pixels seem polarised: 111 of 10000.
    EXPECT_NEAR(static_cast<double>(weak_pixels(0, noise)), 9889, 60);
    // Three deviations of sqrt(200) / 2000. Noise makes most degrees larger than they are.
    EXPECT_NEAR(static_cast<double>(weak_pixels(0.0212, noise)), 4300, 400);
    EXPECT_EQ(weak_pixels(0.1, noise), 0);
    EXPECT_EQ(weak_pixels(0, std::nullopt), 0);
}

TEST(Validity, calls_the_dark_weak) {
    Samples const samples(16 * 4);
    Settings settings = ideal_settings(Mosaic::from_phase(0), Scale{12});
    settings.noise.emplace();
    std::vector<std::uint8_t> marks(samples.size());
    Validity_marker{settings, Mode::calibrated}({samples, 4, 16}, marks);
    EXPECT_EQ(std::ranges::count(marks, bit_of(Validity::weak)), 64);
}

TEST(Validity, is_not_written_if_the_call_is_refused) {
    Samples const samples(40 * 64, 100);
    std::vector<std::uint8_t> marks(samples.size() - 1, untouched);
    std::vector<float> deviations(3 * samples.size(), untouched);
    Frame_transform transform{ideal_settings(Mosaic::from_phase(1), Scale{12})};
    EXPECT_THROW(transform({samples, 40, 64}, {.validity = marks}), Argument_error);
    marks.push_back(untouched);
    // There is no noise model.
    EXPECT_THROW(
        transform({samples, 40, 64}, {.validity = marks, .uncertainty = deviations}),
        Argument_error);
    EXPECT_EQ(std::ranges::count(marks, untouched), 2560);
    EXPECT_EQ(std::ranges::count(deviations, untouched), 3 * 2560);
}

TEST(Validity, has_names) {
    std::string names;
    for (Validity const bit : all_validity_bits) {
        names += name_of(bit);
        names += ' ' + std::to_string(bit_of(bit)) + ' ';
    }
    EXPECT_EQ(names, "saturated 1 below_dark 2 bad_pixel 4 weak 8 ");
    EXPECT_EQ(name_of(Validity::valid), "valid");
}

} // namespace
