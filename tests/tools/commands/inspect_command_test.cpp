// veldrane-polarize inspect, run as a user runs it.
#include "program_run.hpp"
#include "test_files.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <sstream>

namespace {

using program_run::Outcome;
using program_run::run;
using test_files::encoded;
using test_files::Folder;

class Inspect_command : public testing::Test {
protected:
    std::string written(std::string const& name, cv::Mat const& image) const {
        test_files::write(folder_ / name, encoded(image, ".png"));
        return (folder_ / name).string();
    }

    // Phase 0 behind a polariser along the rows: all light at one corner, none at the opposite.
    std::string polarised() const {
        cv::Mat image(32, 48, CV_8UC1);
        for (int row = 0; row < image.rows; ++row) {
            for (int column = 0; column < image.cols; ++column) {
                constexpr int cell[] = {200, 100, 100, 3};
                image.at<std::uint8_t>(row, column) =
                    static_cast<std::uint8_t>(cell[2 * (row % 2) + column % 2]);
            }
        }
        return written("polarised.png", image);
    }

    Folder folder_;
};

TEST_F(Inspect_command, text_says_what_the_frame_cannot_tell_and_how_to_find_out) {
    Outcome const outcome = run({"inspect", polarised()});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    for (char const* const words :
         {"polarised.png: 48 x 32", "3 to 200, mean 100.8", "8 bits used", "--polarizer-angle 0",
          "diagonals", "even row", "200.0", "#####"}) {
        EXPECT_NE(outcome.output.find(words), std::string::npos) << words << outcome.output;
    }
}

TEST_F(Inspect_command, a_known_polariser_tells_the_phase) {
    Outcome const outcome = run({"inspect", polarised(), "--polarizer-angle", "0"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("Phase 0: "), std::string::npos) << outcome.output;
    Outcome const crossed = run({"inspect", polarised(), "--polarizer-angle", "90"});
    EXPECT_NE(crossed.output.find("Phase 2: "), std::string::npos) << crossed.output;
}

TEST_F(Inspect_command, simulated_series_tells_the_phase_that_it_was_made_with) {
    for (std::string const phase : {"0", "1", "2", "3"}) {
        std::string const name = (folder_ / ("series" + phase + ".png")).string();
        ASSERT_EQ(
            run({"simulate", "-o", name, "--phase", phase, "--width", "64", "--height", "64",
                 "--polarizer-series", "0:135:45"})
                .code,
            0);
        unsigned frames = 0;
        for (std::string const& file : test_files::names_in(folder_.path())) {
            std::size_t const place = file.find("angle_");
            if (!file.starts_with("series" + phase) || !file.ends_with(".png") ||
                place == std::string::npos) {
                continue;
            }
            std::string const angle = std::to_string(std::stod(file.substr(place + 6)));
            Outcome const outcome =
                run({"inspect", (folder_ / file).string(), "--polarizer-angle", angle, "--json"});
            EXPECT_EQ(
                std::to_string(nlohmann::json::parse(outcome.output)["phase"].value("phase", -1)),
                phase)
                << file << " " << outcome.output;
            ++frames;
        }
        EXPECT_EQ(frames, 4U);
    }
}

TEST_F(Inspect_command, json_is_one_object_a_line) {
    Outcome const outcome = run({"inspect", polarised(), polarised(), "--json"});
    EXPECT_EQ(outcome.code, 0);
    std::istringstream lines(outcome.output);
    unsigned count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        auto const json = nlohmann::json::parse(line);
        EXPECT_EQ(json["width"], 48);
        EXPECT_EQ(json["saturation"]["at_full_scale"], 0.0);
    }
    EXPECT_EQ(count, 2U);
}

TEST_F(Inspect_command, a_frame_that_cannot_be_read_does_not_lose_the_others) {
    test_files::write(folder_ / "noise.png", std::string("no picture"));
    Outcome const outcome = run({"inspect", (folder_ / "noise.png").string(), polarised()});
    expect_one_line(outcome, 1, "noise.png");
    EXPECT_NE(outcome.output.find("48 x 32"), std::string::npos);
}

TEST_F(Inspect_command, a_single_pixel_and_wrong_usage_are_one_line) {
    std::string const pixel = written("pixel.png", cv::Mat(1, 1, CV_8UC1, cv::Scalar(5)));
    Outcome const refused = run({"inspect", pixel});
    expect_one_line(refused, 1);
    Outcome const usage = run({"inspect", polarised(), "--polarizer-angle", "north"});
    expect_one_line(usage, 2);
}

TEST_F(Inspect_command, a_choice_that_leaves_no_frame_is_refused) {
    Outcome const refused = run({"inspect", polarised(), "--start", "1"});
    EXPECT_EQ(refused.code, 2);
    EXPECT_NE(refused.errors.find("leave no frame; "), std::string::npos) << refused.errors;
}

TEST_F(Inspect_command, numbers_that_are_not_finite_or_wrap_are_refused) {
    for (std::string const number : {"nan", "-nan", "inf", "-inf"}) {
        Outcome const outcome = run({"inspect", polarised(), "--polarizer-angle=" + number});
        expect_one_line(outcome, 2, "--polarizer-angle");
    }
    test_files::write(folder_ / "two.raw", std::string(16, 'x'));
    auto const raw = [this](std::string const& option, std::string const& number) {
        return run(
            {"inspect", (folder_ / "two.raw").string(), "--pixel-format", "Mono8", "--width", "4",
             "--height", "2", option, number});
    };
    for (std::string const number : {"-1", "4611686018427387905", "18446744073709551615"}) {
        for (std::string const option : {"--header-bytes", "--stride"}) {
            Outcome const outcome = raw(option, number);
            EXPECT_EQ(outcome.code, 2) << outcome.errors;
            EXPECT_NE(outcome.errors.find(option), std::string::npos) << outcome.errors;
        }
    }
    Outcome const largest = raw("--header-bytes", "4611686018427387904");
    EXPECT_EQ(largest.code, 1);
    EXPECT_NE(largest.errors.find("4611686018427387912 bytes (1 frame)"), std::string::npos)
        << largest.errors;
}

TEST_F(Inspect_command, a_standard_output_that_takes_nothing_is_one_line) {
    Outcome const outcome = program_run::run_without_room_for_output(
        {POLARIZE_PROGRAM, "inspect", polarised(), polarised()});
    expect_one_line(outcome, 1, "standard output: cannot be written: No space left on device");
}

TEST_F(Inspect_command, failures_are_listed_even_if_standard_output_takes_nothing) {
    Outcome const outcome = program_run::run_without_room_for_output(
        {POLARIZE_PROGRAM, "inspect", (folder_ / "none.png").string(), polarised()});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(program_run::line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("none.png: cannot be read"), std::string::npos);
    EXPECT_NE(outcome.errors.find("standard output: cannot be written"), std::string::npos);
}

} // namespace
