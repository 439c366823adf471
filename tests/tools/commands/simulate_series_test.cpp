// veldrane-polarize simulate: several frames, raw recordings and polariser series.
#include "commands/simulate_run.hpp"
#include "input/angle_list.hpp"
#include "program_run.hpp"
#include "test_files.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

namespace {

using namespace polarize_tool;
using program_run::Outcome;
using program_run::run;
using test_files::Folder;
using Names = std::vector<std::string>;

Outcome simulate_small(std::filesystem::path const& output, Names const& more) {
    Names arguments = {"simulate", "-o", output.string(), "--width", "48", "--height", "32"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
}

polarization::Simulation_settings small_settings() {
    polarization::Simulation_settings settings;
    settings.width = 48;
    settings.height = 32;
    return settings;
}

TEST(Simulate_series, frames_differ_by_their_noise_and_are_numbered) {
    Folder const folder;
    ASSERT_EQ(simulate_small(folder / "f.png", {"--frames", "3"}).code, 0);
    EXPECT_EQ(
        test_files::names_in(folder.path()),
        (Names{"f_000000.png", "f_000001.png", "f_000002.png"}));
    polarization::Light const light = polarization::scene_light(small_settings());
    for (std::uint64_t number = 0; number < 3; ++number) {
        cv::Mat const image = cv::imread(
            (folder / ("f_00000" + std::to_string(number) + ".png")).string(),
            cv::IMREAD_UNCHANGED);
        EXPECT_EQ(
            std::vector<std::uint16_t>(image.begin<std::uint16_t>(), image.end<std::uint16_t>()),
            polarization::record(light, small_settings(), number).samples);
    }
}

TEST(Simulate_series, a_raw_recording_holds_the_same_frames) {
    Folder const folder;
    for (char const* const name : {"Mono12", "Mono16", "Mono12p", "Mono12Packed"}) {
        Outcome const outcome = simulate_small(
            folder / "run.raw", {"--frames", "2", "--pixel-format", name, "--overwrite"});
        ASSERT_EQ(outcome.code, 0) << outcome.errors;
        auto const format = polarization::parse_pixel_format(name);
        std::size_t const size = polarization::bytes_per_frame(format, 32, 48);
        auto const bytes = test_files::read(folder / "run.raw");
        ASSERT_EQ(bytes.size(), 2 * size);
        polarization::Light const light = polarization::scene_light(small_settings());
        for (std::size_t number = 0; number < 2; ++number) {
            std::vector<std::uint16_t> samples(48 * 32);
            polarization::unpack_frame(
                format, std::as_bytes(std::span(bytes).subspan(number * size, size)), 48, samples);
            EXPECT_EQ(samples, polarization::record(light, small_settings(), number).samples)
                << name;
        }
    }
}

TEST(Simulate_series, a_polariser_series_names_its_angles) {
    Folder const folder;
    ASSERT_EQ(simulate_small(folder / "s.png", {"--polarizer-series", "0:90:45"}).code, 0);
    EXPECT_EQ(
        test_files::names_in(folder.path()),
        (Names{"s_angle_000.0.png", "s_angle_045.0.png", "s_angle_090.0.png", "s_angles.csv"}));
    auto const table = test_files::read(folder / "s_angles.csv");
    EXPECT_EQ(
        std::string(table.begin(), table.end()),
        "file,angle\ns_angle_000.0.png,0\ns_angle_045.0.png,45\ns_angle_090.0.png,90\n");
}

TEST(Simulate_series, the_analysers_drawn_are_written_as_a_calibration) {
    Folder const folder;
    ASSERT_EQ(
        simulate_small(folder / "a.png", {"--imperfect", "--analyser-seed", "9", "--phase", "3"})
            .code,
        0);
    auto const truth = polarization::load_calibration(folder / "a_analysers.json");
    polarization::Analyser_spread spread;
    spread.seed = 9;
    EXPECT_EQ(truth.analysers, polarization::imperfect_analysers(3, spread));
    EXPECT_EQ(truth.mosaic.phase(), 3);
    EXPECT_NE(truth.provenance.sensor.find("seed 9"), std::string::npos);
}

std::vector<std::uint16_t> samples_in(std::filesystem::path const& file) {
    cv::Mat const image = cv::imread(file.string(), cv::IMREAD_UNCHANGED);
    return {image.begin<std::uint16_t>(), image.end<std::uint16_t>()};
}

TEST(Simulate_series, dark_and_flat_frames_lie_beside_a_series_of_the_same_pixels) {
    Folder const folder;
    Outcome const outcome = simulate_small(
        folder / "s.png",
        {"--polarizer-series", "30:30:1", "--dark-frames", "2", "--flat-frames", "2",
         "--flat-levels", "10", "--pixel-spread", "--pixel-seed", "5", "--dark-level", "100",
         "--hot-pixels", "0.01", "--electrons-per-count", "2", "--read-noise", "3"});
    ASSERT_EQ(outcome.code, 0) << outcome.errors;
    EXPECT_EQ(program_run::line_count(outcome.output), 3U) << outcome.output;
    EXPECT_NE(outcome.output.find("pixel seed 5"), std::string::npos);
    EXPECT_EQ(test_files::names_in(folder.path()).size(), 2U + 2U + 20U + 2U);
    polarization::Simulation_settings settings = small_settings();
    settings.electrons_per_count = 2.0;
    settings.read_noise = 3.0;
    polarization::Pixel_spread spread;
    spread.seed = 5;
    spread.dark_level = 100.0;
    spread.hot_pixels = 0.01;
    settings.pixels = std::make_shared<polarization::Sensor_pixels const>(
        polarization::imperfect_pixels(settings, spread));
    auto const truth = polarization::load_calibration(folder / "s_analysers.json");
    EXPECT_EQ(truth.model, polarization::Calibration_model::pixel);
    EXPECT_EQ(*truth.maps, *polarization::imperfect_pixels(settings, spread).maps);
    EXPECT_EQ(truth.noise, polarization::noise_of(settings));
    EXPECT_NE(truth.provenance.sensor.find("pixel seed 5"), std::string::npos);
    auto const recorded = [&](polarization::Light const& light, std::uint64_t number) {
        return polarization::record(light, settings, number).samples;
    };
    EXPECT_EQ(
        samples_in(folder / "s_angle_030.0.png"),
        recorded(polarization::uniform_light(settings, 30.0), 0));
    auto const dark = polarization::flat_light(settings, 0.0);
    EXPECT_EQ(samples_in(folder / "s_dark_000.png"), recorded(dark, first_dark_frame));
    EXPECT_EQ(samples_in(folder / "s_dark_001.png"), recorded(dark, first_dark_frame + 1));
    auto const flat = polarization::flat_light(settings, 0.8 * 0.3 * 0.3);
    EXPECT_EQ(samples_in(folder / "s_flat_03_000.png"), recorded(flat, first_flat_frame + 6));
    EXPECT_NE(samples_in(folder / "s_flat_03_001.png"), samples_in(folder / "s_flat_03_000.png"));
}

TEST(Simulate_series, angles_include_the_last_and_tell_themselves_in_names) {
    EXPECT_EQ(series_angles("0:1:0.1").size(), 11U);
    EXPECT_EQ(series_angles("10:10:5"), std::vector<double>{10.0});
    EXPECT_EQ(series_angles("0:100:30"), (std::vector<double>{0, 30, 60, 90}));
    std::vector<double> const fine = {0.0, 7.25, 14.5};
    EXPECT_EQ(angle_suffix(7.25, fine), "_angle_007.25");
    EXPECT_EQ(angle_suffix(135.0, {135.0}), "_angle_135.0");
    EXPECT_EQ(angle_in_name("x/cal_angle_007.25.png"), 7.25);
    EXPECT_EQ(angle_in_name("angle_9_angle_135.0_b.tif"), 135.0);
    EXPECT_FALSE(angle_in_name("cal_045.0.png").has_value());
    EXPECT_FALSE(angle_in_name("cal_angle_north.png").has_value());
}

} // namespace
