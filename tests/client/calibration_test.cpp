// The weights of analysers: ideal ones agree with those of the vector blocks, others invert the
// samples exactly, and a calibration recovered from a series brings calibrated mode to the truth.

#include "simulated_sensor.hpp"

#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <set>

namespace client_test {
namespace {

using namespace veldrane_mrv::polarization;

double largest_difference(Matrices const& left, Matrices const& right) {
    double largest = 0;
    for (std::size_t position = 0; position < 4; ++position) {
        for (std::size_t element = 0; element < 12; ++element) {
            double const difference = static_cast<double>(left.by_position[position][element]) -
                                      static_cast<double>(right.by_position[position][element]);
            largest = std::max(largest, std::abs(difference));
        }
    }
    return largest;
}

TEST(Calibration, ideal_analysers_have_the_weights_of_an_ideal_sensor) {
    for (Mosaic const& mosaic : all_mosaics()) {
        Calibration const ideal = ideal_calibration(mosaic);
        EXPECT_EQ(ideal.matrices, ideal_matrices(mosaic));
        EXPECT_LT(largest_difference(matrices_of(ideal.analysers), ideal.matrices), 1e-6);
        EXPECT_NEAR(ideal.quality.condition_number, std::sqrt(2.0), 1e-12);
        EXPECT_TRUE(ideal.quality.flags.empty());
    }
}

TEST(Calibration, weights_invert_the_samples_of_every_light) {
    std::size_t checked = 0;
    double worst = 0;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        auto const mosaic = Mosaic::from_phase(static_cast<int>(seed % 4));
        auto const sensor = Simulated_sensor::imperfect(mosaic, seed);
        Matrices const matrices = matrices_of(sensor.analysers);
        for (double angle = 0; angle < 180; angle += 7) {
            Light const light = polarised_light(2000, 0.6, angle);
            std::array<double, 3> const truth = {2 * light.s0, light.s1, light.s2};
            for (std::size_t position = 0; position < 4; ++position) {
                for (std::size_t row = 0; row < 3; ++row, ++checked) {
                    double estimate = 0;
                    for (std::size_t sample = 0; sample < 4; ++sample) {
                        estimate += matrices.by_position[position][4 * row + sample] *
                                    sensor.signal(position ^ sample, light);
                    }
                    worst = std::max(worst, std::abs(estimate - truth[row]));
                }
            }
        }
    }
    std::cout << checked << " estimates, largest error " << worst << " of 2000\n";
    EXPECT_LT(worst, 0.002);
}

TEST(Calibration, a_region_keeps_each_analyser_with_its_pixels) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(2), 11);
    Calibration whole = ideal_calibration(sensor.mosaic);
    whole.analysers = sensor.analysers;
    whole.matrices = matrices_of(sensor.analysers);
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            Calibration const part = of_region(whole, row, column);
            EXPECT_EQ(part.mosaic, whole.mosaic.of_region(row, column));
            EXPECT_EQ(part.matrices, matrices_of(part.analysers));
            for (std::size_t position = 0; position < 4; ++position) {
                std::size_t const there = cell_position(row + position / 2, column + position % 2);
                EXPECT_EQ(part.analysers[position], whole.analysers[there]);
            }
        }
    }
}

TEST(Calibration, analysers_that_cannot_measure_are_refused) {
    auto const refused = [](auto const& change) {
        Calibration calibration = ideal_calibration(Mosaic::from_phase(0));
        change(calibration.analysers);
        try {
            matrices_of(calibration.analysers);
        } catch (Argument_error const& error) {
            return error.argument();
        }
        return std::string{"nothing"};
    };
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(refused([](auto&) {}), "nothing");
    EXPECT_EQ(refused([](auto& all) { all[1].throughput = 0; }), "throughput of position 1");
    EXPECT_EQ(refused([](auto& all) { all[1].throughput = nan; }), "throughput of position 1");
    EXPECT_EQ(refused([](auto& all) { all[1].throughput = 0.009; }), "throughput of position 1");
    EXPECT_EQ(refused([](auto& all) { all[1].throughput = 4.1; }), "throughput of position 1");
    EXPECT_EQ(
        refused([](auto& all) { all[2].diattenuation = -0.1; }), "diattenuation of position 2");
    EXPECT_EQ(refused([](auto& all) { all[3].orientation = nan; }), "orientation of position 3");
    EXPECT_EQ(
        refused([](auto& all) {
            for (Analyser& analyser : all) {
                analyser.orientation = 45;
            }
        }),
        "condition number of the analysers");
}

TEST(Calibration, flags_have_names_and_explanations_of_their_own) {
    std::set<std::string_view> names;
    std::set<std::string_view> explanations;
    for (Quality_flag const flag : all_quality_flags) {
        names.insert(name_of(flag));
        explanations.insert(explanation_of(flag));
    }
    EXPECT_EQ(names.size(), all_quality_flags.size());
    EXPECT_EQ(explanations.size(), all_quality_flags.size());
}

struct Errors {
    double angle = 0;
    double degree = 0;
    std::size_t pixels = 0;
};

// Tiles of uniform light: every angle in steps of 3 degrees, in every degree of polarisation.
class Truth_frame {
public:
    static constexpr std::size_t tile = 8;
    static constexpr std::size_t tile_columns = 60;
    static constexpr std::array degrees = {0.1, 0.2, 0.35, 0.5, 0.7, 0.9, 1.0};
    static constexpr std::size_t height = tile * degrees.size();
    static constexpr std::size_t width = tile * tile_columns;

    explicit Truth_frame(Simulated_sensor const& sensor) : scale_{sensor.bit_depth} {
        std::mt19937_64 random;
        double const s0 = 0.85 * ((1 << sensor.bit_depth) - 1);
        for (std::size_t row = 0; row < height; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                Light const light = polarised_light(s0, degree(row), angle(column));
                samples_.push_back(sensor.sample(cell_position(row, column), light, 0, random));
            }
        }
    }

    Errors errors_with(Mosaic const& mosaic, Matrices const& matrices, unsigned full_scale) const {
        Calibrated_transform transform{{mosaic, Scale{scale_.bit_depth(), full_scale}, matrices}};
        Planes planes{height, width, {Plane::azimuth, Plane::dolp}};
        transform(Frame_view{samples_, height, width}, planes.views());
        auto const azimuth = planes.integer_plane(Plane::azimuth);
        auto const dolp = planes.integer_plane(Plane::dolp);
        Errors errors;
        for (std::size_t row = 0; row < height; ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                // Quartets at a tile's right and lower edge reach into the next one.
                if (row % tile == tile - 1 || column % tile == tile - 1) {
                    continue;
                }
                std::size_t const pixel = row * width + column;
                double const measured = azimuth[pixel] * 180.0 / full_scale - 90;
                errors.angle =
                    std::max(errors.angle, std::abs(std::remainder(measured - angle(column), 180)));
                errors.degree = std::max(
                    errors.degree,
                    std::abs(static_cast<double>(dolp[pixel]) / full_scale - degree(row)));
                ++errors.pixels;
            }
        }
        return errors;
    }

private:
    static double angle(std::size_t column) { return 3.0 * static_cast<double>(column / tile); }
    static double degree(std::size_t row) { return degrees[row / tile]; }

    Scale scale_;
    std::vector<std::uint16_t> samples_;
};

// Largest errors of angle (degrees) and degree that a recovered calibration may leave.
constexpr double angle_limit = 0.35;
constexpr double degree_limit = 0.004;

void expect_truth(std::vector<double> const& electrons, int bit_depth, double step) {
    Errors worst_calibrated;
    Errors best_ideal{180, 1, 0};
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        auto sensor =
            Simulated_sensor::imperfect(Mosaic::from_phase(static_cast<int>(seed % 4)), seed);
        sensor.bit_depth = bit_depth;
        double const level = 0.75 * ((1 << bit_depth) - 1);
        Truth_frame const truth{sensor};
        Estimation_options options;
        options.bit_depth = bit_depth;
        for (double const electrons_per_unit : electrons) {
            Simulated_series const series{sensor, level, step, electrons_per_unit, seed};
            Calibration const found = estimate_calibration(series.frames(), sensor.mosaic, options);
            for (unsigned const full_scale : {4095U, 65535U}) {
                Errors const is = truth.errors_with(sensor.mosaic, found.matrices, full_scale);
                worst_calibrated.angle = std::max(worst_calibrated.angle, is.angle);
                worst_calibrated.degree = std::max(worst_calibrated.degree, is.degree);
                worst_calibrated.pixels += is.pixels;
            }
        }
        Errors const ideal = truth.errors_with(sensor.mosaic, ideal_matrices(sensor.mosaic), 65535);
        best_ideal.angle = std::min(best_ideal.angle, ideal.angle);
        best_ideal.degree = std::min(best_ideal.degree, ideal.degree);
    }
    std::cout << worst_calibrated.pixels << " pixels: largest errors calibrated "
              << worst_calibrated.angle << " degrees and " << worst_calibrated.degree
              << ", with ideal weights at best " << best_ideal.angle << " degrees and "
              << best_ideal.degree << "\n";
    EXPECT_GT(worst_calibrated.pixels, 100000U);
    EXPECT_LT(worst_calibrated.angle, angle_limit);
    EXPECT_LT(worst_calibrated.degree, degree_limit);
    EXPECT_GT(best_ideal.angle, 3 * angle_limit);
    EXPECT_GT(best_ideal.degree, 3 * degree_limit);
}

TEST(Calibration, recovered_from_frames_without_noise_it_meets_the_truth) {
    expect_truth({0}, 12, 10);
}

TEST(Calibration, recovered_from_frames_of_16_bits_it_meets_the_truth) {
    expect_truth({0}, 16, 20);
}

// 2.5 electrons a unit of 12 bits are a full well of about 10000, 1 one of 4000; 18 frames, 1536
// samples of each position.
TEST(Calibration, recovered_from_frames_with_shot_noise_it_meets_the_truth) {
    expect_truth({2.5, 1}, 12, 10);
}

TEST(Calibration, shot_noise_moves_no_weight_by_more_than_half_a_percent) {
    auto const sensor = Simulated_sensor::imperfect(Mosaic::from_phase(1), 21);
    Estimation_options options;
    options.bit_depth = sensor.bit_depth;
    Matrices const exact = matrices_of(sensor.analysers);
    double worst = 0;
    constexpr std::uint64_t series_count = 20;
    for (std::uint64_t seed = 1; seed <= series_count; ++seed) {
        Simulated_series const series{sensor, 3200, 10, 2.5, seed};
        Calibration const found = estimate_calibration(series.frames(), sensor.mosaic, options);
        worst = std::max(worst, largest_difference(found.matrices, exact));
    }
    std::cout << series_count << " series, largest change of a weight " << worst << "\n";
    EXPECT_LT(worst, 0.005);
}

} // namespace
} // namespace client_test
