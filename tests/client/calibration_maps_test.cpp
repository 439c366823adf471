// Parts of maps: every number and every bad pixel stays with its pixel, and so do the weights.

#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include "simulated_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

constexpr Region covered{3, 2, 40, 9};

Calibration some_calibration(Calibration_model model) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(1), 5);
    Calibration calibration = ideal_calibration(sensor.mosaic);
    calibration.analysers = sensor.analysers;
    calibration.matrices = matrices_of(sensor.analysers);
    calibration.model = model;
    Calibration_maps maps{{50, 20}, covered, 12};
    std::mt19937 random{7};
    std::uniform_real_distribution<float> near_one{0.95F, 1.05F};
    for (std::size_t row = 0; row < covered.height; ++row) {
        for (std::size_t column = 0; column < covered.width; ++column) {
            maps.dark_level.push_back(60 * near_one(random));
            std::size_t const position = cell_position(covered.row + row, covered.column + column);
            if (model == Calibration_model::gain) {
                maps.gain.push_back(near_one(random));
            } else {
                maps.throughput.push_back(near_one(random));
                maps.diattenuation.push_back(near_one(random) - 0.1F);
                maps.orientation.push_back(
                    static_cast<float>(sensor.mosaic.layout()[position]) + near_one(random));
            }
        }
    }
    maps.bad_pixels = {0, 39, 40, 123, 200, 359};
    calibration.maps = std::make_shared<Calibration_maps const>(maps);
    return calibration;
}

TEST(Calibration_maps, a_part_has_the_weights_of_its_pixels) {
    for (Calibration_model const model : {Calibration_model::gain, Calibration_model::pixel}) {
        Calibration const whole = some_calibration(model);
        std::size_t bad = 0;
        for (Region const region :
             {covered, Region{4, 2, 30, 5}, Region{3, 5, 17, 4}, Region{10, 7, 33, 4}}) {
            Calibration const part = of_region(whole, region);
            EXPECT_EQ(part.maps->sensor, region.size());
            EXPECT_EQ(part.maps->region, region_of(region.size()));
            EXPECT_EQ(part.mosaic, whole.mosaic.of_region(region.row, region.column));
            EXPECT_TRUE(std::ranges::is_sorted(part.maps->bad_pixels));
            Sensor_tables const expected{whole, region};
            Sensor_tables const tables{part, region_of(region.size())};
            EXPECT_EQ(tables.bit_depth(), expected.bit_depth());
            for (std::size_t row = 0; row < region.height; ++row) {
                for (std::size_t column = 0; column < region.width; ++column) {
                    EXPECT_EQ(tables.matrix(row, column), expected.matrix(row, column));
                    EXPECT_EQ(
                        tables.corrected(row, column, 1000), expected.corrected(row, column, 1000));
                    EXPECT_EQ(tables.is_bad(row, column), expected.is_bad(row, column));
                    bad += tables.is_bad(row, column) ? 1U : 0U;
                }
            }
        }
        EXPECT_GE(bad, 9U);
    }
}

TEST(Calibration_maps, a_part_needs_a_region_inside) {
    Calibration const whole = some_calibration(Calibration_model::gain);
    EXPECT_THROW(of_region(whole, 2, 4), Argument_error);
    for (Region const region :
         {Region{2, 2, 20, 5}, Region{3, 1, 20, 5}, Region{4, 2, 40, 5}, Region{3, 3, 40, 9},
          Region{3, 2, 0, 9}}) {
        EXPECT_THROW(of_region(whole, region), Argument_error) << to_string(region);
    }
    Calibration plain = whole;
    plain.model = Calibration_model::position;
    plain.maps = nullptr;
    EXPECT_EQ(of_region(plain, {5, 3, 1, 1}), of_region(plain, 3, 5));
}

} // namespace
} // namespace client_test
