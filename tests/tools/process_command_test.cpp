// veldrane-polarize process, run as a user runs it: results against the truth, and every refusal.
#include "frame_reading.hpp"
#include "image_writing.hpp"
#include "program_run.hpp"
#include "simulation.hpp"
#include "test_files.hpp"
#include "transform.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <opencv2/imgcodecs.hpp>

namespace {

using program_run::line_count;
using program_run::Outcome;
using program_run::run;
using test_files::encoded;
using test_files::Folder;
using test_files::pattern;
using Names = std::vector<std::string>;

class Process_command : public testing::Test {
protected:
    void SetUp() override {
        if (!polarize_tool::missing_instructions().empty()) {
            GTEST_SKIP() << "this processor lacks " << polarize_tool::missing_instructions();
        }
        test_files::write(folder_ / "good.png", encoded(pattern(40, 20, CV_8UC1), ".png"));
    }

    std::string good() const { return (folder_ / "good.png").string(); }
    std::string results() const { return (folder_ / "results").string(); }

    // process FRAMES -o results --phase 0 --bit-depth 8 MORE
    Outcome process(Names const& frames, Names const& more = {}) const {
        Names arguments = {"process"};
        arguments.insert(arguments.end(), frames.begin(), frames.end());
        for (std::string const& word :
             {std::string("-o"), results(), std::string("--phase"), std::string("0"),
              std::string("--bit-depth"), std::string("8")}) {
            arguments.push_back(word);
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }

    Folder folder_;
};

Names const all_files = {
    "good_angle_degree.png",      "good_azimuth.tif", "good_degree.png", "good_dolp.tif",
    "good_normalized_stokes.tif", "good_s0.tif",      "good_s1.tif",     "good_s2.tif"};

TEST_F(Process_command, writes_all_planes_and_pictures_and_one_line) {
    Outcome const outcome = process({good()});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(line_count(outcome.output), 1U);
    EXPECT_EQ(outcome.output.find(good() + ": 40 x 20, transform "), 0U) << outcome.output;
    for (char const* const word : {" ms, ", " Mpixel/s", "good_s0.tif", "good_degree.png"}) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << word;
    }
    EXPECT_EQ(test_files::names_in(results()), all_files);
    for (std::string const& name : all_files) {
        cv::Mat const image = name.ends_with(".png")
                                  ? cv::imread(results() + "/" + name, cv::IMREAD_UNCHANGED)
                                  : cv::Mat();
        if (name.ends_with(".png")) {
            EXPECT_EQ(image.type(), CV_8UC3) << name;
            EXPECT_EQ(image.size(), cv::Size(40, 20)) << name;
        } else {
            test_files::Tiff const tiff = test_files::read_tiff(results() + "/" + name);
            EXPECT_EQ(tiff.width, 40U);
            EXPECT_EQ(tiff.height, 20U);
            EXPECT_EQ(tiff.channels, name == "good_normalized_stokes.tif" ? 2U : 1U);
        }
    }
}

TEST_F(Process_command, planes_hold_what_the_transform_computes) {
    using namespace polarize_tool;
    ASSERT_EQ(process({good()}).code, 0);
    Frame const frame = read_frame(good());
    Transform_result const expected = transform(
        frame,
        {0,
         8,
         std::nullopt,
         {Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp, Plane::normalized_stokes},
         1});
    for (Plane const plane : {Plane::s0, Plane::s1, Plane::s2, Plane::azimuth, Plane::dolp}) {
        auto const& samples = expected.plane(plane);
        auto const file = results() + "/good_" + std::string(name_of(plane)) + ".tif";
        EXPECT_EQ(
            test_files::read_tiff(file).samples,
            std::vector<double>(samples.begin(), samples.end()))
            << file;
    }
    auto const floats = test_files::read_tiff(results() + "/good_normalized_stokes.tif").samples;
    ASSERT_EQ(floats.size(), expected.normalized_stokes.size());
    for (std::size_t index = 0; index < floats.size(); ++index) {
        double const value = static_cast<double>(expected.normalized_stokes[index]);
        EXPECT_TRUE(floats[index] == value || (std::isnan(value) && std::isnan(floats[index])));
    }
}

TEST_F(Process_command, requested_planes_only_and_the_pictures_they_allow) {
    std::vector<std::pair<char const*, Names>> const cases = {
        {"s0", {"good_s0.tif"}},
        {"s2,s1", {"good_s1.tif", "good_s2.tif"}},
        {"azimuth", {"good_azimuth.tif"}},
        {"dolp", {"good_degree.png", "good_dolp.tif"}},
        {"dolp,azimuth",
         {"good_angle_degree.png", "good_azimuth.tif", "good_degree.png", "good_dolp.tif"}},
        {"normalized_stokes", {"good_normalized_stokes.tif"}}};
    for (auto const& [planes, names] : cases) {
        std::filesystem::remove_all(results());
        EXPECT_EQ(process({good()}, {"--planes", planes}).code, 0);
        EXPECT_EQ(test_files::names_in(results()), names) << planes;
    }
}

TEST_F(Process_command, repeat_prints_best_and_median) {
    Outcome const outcome = process({good()}, {"--repeat", "5"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_NE(outcome.output.find("best "), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find(" ms of 5, "), std::string::npos) << outcome.output;
}

TEST_F(Process_command, every_format_gives_the_same_planes) {
    cv::Mat const image = pattern(47, 21, CV_16UC1);
    Names frames;
    for (char const* const ending : {".png", ".tif", ".pgm"}) {
        std::string const name = (folder_ / (std::string("as") + (ending + 1) + ending)).string();
        test_files::write(name, encoded(image, ending));
        frames.push_back(name);
    }
    Names arguments = {"process", "-o", results(), "--phase", "1", "--bit-depth", "16"};
    arguments.insert(arguments.end(), frames.begin(), frames.end());
    EXPECT_EQ(run(arguments).code, 0);
    for (char const* const plane : {"s0", "s1", "s2", "azimuth", "dolp", "normalized_stokes"}) {
        auto const file = [&](char const* start) {
            return test_files::read(results() + "/" + start + "_" + plane + ".tif");
        };
        EXPECT_EQ(file("aspng"), file("astif")) << plane;
        EXPECT_EQ(file("aspng"), file("aspgm")) << plane;
    }
}

// The light that a cell's four samples see, averaged: what an estimate from them stands for.
struct Cell_truth {
    double angle;
    double degree;
    bool is_smooth;
};

Cell_truth truth_around(
    polarize_tool::Truth const& truth, std::size_t width, std::size_t height, std::size_t row,
    std::size_t column) {
    std::size_t const next_row = row + 1 < height ? row + 1 : row - 1;
    std::size_t const next_column = column + 1 < width ? column + 1 : column - 1;
    double sum[3] = {0, 0, 0};
    std::array<float, 3> low;
    std::array<float, 3> high;
    low.fill(1e30F);
    high.fill(-1e30F);
    auto const include = [&](std::size_t index) {
        std::array<float, 3> const values = {truth.s0[index], truth.s1[index], truth.s2[index]};
        for (std::size_t i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], values[i]);
            high[i] = std::max(high[i], values[i]);
        }
    };
    for (std::size_t const index :
         {row * width + column, row * width + next_column, next_row * width + column,
          next_row * width + next_column}) {
        include(index);
        sum[0] += static_cast<double>(truth.s0[index]) / 4.0;
        sum[1] += static_cast<double>(truth.s1[index]) / 4.0;
        sum[2] += static_cast<double>(truth.s2[index]) / 4.0;
    }
    // In phase 0 the total intensity of some pixels holds a sample of the row above.
    std::size_t const row_above = row > 0 ? row - 1 : row;
    include(row_above * width + column);
    include(row_above * width + next_column);
    double const largest_step =
        static_cast<double>(std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]}));
    double const angle = std::atan2(sum[2], sum[1]) * 90.0 / std::numbers::pi;
    return {
        angle < 0 ? angle + 180 : angle, std::hypot(sum[1], sum[2]) / sum[0],
        largest_step < 0.003 * sum[0]};
}

TEST_F(Process_command, noise_free_frame_gives_its_true_angle_and_degree) {
    constexpr std::size_t width = 643;
    constexpr std::size_t height = 514;
    std::size_t angles = 0;
    std::size_t degrees = 0;
    for (int phase = 0; phase < 4; ++phase) {
        polarize_tool::Simulation_settings settings{width, height, phase, 16, 1, false};
        polarize_tool::Truth const truth = polarize_tool::simulate(settings).truth;
        std::string const frame = (folder_ / "ball.png").string();
        ASSERT_EQ(
            run({"simulate", "-o", frame, "--width", "643", "--height", "514", "--phase",
                 std::to_string(phase), "--bit-depth", "16", "--no-noise"})
                .code,
            0);
        ASSERT_EQ(
            run({"process", frame, "-o", results(), "--phase", std::to_string(phase), "--bit-depth",
                 "16", "--planes", "azimuth,dolp"})
                .code,
            0);
        auto const azimuth = test_files::read_tiff(results() + "/ball_azimuth.tif").samples;
        auto const dolp = test_files::read_tiff(results() + "/ball_dolp.tif").samples;
        double worst_angle = 0.0;
        double worst_degree = 0.0;
        // The final pixel of this frame takes the weights of another position.
        for (std::size_t index = 0; index + 1 < azimuth.size(); ++index) {
            Cell_truth const cell =
                truth_around(truth, width, height, index / width, index % width);
            if (!cell.is_smooth) {
                continue;
            }
            worst_degree = std::max(worst_degree, std::abs(dolp[index] / 65535.0 - cell.degree));
            ++degrees;
            if (cell.degree > 0.2) {
                double const angle = azimuth[index] * 180.0 / 65535.0 - 90.0;
                double const apart = std::abs(std::remainder(angle - cell.angle, 180.0));
                worst_angle = std::max(worst_angle, apart);
                ++angles;
            }
        }
        std::printf(
            "phase %d: at most %.3f degrees and %.4f off\n", phase, worst_angle, worst_degree);
        EXPECT_LT(worst_angle, 0.5) << "phase " << phase;
        EXPECT_LT(worst_degree, 0.01) << "phase " << phase;
    }
    std::printf("%zu angles and %zu degrees compared\n", angles, degrees);
    EXPECT_GT(angles, 4 * width * height / 3);
    EXPECT_GT(degrees, 4 * width * height / 2);
}

TEST_F(Process_command, saturated_frame_of_16_bits_does_not_clip_by_default) {
    cv::Mat image(6, 40, CV_16UC1, cv::Scalar(49151));
    test_files::write(folder_ / "bright.png", encoded(image, ".png"));
    Names arguments = {"process",     (folder_ / "bright.png").string(),
                       "-o",          results(),
                       "--phase",     "2",
                       "--bit-depth", "16",
                       "--planes",    "s0"};
    ASSERT_EQ(run(arguments).code, 0);
    auto samples = test_files::read_tiff(results() + "/bright_s0.tif").samples;
    for (double const sample : samples) {
        EXPECT_NEAR(sample, 49151.0, 20.0);
    }
    arguments.insert(arguments.end(), {"--full-scale", "65535"});
    ASSERT_EQ(run(arguments).code, 0);
    samples = test_files::read_tiff(results() + "/bright_s0.tif").samples;
    EXPECT_EQ(samples, std::vector<double>(240, 65535.0));
}

TEST_F(Process_command, full_scale_of_the_sensor_keeps_sample_units) {
    cv::Mat const image(6, 40, CV_8UC1, cv::Scalar(100));
    test_files::write(folder_ / "grey.png", encoded(image, ".png"));
    std::string const frame = (folder_ / "grey.png").string();
    std::vector<std::pair<char const*, double>> const cases = {
        {"255", 200.0}, {"510", 200.0}, {"1020", 400.0}, {"65535", 25700.0}};
    for (auto const& [full_scale, expected] : cases) {
        ASSERT_EQ(process({frame}, {"--planes", "s0", "--full-scale", full_scale}).code, 0);
        for (double const s : test_files::read_tiff(results() + "/grey_s0.tif").samples) {
            EXPECT_NEAR(s, expected, expected * 1.5 / 4096.0 + 0.5) << full_scale;
        }
    }
}

TEST_F(Process_command, samples_above_the_bit_depth_are_warned_of) {
    cv::Mat const image(6, 40, CV_16UC1, cv::Scalar(4096));
    test_files::write(folder_ / "high.png", encoded(image, ".png"));
    Outcome const outcome = run(
        {"process", (folder_ / "high.png").string(), "-o", results(), "--phase", "2", "--bit-depth",
         "12"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(line_count(outcome.errors), 1U);
    EXPECT_NE(outcome.errors.find("high.png: has samples up to 4096"), std::string::npos);
}

TEST_F(Process_command, wrong_usage_is_refused_in_one_line_with_code_2) {
    auto const with = [this](Names const& more) {
        Names arguments = {"process", good(), "-o", results()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    };
    auto const good_and = [&with](Names more) {
        more.insert(more.end(), {"--phase", "0", "--bit-depth", "8"});
        return with(more);
    };
    std::vector<std::pair<Names, char const*>> const cases = {
        {{}, "subcommand"},
        {{"develop"}, "unknown subcommand 'develop'"},
        {{"process"}, "required"},
        {{"process", "-o", results(), "--phase", "0", "--bit-depth", "8"}, "frames"},
        {{"process", good(), "--phase", "0", "--bit-depth", "8"}, "--output"},
        {with({"--bit-depth", "8"}), "--phase"},
        {with({"--phase", "0"}), "--bit-depth"},
        {with({"--phase", "4", "--bit-depth", "8"}), "--phase"},
        {with({"--phase", "-1", "--bit-depth", "8"}), "--phase"},
        {with({"--phase", "0", "--bit-depth", "0"}), "--bit-depth"},
        {with({"--phase", "0", "--bit-depth", "17"}), "--bit-depth"},
        {with({"--phase", "zero", "--bit-depth", "8"}), "--phase"},
        {good_and({"--planes", "s0,s3"}), "unknown plane 's3'"},
        {good_and({"--planes", ""}), "unknown plane ''"},
        {good_and({"--planes", "s0,"}), "unknown plane ''"},
        {good_and({"--full-scale", "0"}), "--full-scale"},
        {good_and({"--full-scale", "65536"}), "--full-scale"},
        {good_and({"--full-scale", "-5"}), "--full-scale"},
        {good_and({"--repeat", "0"}), "--repeat"},
        {good_and({"--phase", "0"}), "--phase"}, // twice
        {good_and({"--sideways"}), "--sideways"}};
    for (auto const& [arguments, word] : cases) {
        Outcome const outcome = run(arguments);
        EXPECT_EQ(outcome.code, 2) << outcome.errors;
        EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
        EXPECT_EQ(outcome.errors.find("veldrane-polarize: "), 0U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(word), std::string::npos) << word << ": " << outcome.errors;
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_FALSE(std::filesystem::exists(results()));
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Process_command, help_exits_with_0_and_tells_the_scale) {
    Outcome const outcome = run({"process", "--help"});
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.errors, "");
    EXPECT_NE(outcome.output.find("nothing clips"), std::string::npos);
}

TEST_F(Process_command, a_failed_input_leaves_nothing_and_the_others_are_processed) {
    auto const png = encoded(pattern(40, 20, CV_16UC1), ".png");
    auto const tiff = encoded(pattern(40, 20, CV_8UC1), ".tif");
    std::vector<std::uint8_t> const half_png(
        png.begin(), png.begin() + static_cast<std::ptrdiff_t>(png.size() / 2));
    std::vector<std::uint8_t> const half_tiff(
        tiff.begin(), tiff.begin() + static_cast<std::ptrdiff_t>(tiff.size() / 2));
    test_files::write(folder_ / "half.png", half_png);
    test_files::write(folder_ / "half.tif", half_tiff);
    test_files::write(folder_ / "short.pgm", "P5 40 20 255 too short");
    test_files::write(folder_ / "notes.txt", "no image");
    test_files::write(
        folder_ / "colour.png", encoded(cv::Mat(20, 40, CV_8UC3, cv::Scalar(9, 9, 9)), ".png"));
    test_files::write(folder_ / "narrow.png", encoded(pattern(15, 20, CV_8UC1), ".png"));
    test_files::write(folder_ / "flat.png", encoded(pattern(40, 1, CV_8UC1), ".png"));
    std::filesystem::create_directory(folder_ / "folder.png");
    std::vector<std::pair<char const*, char const*>> const cases = {
        {"half.png", "damaged or cut short"},
        {"half.tif", "damaged or cut short"},
        {"short.pgm", "damaged or cut short"},
        {"notes.txt", "not a PNG, TIFF or binary PGM"},
        {"colour.png", "colour image"},
        {"narrow.png", "15 x 20 pixels is too small"},
        {"flat.png", "40 x 1 pixels is too small"},
        {"folder.png", "it is a folder"},
        {"none.png", "No such file"}};
    Names inputs;
    for (auto const& [name, reason] : cases) {
        inputs.push_back((folder_ / name).string());
        Outcome const alone = process({inputs.back()});
        EXPECT_EQ(alone.code, 1);
        EXPECT_EQ(line_count(alone.errors), 1U) << alone.errors;
        EXPECT_EQ(alone.errors.find("veldrane-polarize: " + inputs.back() + ": "), 0U)
            << alone.errors;
        EXPECT_NE(alone.errors.find(reason), std::string::npos) << alone.errors;
        EXPECT_EQ(alone.output, "");
        EXPECT_TRUE(test_files::names_in(results()).empty()) << name;
    }
    inputs.insert(inputs.begin() + 4, good());
    Outcome const together = process(inputs);
    EXPECT_EQ(together.code, 1);
    EXPECT_EQ(line_count(together.errors), cases.size()) << together.errors;
    EXPECT_EQ(line_count(together.output), 1U);
    EXPECT_EQ(test_files::names_in(results()), all_files);
    std::printf("%zu refusals\n", cases.size());
}

TEST_F(Process_command, second_input_of_the_same_name_is_refused) {
    test_files::write(folder_ / "good.pgm", encoded(pattern(50, 30, CV_8UC1), ".pgm"));
    Outcome const outcome = process({good(), (folder_ / "good.pgm").string()});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(line_count(outcome.errors), 1U);
    EXPECT_NE(
        outcome.errors.find("good.pgm: given twice, or another input has the same name"),
        std::string::npos)
        << outcome.errors;
    EXPECT_EQ(test_files::read_tiff(results() + "/good_s0.tif").width, 40U);
}

TEST_F(Process_command, a_result_never_overwrites_an_input) {
    auto const bytes = encoded(pattern(40, 20, CV_8UC1), ".tif");
    test_files::write(folder_ / "good_s0.tif", bytes);
    Outcome const outcome = run(
        {"process", good(), (folder_ / "good_s0.tif").string(), "-o", folder_.path().string(),
         "--phase", "0", "--bit-depth", "8", "--planes", "s0"});
    EXPECT_EQ(outcome.code, 1);
    EXPECT_NE(outcome.errors.find("would overwrite the input"), std::string::npos);
    EXPECT_EQ(test_files::read(folder_ / "good_s0.tif"), bytes);
}

TEST_F(Process_command, a_folder_that_cannot_be_made_is_refused) {
    test_files::write(folder_ / "file", "x");
    for (char const* const name : {"file", "file/deeper"}) {
        Outcome const outcome = run(
            {"process", good(), "-o", (folder_ / name).string(), "--phase", "0", "--bit-depth",
             "8"});
        EXPECT_EQ(outcome.code, 1);
        EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
        EXPECT_NE(outcome.errors.find(name), std::string::npos) << outcome.errors;
    }
}

// A limit on the size of files stands for a full disk: the float plane hits it, the others do not.
TEST_F(Process_command, a_full_disk_leaves_nothing) {
    test_files::write(folder_ / "large.png", encoded(pattern(400, 200, CV_8UC1), ".png"));
    Outcome const outcome = program_run::run_command(
        {"/bin/sh", "-c",
         "trap '' XFSZ; ulimit -f 400; exec '" POLARIZE_PROGRAM "' process '" +
             (folder_ / "large.png").string() + "' -o '" + results() +
             "' --phase 0 --bit-depth 8"});
    EXPECT_EQ(outcome.code, 1) << outcome.errors;
    EXPECT_EQ(line_count(outcome.errors), 1U) << outcome.errors;
    EXPECT_NE(outcome.errors.find("cannot be written"), std::string::npos) << outcome.errors;
    EXPECT_TRUE(test_files::names_in(results()).empty());
}

// The sanitizers' run-time libraries reserve address space that the emulator does not give them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool built_with_sanitizer = true;
#elif defined(__has_feature)
constexpr bool built_with_sanitizer =
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool built_with_sanitizer = false;
#endif

// An emulated processor without the instructions, where the emulator is installed.
TEST_F(Process_command, a_processor_without_avx2_or_fma_is_refused) {
    std::string const emulator = "/usr/bin/qemu-x86_64";
    if (built_with_sanitizer || !std::filesystem::exists(emulator)) {
        GTEST_SKIP() << emulator << " is not installed, or the program has a sanitizer";
    }
    std::vector<std::pair<char const*, char const*>> const cases = {
        {"Haswell,-avx2", "lacks AVX2,"},
        {"Haswell,-fma", "lacks FMA,"},
        {"Nehalem", "lacks AVX2 and FMA,"}};
    for (auto const& [processor, reason] : cases) {
        Outcome const outcome = program_run::run_command(
            {emulator, "-cpu", processor, POLARIZE_PROGRAM, "process", good(), "-o", results(),
             "--phase", "0", "--bit-depth", "8"});
        EXPECT_EQ(outcome.code, 1) << processor << ": " << outcome.errors;
        EXPECT_NE(outcome.errors.find(reason), std::string::npos) << outcome.errors;
        EXPECT_FALSE(std::filesystem::exists(results()));
    }
}

} // namespace
