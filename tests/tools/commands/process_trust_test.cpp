// veldrane-polarize process: which pixels to trust and how far, in planes and in pictures.
#include "process_fixture.hpp"

#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

namespace {

using process_fixture::Process_command;
using program_run::Outcome;
using test_files::read_tiff;

class Process_trust : public Process_command {
protected:
    void SetUp() override {
        Process_command::SetUp();
        cv::Mat frame(20, 40, CV_8UC1, cv::Scalar(100));
        for (int row = 0; row < frame.rows; row += 2) {
            for (int column = 0; column < frame.cols; column += 2) {
                frame.at<std::uint8_t>(row, column) = 150; // 0 degrees
                frame.at<std::uint8_t>(row + 1, column + 1) = 50;
            }
        }
        frame.at<std::uint8_t>(8, 10) = 255;
        test_files::write(folder_ / "bright.png", test_files::encoded(frame, ".png"));
    }

    std::string bright() const { return in_folder("bright.png"); }
};

bool is_neighbour_of_the_bright_one(int row, int column) {
    return (row == 7 || row == 8) && (column == 9 || column == 10);
}

TEST_F(Process_trust, writes_both_planes_in_every_format) {
    for (char const* const format : {"tiff", "npy", "raw"}) {
        Outcome const outcome = process(
            {bright()}, {"--planes", "validity,uncertainty", "--electrons-per-count", "20",
                         "--read-noise", "4", "--format", format, "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
    }
    auto const marks = test_files::read(result("bright_validity.raw"));
    ASSERT_EQ(marks.size(), 800U);
    EXPECT_EQ(
        read_tiff(result("bright_validity.tif")).samples,
        (std::vector<double>(marks.begin(), marks.end())));
    for (int pixel = 0; pixel < 800; ++pixel) {
        EXPECT_EQ(
            marks[static_cast<std::size_t>(pixel)],
            is_neighbour_of_the_bright_one(pixel / 40, pixel % 40) ? 1 : 0);
    }
    auto const deviations = read_tiff(result("bright_uncertainty.tif"));
    EXPECT_EQ(deviations.channels, 3U);
    ASSERT_EQ(deviations.samples.size(), 2400U);
    // sqrt((150 + 100 + 100 + 50) / 20 + 4 (16 / 400 + 1 / 12)) / 2 of S0.
    EXPECT_NEAR(deviations.samples[0], 2.2635, 1e-3);
    EXPECT_EQ(test_files::read(result("bright_uncertainty.raw")).size(), 9600U);
    EXPECT_EQ(test_files::read(result("bright_uncertainty.npy")).size(), 9728U);
    auto const beside = test_files::read(result("bright_uncertainty.json"));
    auto const json = nlohmann::json::parse(beside.begin(), beside.end());
    EXPECT_EQ(json.at("channels"), 3);
    EXPECT_EQ(json.at("sample_type"), "float32");
    EXPECT_EQ(json.at("step"), 1.0);
    EXPECT_EQ(json.at("noise").at("electrons_per_count"), 20.0);
    EXPECT_EQ(json.at("noise").at("read_noise_electrons"), 4.0);
}

TEST_F(Process_trust, validity_fits_into_png) {
    ASSERT_EQ(process({bright()}, {"--planes", "validity", "--format", "png"}).code, 0);
    auto const beside = test_files::read(result("bright_validity.json"));
    EXPECT_TRUE(nlohmann::json::parse(beside.begin(), beside.end()).at("noise").is_null());
    cv::Mat const image = cv::imread(result("bright_validity.png"), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(image.type(), CV_8UC1);
    EXPECT_EQ(cv::countNonZero(image), 4);
}

TEST_F(Process_trust, pictures_are_grey_where_pixels_are_not_valid) {
    cv::Vec3b const grey(128, 128, 128);
    ASSERT_EQ(process({bright()}, {"--planes", "azimuth,dolp"}).code, 0);
    std::vector<cv::Mat> masked;
    for (char const* const name : {"bright_degree.png", "bright_angle_degree.png"}) {
        masked.push_back(cv::imread(result(name)));
    }
    ASSERT_EQ(
        process({bright()}, {"--planes", "azimuth,dolp", "--no-mask", "--overwrite"}).code, 0);
    std::size_t place = 0;
    for (char const* const name : {"bright_degree.png", "bright_angle_degree.png"}) {
        cv::Mat const plain = cv::imread(result(name));
        cv::Mat const& picture = masked[place++];
        for (int row = 0; row < 20; ++row) {
            for (int column = 0; column < 40; ++column) {
                auto const colour = plain.at<cv::Vec3b>(row, column);
                EXPECT_NE(colour, grey);
                EXPECT_EQ(
                    picture.at<cv::Vec3b>(row, column),
                    is_neighbour_of_the_bright_one(row, column) ? grey : colour);
            }
        }
    }
}

TEST_F(Process_trust, saturation_shows_though_a_dark_level_is_subtracted) {
    test_files::write(
        folder_ / "dark.png",
        test_files::encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(16)), ".png"));
    for (char const* const mode : {"fast", "calibrated"}) {
        Outcome const outcome = process(
            {bright()}, {"--dark", in_folder("dark.png"), "--mode", mode, "--planes",
                         "validity,dolp", "--format", "raw", "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        auto const marks = test_files::read(result("bright_validity.raw"));
        cv::Mat const masked = cv::imread(result("bright_degree.png"));
        for (int pixel = 0; pixel < 800; ++pixel) {
            bool const is_marked = is_neighbour_of_the_bright_one(pixel / 40, pixel % 40);
            EXPECT_EQ(marks.at(static_cast<std::size_t>(pixel)), is_marked ? 1 : 0);
            auto const colour = masked.at<cv::Vec3b>(pixel / 40, pixel % 40);
            EXPECT_EQ(colour == cv::Vec3b(128, 128, 128), is_marked);
        }
    }
}

TEST_F(Process_trust, masked_pictures_and_a_region_keep_the_saturation_of_before_the_dark_level) {
    test_files::write(
        folder_ / "dark.png",
        test_files::encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(16)), ".png"));
    Outcome const outcome = process(
        {bright()}, {"--dark", in_folder("dark.png"), "--planes", "dolp", "--region", "4,6,20,10"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    cv::Mat const masked = cv::imread(result("bright_degree.png"));
    for (int row = 0; row < 10; ++row) {
        for (int column = 0; column < 20; ++column) {
            EXPECT_EQ(
                masked.at<cv::Vec3b>(row, column) == cv::Vec3b(128, 128, 128),
                is_neighbour_of_the_bright_one(row + 6, column + 4));
        }
    }
}

TEST_F(Process_trust, weak_light_is_grey_if_the_noise_is_known) {
    ASSERT_EQ(process({bright()}, {"--planes", "dolp", "--electrons-per-count", "0.01"}).code, 0);
    cv::Mat const picture = cv::imread(result("bright_degree.png"));
    EXPECT_EQ(picture.at<cv::Vec3b>(0, 0), cv::Vec3b(128, 128, 128));
}

TEST_F(Process_trust, deviations_without_noise_are_refused_with_the_remedy) {
    Outcome const outcome = process({bright()}, {"--planes", "uncertainty"});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_NE(outcome.errors.find("give --electrons-per-count"), std::string::npos);
}

} // namespace
