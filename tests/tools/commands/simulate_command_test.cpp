// veldrane-polarize simulate, run as a user runs it.
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

namespace {

using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using test_files::Folder;

std::vector<std::string> small(
    std::filesystem::path const& frame, std::vector<std::string> const& more = {}) {
    std::vector<std::string> arguments = {"simulate", "-o",       frame.string(), "--width",
                                          "160",      "--height", "120"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(Simulate_command, writes_the_frame_alone) {
    Folder const folder;
    Outcome const outcome = run(small(folder / "ball.png"));
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(
        outcome.output,
        (folder / "ball.png").string() + ": 160 x 120, phase 0, bit depth 12, seed 1\n");
    EXPECT_EQ(test_files::names_in(folder.path()), std::vector<std::string>{"ball.png"});
}

TEST(Simulate_command, bit_depth_8_gives_8_bits_and_above_gives_16) {
    Folder const folder;
    EXPECT_EQ(run(small(folder / "8.png", {"--bit-depth", "8"})).code, 0);
    EXPECT_EQ(run(small(folder / "9.png", {"--bit-depth", "9"})).code, 0);
    cv::Mat const narrow = cv::imread((folder / "8.png").string(), cv::IMREAD_UNCHANGED);
    cv::Mat const wide = cv::imread((folder / "9.png").string(), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(narrow.type(), CV_8UC1);
    EXPECT_EQ(wide.type(), CV_16UC1);
    EXPECT_EQ(wide.size(), cv::Size(160, 120));
}

TEST(Simulate_command, same_arguments_same_bytes_and_another_seed_others) {
    Folder const folder;
    EXPECT_EQ(run(small(folder / "a.png", {"--seed", "7"})).code, 0);
    EXPECT_EQ(run(small(folder / "b.png", {"--seed", "7"})).code, 0);
    EXPECT_EQ(run(small(folder / "c.png", {"--seed", "8"})).code, 0);
    EXPECT_EQ(test_files::read(folder / "a.png"), test_files::read(folder / "b.png"));
    EXPECT_NE(test_files::read(folder / "a.png"), test_files::read(folder / "c.png"));
}

TEST(Simulate_command, frame_is_the_simulated_one) {
    Folder const folder;
    EXPECT_EQ(run(small(folder / "a.png", {"--phase", "3", "--no-noise"})).code, 0);
    veldrane_mrv::polarization::Simulation_settings settings;
    settings.width = 160;
    settings.height = 120;
    settings.phase = 3;
    settings.noise = false;
    cv::Mat const image = cv::imread((folder / "a.png").string(), cv::IMREAD_UNCHANGED);
    EXPECT_EQ(
        std::vector<std::uint16_t>(image.begin<std::uint16_t>(), image.end<std::uint16_t>()),
        veldrane_mrv::polarization::simulate(settings).frame.samples);
}

TEST(Simulate_command, truth_is_five_float_planes) {
    Folder const folder;
    Outcome const outcome =
        run(small(folder / "ball.png", {"--truth", (folder / "made" / "truth").string()}));
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(line_count(outcome.output), 6U);
    EXPECT_EQ(
        test_files::names_in(folder / "made" / "truth"),
        (std::vector<std::string>{
            "ball_true_angle.tif", "ball_true_degree.tif", "ball_true_s0.tif", "ball_true_s1.tif",
            "ball_true_s2.tif"}));
    veldrane_mrv::polarization::Simulation_settings settings;
    settings.width = 160;
    settings.height = 120;
    veldrane_mrv::polarization::Truth const truth =
        veldrane_mrv::polarization::simulate(settings).truth;
    std::pair<char const*, std::vector<float> const&> const planes[] = {
        {"s0", truth.s0},
        {"s1", truth.s1},
        {"s2", truth.s2},
        {"angle", truth.angle},
        {"degree", truth.degree}};
    for (auto const& [name, expected] : planes) {
        auto const file = folder / "made" / "truth" / (std::string("ball_true_") + name + ".tif");
        cv::Mat const image = cv::imread(file.string(), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(image.type(), CV_32FC1) << name;
        ASSERT_EQ(image.size(), cv::Size(160, 120)) << name;
        EXPECT_EQ(std::vector<float>(image.begin<float>(), image.end<float>()), expected) << name;
    }
}

TEST(Simulate_command, wrong_usage_is_refused_in_one_line_with_code_2) {
    Folder const folder;
    std::vector<std::pair<std::vector<std::string>, char const*>> const cases = {
        {{"simulate"}, "--output"},
        {small(folder / "a.png", {"--phase", "4"}), "--phase"},
        {small(folder / "a.png", {"--phase", "-1"}), "--phase"},
        {small(folder / "a.png", {"--bit-depth", "7"}), "--bit-depth"},
        {small(folder / "a.png", {"--bit-depth", "17"}), "--bit-depth"},
        {small(folder / "a.png", {"--seed", "red"}), "--seed"},
        {small(folder / "a.png", {"--colour"}), "--colour"},
        {{"simulate", "-o", (folder / "a.png").string(), "--width", "1"}, "--width"},
        {{"simulate", "-o", (folder / "a.png").string(), "--height", "99999"}, "--height"},
        {small(folder / "a.tif"), "must end in .png"},
        {small(folder / "a.png", {"--frames", "0"}), "--frames"},
        {small(folder / "a.raw", {"--pixel-format", "Mono10"}), "12 bits"},
        {small(folder / "a.raw", {"--pixel-format", "mono13"}), "Mono12Packed"},
        {small(folder / "a.png", {"--polarizer-series", "0:180"}), "A0:A1:STEP"},
        {small(folder / "a.png", {"--polarizer-series", "90:0:10"}), "A0:A1:STEP"},
        {small(folder / "a.png", {"--polarizer-series", "0:90:0"}), "A0:A1:STEP"},
        {small(folder / "a.png", {"--polarizer-series", "0:90:9", "--frames", "2"}), "--frames"},
        {small(folder / "a.raw", {"--polarizer-series", "0:90:9"}), "PNG files only"},
        {small(folder / "a.png", {"--imperfect", "--throughput-spread", "nan"}),
         "no finite number"},
        {small(folder / "a.png", {"--imperfect", "--orientation-spread", "nan"}),
         "no finite number"},
        {small(folder / "a.png", {"--imperfect", "--lowest-diattenuation", "nan"}), "no finite"},
        {small(folder / "a.png", {"--imperfect", "--highest-diattenuation", "nan"}), "no finite"},
        {small(folder / "a.png", {"--orientation-spread", "2"}), "--imperfect"},
        {small(folder / "a.png", {"--pixel-orientation-spread", "2"}), "--pixel-spread"},
        {small(folder / "a.png", {"--dark-level", "2"}), "--pixel-spread"},
        {small(folder / "a.png", {"--pixel-spread", "--pixel-gain-spread", "0.3"}), "--pixel-gain"},
        {small(folder / "a.png", {"--pixel-spread", "--dark-level", "1024"}), "0 to 1023"},
        {small(folder / "a.png", {"--pixel-spread", "--bit-depth", "8", "--dark-spread", "64"}),
         "--dark-spread is 64; give 0 to 63 at a depth of 8 bits"},
        {small(folder / "a.png", {"--no-noise", "--read-noise", "2"}), "--no-noise"},
        {small(folder / "a.png", {"--electrons-per-count", "0"}), "--electrons-per-count"},
        {small(folder / "a.png", {"--flat-levels", "2"}), "--flat-frames"},
        {small(folder / "a.raw", {"--dark-frames", "2"}), "PNG files only"}};
    for (auto const& [arguments, word] : cases) {
        Outcome const outcome = run(arguments);
        expect_one_line(outcome, 2, word);
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_TRUE(test_files::names_in(folder.path()).empty());
    std::printf("%zu refusals\n", cases.size());
}

TEST(Simulate_command, dark_frames_in_a_raw_file_are_refused_before_anything_else) {
    Folder const folder;
    test_files::write(folder / "a.raw", "precious");
    expect_one_line(run(small(folder / "a.raw", {"--dark-frames", "2"})), 2, "PNG files only");
}

TEST(Simulate_command, an_existing_frame_stays_unless_overwriting_is_asked_for) {
    Folder const folder;
    test_files::write(folder / "a.png", "precious");
    Outcome const refused = run(small(folder / "a.png"));
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.errors.find("--overwrite"), std::string::npos) << refused.errors;
    EXPECT_EQ(test_files::read(folder / "a.png").size(), 8U);
    EXPECT_EQ(run(small(folder / "a.png", {"--overwrite"})).code, 0);
    EXPECT_GT(test_files::read(folder / "a.png").size(), 8U);
}

TEST(Simulate_command, a_place_that_cannot_be_written_is_refused_with_code_1) {
    Folder const folder;
    test_files::write(folder / "file", "x");
    std::vector<std::vector<std::string>> const cases = {
        small("/proc/a.png"), small(folder / "file" / "a.png"),
        small(folder / "a.png", {"--truth", (folder / "file" / "truth").string()})};
    for (auto const& arguments : cases) {
        Outcome const outcome = run(arguments);
        expect_one_line(outcome, 1);
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_EQ(test_files::names_in(folder.path()), std::vector<std::string>{"file"});
}

} // namespace
