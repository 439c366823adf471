// Calibrations of single pixels: tables against the analysers that they come from, transforms with
// them against the rule of one pixel, bit for bit, and regions against the whole.

#include "guarded_planes.hpp"
#include "refusal.hpp"
#include "rule_of_one_pixel.hpp"

#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include "support/random_stream.hpp"
#include "support/samples.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <memory>
#include <numbers>

namespace client_test {
namespace {

using namespace polarization;

/// Numbers around a mean; even ones, since no bit depends on how they are distributed.
std::vector<float> numbers_around(
    double mean, double most, std::size_t count, support::Random_stream& stream) {
    std::vector<float> numbers(count);
    for (float& number : numbers) {
        double const part = static_cast<double>(stream.next() >> 11) / 9007199254740992.0;
        number = static_cast<float>(mean + (2 * part - 1) * most);
    }
    return numbers;
}

Calibration calibration_of(Calibration_model model, Size const& size, int phase, int bit_depth) {
    Calibration calibration = ideal_calibration(Mosaic::from_phase(phase));
    support::Random_stream stream{size.width * 31 + size.height};
    auto const numbers = [&](double mean, double most) {
        return numbers_around(mean, most, size.width * size.height, stream);
    };
    auto maps = std::make_shared<Calibration_maps>();
    maps->sensor = size;
    maps->region = region_of(size);
    maps->bit_depth = bit_depth;
    maps->dark_level = numbers(0.05 * (1 << bit_depth), 0.02 * (1 << bit_depth));
    if (model == Calibration_model::gain) {
        maps->gain = numbers(1, 0.1);
    } else {
        maps->throughput = numbers(1, 0.05);
        maps->diattenuation = numbers(0.95, 0.04);
        maps->orientation = numbers(0, 3);
        for (std::size_t pixel = 0; pixel < maps->orientation.size(); ++pixel) {
            double const ideal = calibration.mosaic.angle(pixel / size.width, pixel % size.width);
            float& orientation = maps->orientation[pixel];
            orientation =
                static_cast<float>(std::fmod(static_cast<double>(orientation) + ideal + 180, 180));
        }
    }
    calibration.model = model;
    calibration.maps = maps;
    return calibration;
}

Settings settings_of(
    Calibration const& calibration, Region const& region, Scale const& scale, double zero = 0) {
    auto tables = std::make_shared<Sensor_tables const>(calibration, region, zero);
    return {
        calibration.mosaic.of_region(region.row, region.column), scale, tables->position_matrices(),
        tables};
}

constexpr std::array models = {Calibration_model::gain, Calibration_model::pixel};

TEST(Sensor_tables, transform_is_the_rule_of_one_pixel_with_the_pixels_own_matrix) {
    std::size_t pixels = 0;
    std::size_t seed = 0;
    Guarded_planes guarded{600 * 9};
    for (Calibration_model const model : models) {
        for (std::size_t const height : {2U, 3U, 5U, 8U}) {
            for (std::size_t const width : {16U, 17U, 31U, 32U, 33U, 48U, 61U, 530U, 544U}) {
                int const depth = std::array{12, 8, 16, 10}[seed % 4];
                Size const size{width, height};
                Calibration const calibration = calibration_of(model, size, seed % 4, depth);
                Scale const scale = seed % 3 == 0 ? Scale::in_sample_units(depth) : Scale{depth};
                Settings const settings = settings_of(calibration, region_of(size), scale);
                support::Samples const samples = support::make_samples(
                    support::Sample_kind::random_16_bit, height, width, ++seed);
                Frame_view const frame{samples, height, width};
                Plane_views const views =
                    guarded.lay(frame.pixels(), Plane_set::all(), support::both_edges[seed % 2]);
                Calibrated_transform{settings}(frame, views);
                Planes expected = expected_planes(frame, settings, Final_pixel::by_position);
                ASSERT_EQ(first_difference(views, expected).value_or("equal"), "equal")
                    << name_of(model) << ", " << to_string(size) << ", " << depth << " bits";
                pixels += frame.pixels();
            }
        }
    }
    std::cout << pixels << " pixels compared with the rule of one pixel\n";
}

TEST(Sensor_tables, corrections_are_rounded_to_nearest) {
    Size const size{50, 30};
    Calibration const calibration = calibration_of(Calibration_model::gain, size, 1, 12);
    Sensor_tables const tables{calibration, region_of(size)};
    for (std::size_t pixel = 0; pixel < size.width * size.height; ++pixel) {
        std::size_t const place = pixel / size.width * tables.padded_width() + pixel % size.width;
        ASSERT_EQ(
            tables.dark_levels()[place], std::lround(calibration.maps->dark_level[pixel] * 16));
        ASSERT_EQ(
            tables.gains()[place],
            std::lround(static_cast<double>(calibration.maps->gain[pixel]) * 32768));
    }
}

// Every sample of 16 bits; gains that bring those of the upper half to where rounding up meets the
// largest number, and gains at random.
TEST(Sensor_tables, corrections_end_at_the_largest_number) {
    Size const size{256, 256};
    Calibration calibration = calibration_of(Calibration_model::gain, size, 0, 16);
    auto maps = std::make_shared<Calibration_maps>(*calibration.maps);
    support::Samples samples(65536);
    for (std::size_t sample = 0; sample < samples.size(); ++sample) {
        samples[sample] = static_cast<std::uint16_t>(sample);
        maps->dark_level[sample] = sample % 2 == 0 ? 0.0F : 300.0F;
        double const rest = static_cast<double>(sample) - (sample % 2 == 0 ? 0 : 300);
        if (rest > 33000) {
            maps->gain[sample] = static_cast<float>(std::round(65535.75 / rest * 32768) / 32768);
        }
    }
    calibration.maps = maps;
    Settings const settings = settings_of(calibration, region_of(size), Scale::in_sample_units(16));
    Frame_view const frame{samples, 256, 256};
    Planes planes{256, 256, Plane_set::all()};
    Calibrated_transform{settings}(frame, planes.views());
    Planes expected = expected_planes(frame, settings, Final_pixel::by_position);
    EXPECT_EQ(first_difference(planes.views(), expected).value_or("equal"), "equal");
    for (std::size_t sample = 0; sample < samples.size(); ++sample) {
        ASSERT_EQ(
            settings.tables->corrected(sample / 256, sample % 256, samples[sample]),
            corrected(*settings.tables, sample / 256, sample % 256, samples[sample]));
    }
}

/// S0, S1 and S2 by a matrix of light that the maps' analysers let through.
std::array<double, 3> measured(
    Calibration_maps const& maps, std::array<float, 16> const& matrix, std::size_t row,
    std::size_t column, std::array<double, 3> const& light) {
    Size const size = maps.region.size();
    std::size_t const other_row = row + 1 == size.height ? row - 1 : row + 1;
    std::size_t const other_column = column + 1 == size.width ? column - 1 : column + 1;
    std::array<std::size_t, 4> const quartet = {
        row * size.width + column, row * size.width + other_column, other_row * size.width + column,
        other_row * size.width + other_column};
    std::array<double, 3> stokes{};
    for (std::size_t sample = 0; sample < 4; ++sample) {
        std::size_t const pixel = quartet[sample];
        double const twice = static_cast<double>(maps.orientation[pixel]) * std::numbers::pi / 90;
        double const polarised = light[1] * std::cos(twice) + light[2] * std::sin(twice);
        double const intensity =
            static_cast<double>(maps.throughput[pixel]) / 2 *
            (light[0] + static_cast<double>(maps.diattenuation[pixel]) * polarised);
        for (std::size_t quantity = 0; quantity < 3; ++quantity) {
            stokes[quantity] += static_cast<double>(matrix[4 * quantity + sample]) * intensity;
        }
    }
    stokes[0] /= 2;
    return stokes;
}

TEST(Sensor_tables, own_matrices_undo_the_analysers_of_the_quartet) {
    Size const size{37, 22};
    Calibration const calibration = calibration_of(Calibration_model::pixel, size, 2, 12);
    Sensor_tables const tables{calibration, region_of(size)};
    double largest_error = 0;
    std::array<double, 3> const light = {1, 0.3, -0.4};
    for (std::size_t row = 0; row < size.height; ++row) {
        for (std::size_t column = 0; column < size.width; ++column) {
            auto const stokes =
                measured(*calibration.maps, tables.matrix(row, column), row, column, light);
            for (std::size_t quantity = 0; quantity < 3; ++quantity) {
                largest_error =
                    std::max(largest_error, std::abs(stokes[quantity] - light[quantity]));
            }
        }
    }
    // Half a step in each of four weights, of samples below 1.
    EXPECT_LT(largest_error, 4 * 0.5 * static_cast<double>(Sensor_tables::weight_step));
    EXPECT_GT(largest_error, 1e-6);
    std::cout << size.width * size.height << " matrices, largest error of a quantity "
              << largest_error << "\n";
}

TEST(Sensor_tables, a_region_is_a_part_of_the_whole) {
    Size const size{64, 40};
    std::size_t compared = 0;
    for (Calibration_model const model : models) {
        Calibration const calibration = calibration_of(model, size, 1, 12);
        support::Samples const samples =
            support::make_samples(support::Sample_kind::random_12_bit, size.height, size.width, 3);
        Planes whole{size.height, size.width, Plane_set::all()};
        Calibrated_transform{settings_of(calibration, region_of(size), Scale{12})}(
            {samples, size.height, size.width}, whole.views());
        Region const region{7, 5, 33, 20};
        support::Samples part;
        for (std::size_t row = 0; row < region.height; ++row) {
            auto const first =
                samples.begin() +
                static_cast<std::ptrdiff_t>((region.row + row) * size.width + region.column);
            part.insert(part.end(), first, first + static_cast<std::ptrdiff_t>(region.width));
        }
        Planes of_region{region.height, region.width, Plane_set::all()};
        Calibrated_transform{settings_of(calibration, region, Scale{12})}(
            {part, region.height, region.width}, of_region.views());
        // The region's last row and column have other neighbours.
        for (std::size_t row = 0; row + 1 < region.height; ++row) {
            for (std::size_t column = 0; column + 1 < region.width; ++column, ++compared) {
                std::size_t const here = row * region.width + column;
                std::size_t const there = (region.row + row) * size.width + region.column + column;
                for (Plane const plane : {Plane::s0, Plane::azimuth, Plane::dolp}) {
                    ASSERT_EQ(
                        of_region.integer_plane(plane)[here], whole.integer_plane(plane)[there]);
                }
            }
        }
    }
    std::cout << compared << " pixels of regions compared with the whole\n";
}

TEST(Sensor_tables, signed_planes_have_no_seam_either) {
    Size const size{45, 11};
    Calibration const calibration = calibration_of(Calibration_model::pixel, size, 3, 10);
    Settings const settings = settings_of(calibration, region_of(size), Scale{10});
    support::Samples const samples =
        support::make_samples(support::Sample_kind::random_16_bit, size.height, size.width, 8);
    Frame_view const frame{samples, size.height, size.width};
    Signed_planes planes{size.height, size.width, {Plane::s1, Plane::s2}};
    transform_signed(frame, settings, Mode::calibrated, {}, planes.views());
    for (std::size_t pixel = 0; pixel < frame.pixels(); ++pixel) {
        auto const stokes = stokes_at(
            frame, settings, Final_pixel::by_position, pixel / size.width, pixel % size.width);
        ASSERT_EQ(
            planes.s1[pixel],
            stored_stokes(stokes.s1, settings.scale) - stored_stokes(-stokes.s1, settings.scale));
        ASSERT_EQ(
            planes.s2[pixel],
            stored_stokes(stokes.s2, settings.scale) - stored_stokes(-stokes.s2, settings.scale));
    }
}

TEST(Sensor_tables, pixels_beyond_what_tables_hold_are_bad_ones) {
    Size const size{32, 6};
    for (Calibration_model const model : models) {
        Calibration calibration = calibration_of(model, size, 0, 12);
        auto maps = std::make_shared<Calibration_maps>(*calibration.maps);
        maps->bad_pixels = {5, 40};
        std::size_t const dim = 3 * size.width + 10;
        (model == Calibration_model::gain ? maps->gain : maps->throughput)[dim] =
            model == Calibration_model::gain ? 2.5F : 0.02F;
        calibration.maps = maps;
        Sensor_tables const tables{calibration, {1, 1, 31, 5}};
        std::size_t bad = 0;
        for (std::size_t row = 0; row < 5; ++row) {
            for (std::size_t column = 0; column < 31; ++column) {
                bad += tables.is_bad(row, column) ? 1U : 0U;
            }
        }
        // Pixel 5 lies above the region. All four quartets that the dim one is in have no usable
        // matrix.
        EXPECT_TRUE(tables.is_bad(0, 7));
        EXPECT_TRUE(tables.is_bad(2, 9));
        EXPECT_EQ(bad, model == Calibration_model::gain ? 2U : 5U);
    }
}

TEST(Sensor_tables, refuse_what_they_do_not_cover) {
    Size const size{32, 8};
    Calibration const calibration = calibration_of(Calibration_model::gain, size, 0, 12);
    EXPECT_EQ(
        refusal_of([&] {
            Sensor_tables(calibration, {1, 0, 32, 8});
        }),
        "the region is 32 x 8 at column 1, row 0; give one inside that of the calibration, 32 x 8 "
        "at "
        "column 0, row 0");
    EXPECT_EQ(
        refusal_of([&] {
            Sensor_tables(ideal_calibration(Mosaic::from_phase(0)), {0, 0, 16, 2});
        }),
        "the calibration's model is position; give a calibration with maps, of the model gain or "
        "pixel");
    Calibration broken = calibration;
    auto maps = std::make_shared<Calibration_maps>(*calibration.maps);
    maps->gain.pop_back();
    broken.maps = maps;
    EXPECT_NE(refusal_of([&] { Sensor_tables(broken, {0, 0, 32, 8}); }), "nothing");
    maps->gain.push_back(std::nanf(""));
    EXPECT_NE(refusal_of([&] { Sensor_tables(broken, {0, 0, 32, 8}); }), "nothing");
    Settings const settings = settings_of(calibration, region_of(size), Scale{12});
    support::Samples const samples(34 * 8, 100);
    Planes planes{8, 34, {Plane::s0}};
    EXPECT_EQ(
        refusal_of([&] {
            Calibrated_transform{settings}({samples, 8, 34}, planes.views());
        }),
        "the size of the frame is 34 x 8; give frames of the calibrated size, 32 x 8");
    Planes fitting{8, 32, {Plane::s0}};
    Frame_view const frame{samples.data(), 8, 32};
    EXPECT_EQ(
        refusal_of([&] { transform(frame, settings, fitting.views()); }),
        "the mode is fast; give the calibrated mode, which alone knows single pixels");
    // Not even the places that fast mode fills with NaN are touched.
    std::vector<float> ratios(2 * 32 * 8, 7.0F);
    Plane_views views;
    views.normalized_stokes = ratios;
    EXPECT_EQ(
        refusal_of([&] { Frame_transform{settings}(frame, views); }),
        "the mode is fast; give the calibrated mode, which alone knows single pixels");
    EXPECT_EQ(std::ranges::count(ratios, 7.0F), 2 * 32 * 8);
    Settings deeper = settings;
    deeper.scale = Scale{10};
    EXPECT_EQ(
        refusal_of([&] { Calibrated_transform{deeper}(frame, fitting.views()); }),
        "the bit depth is 10; give that of the calibration, 12");
}

// 90 degrees turn S1 and S2 into their opposites, 45 degrees S1 into S2.
TEST(Sensor_tables, the_direction_of_zero_turns_angles) {
    Size const size{48, 12};
    Calibration const calibration = calibration_of(Calibration_model::pixel, size, 2, 12);
    support::Samples const samples =
        support::make_samples(support::Sample_kind::random_12_bit, size.height, size.width, 4);
    Frame_view const frame{samples, size.height, size.width};
    auto const stokes_with = [&](double zero) {
        Settings const settings = settings_of(calibration, region_of(size), Scale{12}, zero);
        Planes planes{size.height, size.width, {Plane::normalized_stokes}};
        Calibrated_transform{settings}(frame, planes.views());
        return std::vector<float>(
            planes.normalized_stokes().begin(), planes.normalized_stokes().end());
    };
    std::vector<float> const as_it_is = stokes_with(0);
    for (double const zero : {90.0, 30.0, -45.0, 197.5}) {
        std::vector<float> const turned_one = stokes_with(zero);
        double const twice = zero * std::numbers::pi / 90;
        for (std::size_t pixel = 0; pixel < frame.pixels(); ++pixel) {
            double const s1 = static_cast<double>(as_it_is[2 * pixel]);
            double const s2 = static_cast<double>(as_it_is[2 * pixel + 1]);
            double const tolerance = 5e-4 * (1 + std::hypot(s1, s2));
            ASSERT_NEAR(
                turned_one[2 * pixel], s1 * std::cos(twice) + s2 * std::sin(twice), tolerance);
            ASSERT_NEAR(
                turned_one[2 * pixel + 1], s2 * std::cos(twice) - s1 * std::sin(twice), tolerance);
        }
    }
}

} // namespace
} // namespace client_test
