// veldrane-polarize process: what it writes, against the planes that the library computes.
#include "process_fixture.hpp"
#include "veldrane_mrv/polarization/frame_source.hpp"
#include "veldrane_mrv/polarization/transform.hpp"
#include "veldrane_mrv/polarization/units.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

namespace {

using namespace veldrane_mrv::polarization;
using process_fixture::all_files;
using process_fixture::Names;
using process_fixture::Process_command;
using program_run::line_count;
using program_run::Outcome;
using test_files::encoded;
using test_files::pattern;
using test_files::read_tiff;

constexpr std::array sixteen_bit_planes = {
    Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp};

class Process_results : public Process_command {
protected:
    nlohmann::json sidecar(std::string const& name) const {
        auto const bytes = test_files::read(result(name));
        return nlohmann::json::parse(bytes.begin(), bytes.end());
    }
};

std::vector<double> widened(std::span<std::uint16_t const> samples) {
    return {samples.begin(), samples.end()};
}

TEST_F(Process_results, all_planes_sidecars_pictures_and_one_line) {
    Outcome const outcome = process({good()});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(line_count(outcome.output), 1U);
    EXPECT_EQ(outcome.output.find(good() + ": 40 x 20, transform "), 0U) << outcome.output;
    for (char const* const word : {" ms, ", " Mpixel/s", "good_s0.tif", "good_degree.png"}) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(test_files::names_in(results()), all_files);
    for (char const* const name : {"good_angle_degree.png", "good_degree.png"}) {
        cv::Mat const image = cv::imread(result(name), cv::IMREAD_UNCHANGED);
        EXPECT_EQ(image.type(), CV_8UC3) << name;
        EXPECT_EQ(image.size(), cv::Size(40, 20)) << name;
    }
}

TEST_F(Process_results, planes_hold_what_the_transform_computes) {
    ASSERT_EQ(process({good()}).code, 0);
    Frame const frame = read_frame(good());
    Planes expected(frame.height, frame.width, Plane_set::all());
    transform(frame.view(), ideal_settings(Mosaic::from_phase(0), Scale(8)), expected.views());
    for (Plane const plane : sixteen_bit_planes) {
        auto const file = result("good_" + std::string(name_of(plane)) + ".tif");
        EXPECT_EQ(read_tiff(file).samples, widened(expected.integer_plane(plane))) << file;
    }
    auto const floats = read_tiff(result("good_normalized_stokes.tif"));
    EXPECT_EQ(floats.channels, 2U);
    ASSERT_EQ(floats.samples.size(), expected.normalized_stokes().size());
    for (std::size_t index = 0; index < floats.samples.size(); ++index) {
        auto const value = static_cast<double>(expected.normalized_stokes()[index]);
        EXPECT_TRUE(
            floats.samples[index] == value ||
            (std::isnan(value) && std::isnan(floats.samples[index])));
    }
}

TEST_F(Process_results, calibrated_mode_without_a_calibration_uses_ideal_weights) {
    ASSERT_EQ(process({good()}, {"--mode", "calibrated"}).code, 0);
    Frame const frame = read_frame(good());
    Planes expected(frame.height, frame.width, Plane_set::all());
    Calibrated_transform(ideal_settings(Mosaic::from_phase(0), Scale(8)))(
        frame.view(), expected.views());
    for (Plane const plane : sixteen_bit_planes) {
        auto const file = result("good_" + std::string(name_of(plane)) + ".tif");
        EXPECT_EQ(read_tiff(file).samples, widened(expected.integer_plane(plane))) << file;
    }
    EXPECT_EQ(sidecar("good_s0.json").at("mode"), "calibrated");
    EXPECT_EQ(
        sidecar("good_normalized_stokes.json").at("placement"),
        "row by row, each number at its pixel");
}

TEST_F(Process_results, signed_planes_hold_both_halves) {
    ASSERT_EQ(process({good()}, {"--signed", "--planes", "s1,s2,s0", "--format", "npy"}).code, 0);
    Frame const frame = read_frame(good());
    Signed_planes expected(frame.height, frame.width, {Plane::s1, Plane::s2});
    transform_signed(
        frame.view(), ideal_settings(Mosaic::from_phase(0), Scale(8)), Mode::fast, {},
        expected.views());
    std::size_t negative = 0;
    for (auto const& [name, plane] :
         {std::pair{"good_s1", &expected.s1}, std::pair{"good_s2", &expected.s2}}) {
        auto const bytes = test_files::read(result(std::string(name) + ".npy"));
        ASSERT_EQ(bytes.size(), 128 + 4 * plane->size());
        std::string const head(bytes.begin(), bytes.begin() + 128);
        EXPECT_EQ(head.substr(0, 6), "\x93NUMPY");
        EXPECT_NE(head.find("'<i4'"), std::string::npos);
        EXPECT_NE(head.find("(20, 40)"), std::string::npos);
        std::vector<std::int32_t> numbers(plane->size());
        std::memcpy(numbers.data(), bytes.data() + 128, 4 * numbers.size());
        EXPECT_EQ(numbers, *plane);
        negative += static_cast<std::size_t>(
            std::count_if(numbers.begin(), numbers.end(), [](int n) { return n < 0; }));
        EXPECT_EQ(sidecar(std::string(name) + ".json").at("range"), "signed");
    }
    std::printf("%zu negative numbers\n", negative);
    EXPECT_GT(negative, 100U);
}

TEST_F(Process_results, physical_units_are_floats_with_the_angle_from_the_rows) {
    ASSERT_EQ(process({good()}, {"--units", "degrees", "--planes", "s0,azimuth,dolp"}).code, 0);
    Frame const frame = read_frame(good());
    Scale const scale(8);
    Planes planes(frame.height, frame.width, {Plane::s0, Plane::azimuth, Plane::dolp});
    transform(frame.view(), ideal_settings(Mosaic::from_phase(0), scale), planes.views());
    auto const angle = read_tiff(result("good_azimuth.tif")).samples;
    auto const degree = read_tiff(result("good_dolp.tif")).samples;
    auto const s0 = read_tiff(result("good_s0.tif")).samples;
    ASSERT_EQ(angle.size(), 800U);
    for (std::size_t index = 0; index < angle.size(); ++index) {
        std::uint16_t const dolp = planes.integer_plane(Plane::dolp)[index];
        if (dolp == 0) {
            EXPECT_TRUE(std::isnan(angle[index]));
        } else {
            EXPECT_NEAR(
                angle[index], angle_of_azimuth(planes.integer_plane(Plane::azimuth)[index], scale),
                1e-4);
        }
        EXPECT_NEAR(degree[index], degree_of_dolp(dolp, scale), 1e-6);
        EXPECT_NEAR(
            s0[index], stokes_in_samples(planes.integer_plane(Plane::s0)[index], scale), 1e-3);
    }
    auto const json = sidecar("good_azimuth.json");
    EXPECT_EQ(json.at("unit"), "degree");
    EXPECT_EQ(json.at("offset"), 0.0);
    EXPECT_EQ(json.at("sample_type"), "float32");
}

TEST_F(Process_results, a_sidecar_turns_numbers_into_values) {
    ASSERT_EQ(process({good()}, {"--planes", "azimuth,s0", "--shift", "1"}).code, 0);
    auto const azimuth = sidecar("good_azimuth.json");
    EXPECT_EQ(azimuth.at("file"), "good_azimuth.tif");
    EXPECT_EQ(azimuth.at("unit"), "degree");
    EXPECT_EQ(azimuth.at("full_scale"), 65535);
    EXPECT_DOUBLE_EQ(azimuth.at("step").get<double>(), 180.0 / 65535.0);
    EXPECT_EQ(azimuth.at("offset"), 90.0);
    EXPECT_EQ(azimuth.at("mosaic").at("phase"), 0);
    EXPECT_EQ(azimuth.at("mosaic").at("layout"), (std::vector<int>{0, 135, 45, 90}));
    EXPECT_EQ(azimuth.at("mode"), "fast");
    EXPECT_EQ(azimuth.at("source").at("file"), good());
    EXPECT_EQ(azimuth.at("source").at("shift"), 1);
    EXPECT_NE(azimuth.at("zero_direction").get<std::string>().find("rows"), std::string::npos);
    auto const& software = azimuth.at("software");
    EXPECT_NE(software.at("processor").get<std::string>().find("Version = "), std::string::npos);
    auto const s0 = sidecar("good_s0.json");
    EXPECT_EQ(s0.at("unit"), "sample");
    EXPECT_NEAR(s0.at("step").get<double>(), 510.0 / 65535.0, 1e-9);
}

TEST_F(Process_results, a_sidecar_says_what_holds_where_there_is_no_value) {
    auto const undefined = [this](Names const& more) {
        forget_results();
        Names options = {"--planes", "s0,azimuth,dolp,normalized_stokes"};
        options.insert(options.end(), more.begin(), more.end());
        EXPECT_EQ(process({good()}, options).code, 0);
        std::vector<std::string> texts;
        for (char const* const plane : {"azimuth", "dolp", "normalized_stokes"}) {
            texts.push_back(
                sidecar(std::string("good_") + plane + ".json").at("undefined").get<std::string>());
        }
        EXPECT_TRUE(sidecar("good_s0.json").at("undefined").is_null());
        return texts;
    };
    auto const scaled = undefined({});
    EXPECT_EQ(scaled[0], "the number of the angle 0 where S1 and S2 are 0");
    EXPECT_EQ(scaled[1], "0 where S0 is 0");
    EXPECT_EQ(scaled[2].find("NaN where a Stokes quantity of 0"), 0U);
    auto const radians = undefined({"--units", "radians"});
    EXPECT_EQ(radians[0], "NaN where the degree is stored as 0");
    EXPECT_EQ(radians[1], "NaN where S0 is stored as 0");
    EXPECT_EQ(radians[2], scaled[2]);
}

TEST_F(Process_results, a_sidecar_names_the_dark_frames) {
    ASSERT_EQ(process({good()}, {"--planes", "s0"}).code, 0);
    EXPECT_EQ(sidecar("good_s0.json").at("source").at("dark_frames"), nlohmann::json::array());
    EXPECT_EQ(sidecar("good_s0.json").at("source").at("dark_frame_subtracted"), false);
    Names names;
    for (char const* const name : {"dark_1.png", "dark_2.png"}) {
        names.push_back(in_folder(name));
        test_files::write(names.back(), encoded(cv::Mat(20, 40, CV_8UC1, cv::Scalar(1)), ".png"));
    }
    forget_results();
    ASSERT_EQ(process({good()}, {"--planes", "s0", "--dark", in_folder("dark_*")}).code, 0);
    EXPECT_EQ(sidecar("good_s0.json").at("source").at("dark_frames"), names);
    EXPECT_EQ(sidecar("good_s0.json").at("source").at("dark_frame_subtracted"), true);
}

TEST_F(Process_results, a_sidecar_says_how_the_last_pixel_was_computed) {
    test_files::write(folder_ / "odd.png", encoded(pattern(41, 20, CV_8UC1), ".png"));
    std::vector<std::tuple<char const*, char const*, char const*>> const cases = {
        {"good", "fast", "computed with the weights of its position"},
        {"good", "calibrated", "computed with the weights of its position"},
        {"odd", "fast",
         "computed with the weights of an even row and column, not those of its position"},
        {"odd", "calibrated", "mended: computed once more with the weights of its position"}};
    for (auto const& [frame, mode, words] : cases) {
        forget_results();
        std::string const name = frame;
        ASSERT_EQ(process({in_folder(name + ".png")}, {"--planes", "s0", "--mode", mode}).code, 0);
        EXPECT_EQ(sidecar(name + "_s0.json").at("final_pixel"), words) << name << mode;
    }
}

TEST_F(Process_results, requested_planes_only_and_the_pictures_they_allow) {
    std::vector<std::pair<Names, Names>> const cases = {
        {{"--planes", "s0"}, {"good_s0.json", "good_s0.tif"}},
        {{"--planes", "s2,s1"}, {"good_s1.json", "good_s1.tif", "good_s2.json", "good_s2.tif"}},
        {{"--planes", "dolp"}, {"good_degree.png", "good_dolp.json", "good_dolp.tif"}},
        {{"--planes", "dolp", "--no-pictures"}, {"good_dolp.json", "good_dolp.tif"}},
        {{"--planes", "dolp,azimuth"},
         {"good_angle_degree.png", "good_azimuth.json", "good_azimuth.tif", "good_degree.png",
          "good_dolp.json", "good_dolp.tif"}}};
    for (auto const& [options, names] : cases) {
        forget_results();
        EXPECT_EQ(process({good()}, options).code, 0);
        EXPECT_EQ(test_files::names_in(results()), names);
    }
}

TEST_F(Process_results, every_file_format_holds_the_same_numbers) {
    for (char const* const format : {"tiff", "png", "raw", "npy"}) {
        ASSERT_EQ(process({good()}, {"--planes", "dolp", "--format", format}).code, 0);
        std::filesystem::remove(result("good_degree.png"));
        std::filesystem::remove(result("good_dolp.json"));
    }
    std::vector<double> const expected = read_tiff(result("good_dolp.tif")).samples;
    cv::Mat const png = cv::imread(result("good_dolp.png"), cv::IMREAD_UNCHANGED);
    ASSERT_EQ(png.type(), CV_16UC1);
    EXPECT_EQ(std::vector<double>(png.begin<std::uint16_t>(), png.end<std::uint16_t>()), expected);
    for (auto const& [name, head] :
         {std::pair{"good_dolp.raw", 0U}, std::pair{"good_dolp.npy", 128U}}) {
        auto const bytes = test_files::read(result(name));
        ASSERT_EQ(bytes.size(), head + 2 * expected.size()) << name;
        std::vector<std::uint16_t> numbers(expected.size());
        std::memcpy(numbers.data(), bytes.data() + head, 2 * numbers.size());
        EXPECT_EQ(widened(numbers), expected) << name;
    }
}

TEST_F(Process_results, repeat_prints_best_and_median) {
    Outcome const outcome = process({good()}, {"--repeat", "5"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("best "), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find(" ms of 5, "), std::string::npos) << outcome.output;
}

TEST_F(Process_results, quiet_says_nothing) {
    Outcome const outcome = process({good()}, {"--quiet"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.output + outcome.errors, "");
}

TEST_F(Process_results, existing_results_stay_unless_overwriting_is_asked_for) {
    ASSERT_EQ(process({good()}, {"--planes", "s0"}).code, 0);
    auto const before = test_files::read(result("good_s0.tif"));
    Outcome const refused = process({good()}, {"--planes", "s0", "--full-scale", "255"});
    expect_one_line(refused, 1, "--overwrite");
    EXPECT_EQ(test_files::read(result("good_s0.tif")), before);
    EXPECT_EQ(process({good()}, {"--planes", "s0", "--full-scale", "255", "--overwrite"}).code, 0);
    EXPECT_NE(test_files::read(result("good_s0.tif")), before);
}

TEST_F(Process_results, saturated_frame_of_16_bits_does_not_clip_by_default) {
    cv::Mat const image(6, 40, CV_16UC1, cv::Scalar(49151));
    test_files::write(folder_ / "bright.png", encoded(image, ".png"));
    Names arguments = {"-o", results(), "--phase", "2", "--bit-depth", "16", "--planes", "s0"};
    ASSERT_EQ(process_with({in_folder("bright.png")}, arguments).code, 0);
    for (double const sample : read_tiff(result("bright_s0.tif")).samples) {
        EXPECT_NEAR(sample, 49151.0, 20.0);
    }
    arguments.insert(arguments.end(), {"--full-scale", "65535", "--overwrite"});
    ASSERT_EQ(process_with({in_folder("bright.png")}, arguments).code, 0);
    EXPECT_EQ(read_tiff(result("bright_s0.tif")).samples, std::vector<double>(240, 65535.0));
}

TEST_F(Process_results, full_scale_of_the_sensor_keeps_sample_units) {
    cv::Mat const image(6, 40, CV_8UC1, cv::Scalar(100));
    test_files::write(folder_ / "grey.png", encoded(image, ".png"));
    std::vector<std::pair<char const*, double>> const cases = {
        {"255", 200.0}, {"510", 200.0}, {"1020", 400.0}, {"65535", 25700.0}};
    for (auto const& [full_scale, expected] : cases) {
        forget_results();
        Names const options = {"--planes", "s0", "--full-scale", full_scale};
        ASSERT_EQ(process({in_folder("grey.png")}, options).code, 0);
        for (double const s : read_tiff(result("grey_s0.tif")).samples) {
            EXPECT_NEAR(s, expected, expected * 1.5 / 4096.0 + 0.5) << full_scale;
        }
    }
}

} // namespace
