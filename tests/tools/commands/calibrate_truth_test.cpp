// The whole way of a user with a sensor of which no two pixels are alike: series, dark and flat
// frames, a calibration by each model, and frames of known light through each.
#include "process_fixture.hpp"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using process_fixture::Names;
using process_fixture::Process_command;
using program_run::Outcome;
using program_run::run;

constexpr double known_angle = 37;

/// Root mean squares over all pixels.
struct Errors {
    double angle = 0;
    double degree = 0;
};

class Calibrate_truth : public Process_command {
protected:
    void simulate(std::string const& file, std::string const& angles, Names const& more) const {
        Names words = {
            "simulate",
            "-o",
            in_folder(file),
            "--polarizer-series",
            angles,
            "--width",
            "160",
            "--height",
            "120",
            "--phase",
            "2",
            "--imperfect",
            "--pixel-spread"};
        words.insert(words.end(), more.begin(), more.end());
        expect_success(run(words));
    }

    Errors errors_of(std::string const& model) const {
        Names const dark = {"--dark", in_folder("cal_dark_*.png")};
        Names calibrate = {"calibrate",   in_folder("cal_angle_*.png"),
                           "-o",          in_folder(model + ".json"),
                           "--model",     model,
                           "--phase",     "2",
                           "--bit-depth", "12",
                           "--noise",     in_folder("cal_flat_*.png")};
        calibrate.insert(calibrate.end(), dark.begin(), dark.end());
        expect_success(run(calibrate));
        Names process = {"-o",          results(), "--calibration", in_folder(model + ".json"),
                         "--bit-depth", "12",      "--planes",      "azimuth,dolp",
                         "--units",     "degrees", "--no-pictures", "--overwrite"};
        if (model == "position") { // the other models take the dark level off themselves
            process.insert(process.end(), dark.begin(), dark.end());
        }
        expect_success(process_with({in_folder("known_angle_037.0.png")}, process));
        auto const angle = test_files::read_tiff(result("known_angle_037.0_azimuth.tif")).samples;
        auto const degree = test_files::read_tiff(result("known_angle_037.0_dolp.tif")).samples;
        Errors errors;
        for (std::size_t pixel = 0; pixel < angle.size(); ++pixel) {
            errors.angle += std::pow(std::remainder(angle[pixel] - known_angle, 180.0), 2);
            errors.degree += std::pow(degree[pixel] - 1, 2);
        }
        auto const count = static_cast<double>(angle.size());
        return {std::sqrt(errors.angle / count), std::sqrt(errors.degree / count)};
    }

    static void expect_success(Outcome const& outcome) {
        EXPECT_EQ(outcome.code, 0) << outcome.errors;
    }
};

TEST_F(Calibrate_truth, errors_fall_from_position_to_gain_to_pixel) {
    simulate(
        "cal.png", "0:165:15", {"--dark-frames", "8", "--flat-frames", "2", "--flat-levels", "4"});
    simulate("known.png", "37:37:1", {"--no-noise"});
    Errors const position = errors_of("position");
    Errors const gain = errors_of("gain");
    Errors const pixel = errors_of("pixel");
    for (auto const& [model, errors] :
         {std::pair("position", position), std::pair("gain", gain), std::pair("pixel", pixel)}) {
        std::printf("%-8s  %.3f degrees and %.4f off\n", model, errors.angle, errors.degree);
    }
    EXPECT_LT(gain.angle, position.angle);
    EXPECT_LT(gain.degree, position.degree);
    EXPECT_LT(pixel.angle, 0.5 * gain.angle);
    EXPECT_LT(pixel.degree, 0.5 * gain.degree);
}

} // namespace
