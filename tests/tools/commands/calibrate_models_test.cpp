// veldrane-polarize calibrate by each model: what of a sensor whose pixels differ it finds, what it
// writes, and every refusal.
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

namespace {

using program_run::expect_one_line;
using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using Names = std::vector<std::string>;
namespace polarization = veldrane_mrv::polarization;

constexpr unsigned width = 96;
constexpr unsigned height = 80;

class Calibrate_models : public testing::Test {
protected:
    void SetUp() override {
        Outcome const outcome = run(
            {"simulate", "-o", in_folder("cal.png"), "--polarizer-series", "0:150:30", "--width",
             std::to_string(width), "--height", std::to_string(height), "--phase", "2",
             "--imperfect", "--pixel-spread", "--dark-frames", "4", "--flat-frames", "2",
             "--flat-levels", "4"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
    }

    Outcome calibrate(Names const& more = {}) const {
        Names arguments = {"calibrate",   in_folder("cal_angle_*.png"),
                           "-o",          in_folder("out.json"),
                           "--phase",     "2",
                           "--bit-depth", "12",
                           "--dark",      in_folder("cal_dark_*.png")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }

    polarization::Calibration calibration() const {
        return polarization::load_calibration(folder_ / "out.json");
    }

    Names outputs() const {
        Names names = test_files::names_in(folder_.path());
        std::erase_if(names, [](std::string const& name) { return !name.starts_with("out"); });
        return names;
    }

    std::string in_folder(std::string const& name) const { return (folder_ / name).string(); }

    test_files::Folder folder_;
};

TEST_F(Calibrate_models, each_model_explains_the_held_out_frame_better) {
    for (std::string const model : {"gain", "pixel"}) {
        Outcome const outcome = calibrate({"--model", model, "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        EXPECT_EQ(outcome.errors, "");
        auto const found = calibration();
        ASSERT_TRUE(found.maps);
        EXPECT_EQ(name_of(found.model), model);
        EXPECT_EQ(found.maps->region, (polarization::Region{0, 0, width, height}));
        EXPECT_EQ(found.maps->dark_level.size(), width * height);
        EXPECT_EQ(found.quality.held_out_frame, in_folder("cal_angle_090.0.png"));
        ASSERT_EQ(found.quality.models.size(), 3U);
        for (std::size_t number = 1; number < 3; ++number) {
            auto const& better = found.quality.models[number];
            auto const& worse = found.quality.models[number - 1];
            EXPECT_LT(better.rms_degree_error, worse.rms_degree_error);
            EXPECT_LT(better.rms_angle_error_degrees, worse.rms_angle_error_degrees);
            EXPECT_LT(better.rms_sample_residual, worse.rms_sample_residual);
        }
        for (std::string const word :
             {"bad pixels of 7680", "dark level", "residual", "held out", "model", "pixel "}) {
            EXPECT_NE(outcome.output.find(word), std::string::npos) << word;
        }
        cv::Mat const picture = cv::imread(in_folder("out_maps.png"));
        EXPECT_EQ(picture.size(), cv::Size(960, 280 * (model == "gain" ? 3 : 5)));
        // With the new calibration the array file of the old one went.
        EXPECT_EQ(outputs().size(), 4U);
    }
}

TEST_F(Calibrate_models, position_is_what_it_was) {
    ASSERT_EQ(calibrate().code, 0);
    EXPECT_EQ(outputs(), (Names{"out.json", "out.png"}));
    auto const plain = test_files::read(folder_ / "out.json");
    EXPECT_FALSE(calibration().maps);
    EXPECT_TRUE(calibration().quality.models.empty());
    EXPECT_EQ(calibrate({"--model", "pixel", "--overwrite"}).code, 0);
    Outcome const again = calibrate({"--model", "position", "--overwrite"});
    EXPECT_EQ(again.code, 0) << again.errors;
    EXPECT_EQ(test_files::read(folder_ / "out.json").size(), plain.size());
    EXPECT_EQ(outputs(), (Names{"out.json", "out.png"}));
}

TEST_F(Calibrate_models, a_region_has_maps_of_its_own_and_the_mosaic_of_the_sensor) {
    ASSERT_EQ(calibrate({"--model", "pixel"}).code, 0);
    auto const whole = calibration();
    ASSERT_EQ(calibrate({"--model", "pixel", "--region", "11,13,51,57", "--overwrite"}).code, 0);
    auto const part = calibration();
    EXPECT_EQ(part.mosaic, whole.mosaic);
    EXPECT_EQ(part.maps->sensor, (polarization::Size{width, height}));
    EXPECT_EQ(part.maps->region, (polarization::Region{11, 13, 51, 57}));
    double worst = 0;
    for (std::size_t row = 0; row < 57; ++row) {
        for (std::size_t column = 0; column < 51; ++column) {
            std::size_t const there = (row + 13) * width + column + 11;
            std::size_t const here = row * 51 + column;
            EXPECT_EQ(part.maps->dark_level[here], whole.maps->dark_level[there]);
            worst = std::max(
                worst, std::abs(
                           static_cast<double>(part.maps->diattenuation[here]) -
                           static_cast<double>(whole.maps->diattenuation[there])));
        }
    }
    EXPECT_LT(worst, 1e-5);
    for (std::size_t position = 0; position < 4; ++position) {
        EXPECT_NEAR(
            part.analysers[position].orientation, whole.analysers[position].orientation, 0.3);
    }
}

TEST_F(Calibrate_models, listed_pixels_are_bad_and_frames_are_held_out_by_number_or_name) {
    test_files::write(
        folder_ / "bad.txt", std::string("\xEF\xBB\xBF"
                                         "Column, Row\r\n3,2\r\n\r\n 95 , 79\n40,1"));
    Outcome const outcome =
        calibrate({"--model", "gain", "--bad-pixels", in_folder("bad.txt"), "--hold-out", "2"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("3 bad pixels of 7680: 3 known"), std::string::npos);
    EXPECT_EQ(
        calibration().maps->bad_pixels,
        (std::vector<std::uint32_t>{width + 40, 2 * width + 3, 79 * width + 95}));
    EXPECT_EQ(calibration().quality.held_out_frame, in_folder("cal_angle_060.0.png"));
    Names const named = {"--model",    "gain",    "--hold-out",   "cal_angle_120.0.png",
                         "--region",   "3,2,8,8", "--bad-pixels", in_folder("bad.txt"),
                         "--overwrite"};
    ASSERT_EQ(calibrate(named).code, 0);
    EXPECT_EQ(calibration().maps->bad_pixels, (std::vector<std::uint32_t>{0}));
    EXPECT_EQ(calibration().quality.held_out_frame, in_folder("cal_angle_120.0.png"));
    Outcome const none = calibrate({"--model", "gain", "--hold-out", "none", "--overwrite"});
    EXPECT_EQ(none.code, 0);
    EXPECT_EQ(none.errors, "");
    EXPECT_TRUE(calibration().quality.models.empty());
}

TEST_F(Calibrate_models, flat_frames_tell_the_noise_that_was_simulated) {
    for (std::string const model : {"position", "pixel"}) {
        Outcome const outcome =
            calibrate({"--model", model, "--noise", in_folder("cal_flat_*.png"), "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        ASSERT_TRUE(calibration().noise);
        EXPECT_NEAR(calibration().noise->electrons_per_count, 10500.0 / 4095, 0.1);
        EXPECT_NE(outcome.output.find("electrons per count"), std::string::npos);
    }
}

TEST_F(Calibrate_models, noise_without_dark_frames_is_refused) {
    Names const arguments = {"calibrate",   in_folder("cal_angle_*.png"),
                             "-o",          in_folder("out.json"),
                             "--phase",     "2",
                             "--bit-depth", "12",
                             "--noise",     in_folder("cal_flat_*.png")};
    expect_one_line(run(arguments), 2, "give --dark");
    EXPECT_TRUE(outputs().empty());
}

TEST_F(Calibrate_models, three_angles_are_enough_but_for_a_frame_to_hold_out) {
    Names const three = {
        "calibrate",
        in_folder("cal_angle_000.0.png"),
        in_folder("cal_angle_060.0.png"),
        in_folder("cal_angle_120.0.png"),
        "-o",
        in_folder("out.json"),
        "--phase",
        "2",
        "--bit-depth",
        "12",
        "--dark",
        in_folder("cal_dark_*.png"),
        "--model",
        "pixel"};
    Names held_out = three;
    held_out.insert(held_out.end(), {"--hold-out", "1"});
    expect_one_line(run(held_out), 1, "the others do not tell the analysers");
    EXPECT_TRUE(outputs().empty());
    Outcome const outcome = run(three);
    EXPECT_EQ(outcome.code, 0) << outcome.errors;
    // Few frames, and none to hold out.
    EXPECT_EQ(line_count(outcome.errors), 2U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("No frame was held out"), std::string::npos) << outcome.errors;
}

TEST_F(Calibrate_models, what_cannot_be_is_refused_in_a_line_and_leaves_nothing) {
    test_files::write(folder_ / "words.txt", std::string("1,2\n3;4\n"));
    test_files::write(folder_ / "spaces.txt", std::string("1 2,3\n"));
    test_files::write(folder_ / "beyond.txt", std::string("1,2\n\n96,0\n"));
    cv::Mat const small(70, 96, CV_16UC1, cv::Scalar(20));
    test_files::write(folder_ / "small.png", test_files::encoded(small, ".png"));
    struct Case {
        Names more;
        int code;
        char const* word;
    };
    std::string const flat = in_folder("cal_flat_1_000.png");
    std::vector<Case> const cases = {
        {{"--model", "pixels"}, 2, "--model is pixels; give position, gain or pixel"},
        {{"--hold-out", "1"}, 2, "--model gain or pixel"},
        {{"--bad-pixels", in_folder("words.txt")}, 2, "--model gain or pixel"},
        {{"--model", "gain", "--hold-out", "6"}, 2, "--hold-out is 6"},
        {{"--model", "gain", "--hold-out", "cal_angle_010.0.png"}, 2, "no frame of the series"},
        {{"--model", "gain", "--bad-pixels", in_folder("words.txt")}, 1, "line 2: is '3;4'"},
        {{"--model", "gain", "--bad-pixels", in_folder("spaces.txt")}, 1, "line 1: is '1 2,3'"},
        {{"--model", "gain", "--bad-pixels", in_folder("beyond.txt")}, 1, "line 3: column 96"},
        {{"--model", "gain", "--bad-pixels", in_folder("none.txt")}, 1, "none.txt"},
        {{"--model", "gain", "--region", "90,0,20,20"}, 1, "region is 20 x 20"},
        {{"--model", "gain", "--plot", in_folder("out_maps.png")}, 2, "--plot"},
        {{"--dark", in_folder("small.png"), "--model", "gain"}, 1, "as a dark frame"},
        {{"--noise", flat}, 1, "has no second frame"},
        {{"--noise", flat, "--noise", in_folder("cal_flat_4_000.png")}, 1, "steady light"},
        {{"--noise", in_folder("cal_flat_1_*.png")}, 1, "number of levels is 1"},
        {{"--noise", in_folder("none.png")}, 1, "none.png"}};
    for (Case const& wanted : cases) {
        expect_one_line(calibrate(wanted.more), wanted.code, wanted.word);
        EXPECT_TRUE(outputs().empty()) << wanted.word;
    }
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Calibrate_models, frames_of_other_sizes_or_saturated_are_named) {
    std::string const frame = in_folder("cal_angle_030.0.png");
    auto const before = test_files::read(frame);
    cv::Mat const small(70, 96, CV_16UC1, cv::Scalar(900));
    cv::Mat const bright(80, 96, CV_16UC1, cv::Scalar(4095));
    cv::Mat const beyond(80, 96, CV_16UC1, cv::Scalar(5000));
    for (cv::Mat const& picture : {small, bright, beyond}) {
        test_files::write(frame, test_files::encoded(picture, ".png"));
        for (std::string const region : {"0,0,96,80", "2,2,20,20"}) {
            Outcome const outcome = calibrate({"--model", "pixel", "--region", region});
            EXPECT_EQ(outcome.code, 1);
            EXPECT_EQ(line_count(outcome.errors), 2U) << outcome.errors;
            EXPECT_NE(outcome.errors.find(frame), std::string::npos) << outcome.errors;
            EXPECT_NE(outcome.errors.find("1 of 6 frames"), std::string::npos) << outcome.errors;
            EXPECT_TRUE(outputs().empty());
        }
    }
    test_files::write(frame, before);
    EXPECT_EQ(calibrate({"--model", "pixel"}).code, 0);
}

// The array file's name tells its contents, so a run that fails must not take that of another.
TEST_F(Calibrate_models, files_that_are_there_stay_without_leave) {
    ASSERT_EQ(calibrate({"--model", "gain"}).code, 0);
    auto const contents = [this] {
        std::vector<std::vector<std::uint8_t>> all;
        for (std::string const& name : outputs()) {
            all.push_back(test_files::read(folder_ / name));
        }
        return all;
    };
    auto const before = contents();
    for (std::string const model : {"gain", "pixel", "position"}) {
        expect_one_line(calibrate({"--model", model}), 1, "--overwrite");
        EXPECT_EQ(contents(), before);
    }
    std::filesystem::remove(folder_ / "out.json");
    std::filesystem::remove(folder_ / "out.png");
    expect_one_line(calibrate({"--model", "gain"}), 1, "out_maps.png");
    EXPECT_EQ(outputs().size(), 2U);
    // What a run that was killed leaves: the maps of a calibration that never came.
    std::filesystem::remove(folder_ / "out_maps.png");
    EXPECT_EQ(calibrate({"--model", "gain"}).code, 0);
    auto const again = contents();
    // The text, which comes first, tells when it was made.
    EXPECT_TRUE(std::equal(before.begin() + 1, before.end(), again.begin() + 1, again.end()));
}

} // namespace
