// veldrane-polarize process on simulated frames: angle and degree against the truth.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using program_run::run;

constexpr std::size_t width = 1287;
constexpr std::size_t height = 1028;

// The light that a cell's four samples see, averaged: what an estimate from them stands for.
struct Cell_truth {
    double angle;
    double degree;
    bool is_smooth;
};

// How far S0, S1 and S2 reach over the samples that an estimate may use.
class Spread {
public:
    void include(veldrane_mrv::polarization::Truth const& truth, std::size_t index) {
        std::array<float, 3> const values = {truth.s0[index], truth.s1[index], truth.s2[index]};
        for (std::size_t i = 0; i < values.size(); ++i) {
            low_[i] = std::min(low_[i], values[i]);
            high_[i] = std::max(high_[i], values[i]);
        }
    }
    double largest() const {
        return static_cast<double>(
            std::max({high_[0] - low_[0], high_[1] - low_[1], high_[2] - low_[2]}));
    }

private:
    static constexpr float most = std::numeric_limits<float>::max();
    std::array<float, 3> low_ = {most, most, most};
    std::array<float, 3> high_ = {-most, -most, -most};
};

Cell_truth truth_around(
    veldrane_mrv::polarization::Truth const& truth, std::size_t row, std::size_t column) {
    std::size_t const next_row = row + 1 < height ? row + 1 : row - 1;
    std::size_t const next_column = column + 1 < width ? column + 1 : column - 1;
    std::array<double, 3> mean = {0, 0, 0};
    Spread spread;
    for (std::size_t const index :
         {row * width + column, row * width + next_column, next_row * width + column,
          next_row * width + next_column}) {
        spread.include(truth, index);
        mean[0] += static_cast<double>(truth.s0[index]) / 4.0;
        mean[1] += static_cast<double>(truth.s1[index]) / 4.0;
        mean[2] += static_cast<double>(truth.s2[index]) / 4.0;
    }
    // In phase 0 the total intensity of some pixels of the fast mode holds a sample of the row
    // above.
    std::size_t const row_above = row > 0 ? row - 1 : row;
    spread.include(truth, row_above * width + column);
    spread.include(truth, row_above * width + next_column);
    constexpr double smooth_step = 0.0015; // of S0, from pixel to pixel
    double const angle = std::atan2(mean[2], mean[1]) * 90.0 / std::numbers::pi;
    return {
        angle < 0 ? angle + 180 : angle, std::hypot(mean[1], mean[2]) / mean[0],
        spread.largest() < smooth_step * mean[0]};
}

/// The largest errors where the scene is smooth and the degree above 0.1.
struct Worst {
    double angle = 0.0;
    double degree = 0.0;
    std::size_t pixels = 0;
};

class Process_truth : public Process_command {
protected:
    std::string frame() const { return in_folder("ball.png"); }

    void simulate(Names const& more) const {
        Names arguments = {"simulate", "-o",   frame(),      "--width",    "1287",
                           "--height", "1028", "--no-noise", "--overwrite"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Outcome const outcome = run(arguments);
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
    }

    Worst worst_errors(Names const& options, veldrane_mrv::polarization::Truth const& truth) const {
        Names all = {"-o",      results(), "--planes",    "azimuth,dolp",
                     "--units", "degrees", "--overwrite", "--no-pictures"};
        all.insert(all.end(), options.begin(), options.end());
        Outcome const outcome = process_with({frame()}, all);
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
        auto const angle = test_files::read_tiff(result("ball_azimuth.tif")).samples;
        auto const degree = test_files::read_tiff(result("ball_dolp.tif")).samples;
        Worst worst;
        // The final pixel of this frame takes the weights of another position in fast mode.
        for (std::size_t index = 0; index + 1 < angle.size(); ++index) {
            Cell_truth const cell = truth_around(truth, index / width, index % width);
            if (!cell.is_smooth || cell.degree <= 0.1) {
                continue;
            }
            double const apart = std::abs(std::remainder(angle[index] - cell.angle, 180.0));
            worst.angle = std::max(worst.angle, apart);
            worst.degree = std::max(worst.degree, std::abs(degree[index] - cell.degree));
            ++worst.pixels;
        }
        return worst;
    }
};

TEST_F(Process_truth, noise_free_frames_give_angle_within_0_3_and_degree_within_0_002) {
    std::size_t pixels = 0;
    for (int const bit_depth : {12, 16}) {
        for (int phase = 0; phase < 4; ++phase) {
            veldrane_mrv::polarization::Simulation_settings const settings{
                width, height, phase, bit_depth, 1, false};
            veldrane_mrv::polarization::Truth const truth =
                veldrane_mrv::polarization::simulate(settings).truth;
            Names const sensor = {
                "--phase", std::to_string(phase), "--bit-depth", std::to_string(bit_depth)};
            simulate(sensor);
            for (char const* const mode : {"fast", "calibrated"}) {
                Names options = sensor;
                options.insert(options.end(), {"--mode", mode});
                Worst const worst = worst_errors(options, truth);
                std::printf(
                    "%d bits, phase %d, %s: at most %.3f degrees and %.5f off\n", bit_depth, phase,
                    mode, worst.angle, worst.degree);
                EXPECT_LT(worst.angle, 0.3) << "phase " << phase;
                EXPECT_LT(worst.degree, 0.002) << "phase " << phase;
                pixels += worst.pixels;
            }
        }
    }
    std::printf("%zu pixels compared\n", pixels);
    EXPECT_GT(pixels, 16 * width * height / 4);
}

// The whole way of a user with a real sensor: series, calibration, frame.
TEST_F(Process_truth, a_recovered_calibration_brings_an_imperfect_sensor_back_to_the_truth) {
    double least_gain = 1e9;
    for (char const* const seed : {"1", "2", "3"}) {
        Names const sensor = {"--phase", "2", "--bit-depth", "12"};
        Names const analysers = {"--phase",         "2",  "--bit-depth", "12", "--imperfect",
                                 "--analyser-seed", seed, "--overwrite"};
        Names series = {"simulate",
                        "-o",
                        in_folder("cal.png"),
                        "--polarizer-series",
                        "0:165:15",
                        "--width",
                        "200",
                        "--height",
                        "160"};
        series.insert(series.end(), analysers.begin(), analysers.end());
        ASSERT_EQ(run(series).code, 0);
        Names calibrate = {
            "calibrate", in_folder("cal_angle_*.png"), "-o", in_folder("cal.json"), "--overwrite"};
        calibrate.insert(calibrate.end(), sensor.begin(), sensor.end());
        Outcome const calibrated = run(calibrate);
        ASSERT_EQ(calibrated.code, 0) << calibrated.errors;
        simulate(analysers);
        veldrane_mrv::polarization::Simulation_settings const settings{width, height, 2,
                                                                       12,    1,      false};
        veldrane_mrv::polarization::Truth const truth =
            veldrane_mrv::polarization::simulate(settings).truth;
        Worst const ideal = worst_errors({"--phase", "2", "--bit-depth", "12"}, truth);
        Worst const mended =
            worst_errors({"--calibration", in_folder("cal.json"), "--bit-depth", "12"}, truth);
        std::printf(
            "analysers %s: ideal weights %.3f degrees and %.4f off, calibrated %.3f and %.4f\n",
            seed, ideal.angle, ideal.degree, mended.angle, mended.degree);
        EXPECT_LT(mended.angle, 0.35);
        EXPECT_LT(mended.degree, 0.004);
        EXPECT_GT(mended.pixels, width * height / 4);
        least_gain =
            std::min({least_gain, ideal.angle / mended.angle, ideal.degree / mended.degree});
    }
    std::printf("ideal weights are at least %.1f times as far off\n", least_gain);
    EXPECT_GT(least_gain, 3.0);
}

} // namespace
