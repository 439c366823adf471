// The element gives what the client layer and the pictures give, for frames of any size, wherever
// their rows lie.
#include "element_harness.hpp"

#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/imperfect_pixels.hpp"
#include "veldrane_mrv/polarization/sensor_tables.hpp"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace element_harness;
using expected_outputs::all_outputs;
using expected_outputs::frame_of;
using expected_outputs::Output;
using polarization::Frame;
using polarization::Mosaic;
using polarization::Scale;
using polarization::Size;

constexpr std::array names{"angle", "degree", "intensity", "s0", "s1", "s2", "azimuth", "dolp"};

char const* name_of(Output output) {
    return names[static_cast<std::size_t>(output)];
}

TEST(Element, odd_sizes_and_padded_rows_make_no_difference) {
    for (Size const size : {Size{2, 2}, Size{17, 3}, Size{33, 7}, Size{48, 10}}) {
        for (bool const is_narrow : {true, false}) {
            int const depth = is_narrow ? 8 : 12;
            Frame const frame = frame_of(size, depth);
            auto const settings = ideal_settings(Mosaic::from_phase(2), Scale(depth));
            for (Output const output : all_outputs) {
                Harness harness(
                    {{"plane", name_of(output)},
                     {"layout", "90,45,135,0"},
                     {"bit-depth", is_narrow ? "0" : "12"}});
                ASSERT_TRUE(harness.takes(
                    is_narrow ? GST_VIDEO_FORMAT_GRAY8 : GST_VIDEO_FORMAT_GRAY16_LE, size));
                for (auto const& [padding, before] :
                     {std::pair(0U, 0U), {1U, 1U}, {6U, 0U}, {64U, 16U}}) {
                    ASSERT_EQ(harness.push(frame, padding, before), GST_FLOW_OK);
                    expect_output(harness.pull(), frame, settings, output);
                }
                EXPECT_TRUE(harness.errors().empty());
            }
        }
    }
}

TEST(Element, each_layout_is_its_own) {
    Frame const frame = frame_of({32, 6}, 12);
    for (int phase = 0; phase < 4; ++phase) {
        Mosaic const mosaic = Mosaic::from_phase(phase);
        for (std::string const& layout : {mosaic.to_string(), std::to_string(phase)}) {
            Harness harness({{"plane", "azimuth"}, {"layout", layout}, {"bit-depth", "12"}});
            ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, frame.size()));
            ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
            expect_output(
                harness.pull(), frame, ideal_settings(mosaic, Scale(12)), Output::azimuth);
        }
    }
}

TEST(Element, frames_keep_their_time) {
    Frame const frame = frame_of({32, 6}, 8);
    Harness harness(Properties{{"layout", "2"}});
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY8, frame.size()));
    for (GstClockTime number = 0; number < 3; ++number) {
        harness.push(frame);
        EXPECT_EQ(harness.pull().time, number * (GST_SECOND / 30));
    }
}

TEST(Element, properties_come_back_as_they_were_set) {
    Properties const properties{{"plane", "dolp"},   {"layout", "0,135,45,90"},
                                {"bit-depth", "12"}, {"calibration", "a.json"},
                                {"mode", "fast"},    {"full-scale", "4095"},
                                {"mask", "false"},   {"threads", "2"}};
    Harness harness(properties);
    for (auto const& [name, value] : properties) {
        EXPECT_EQ(harness.get(name), value) << name;
    }
}

/// A file in a folder of its own.
class Calibration_file {
public:
    explicit Calibration_file(polarization::Calibration const& calibration) {
        std::string name = std::filesystem::temp_directory_path() / "polarization_XXXXXX";
        folder_ = mkdtemp(name.data());
        save(calibration, folder_ / "sensor.json");
    }
    ~Calibration_file() { std::filesystem::remove_all(folder_); }
    Calibration_file(Calibration_file const&) = delete;
    Calibration_file& operator=(Calibration_file const&) = delete;

    std::string name() const { return folder_ / "sensor.json"; }

private:
    std::filesystem::path folder_;
};

TEST(Element, a_calibration_of_positions_is_applied_and_tells_the_layout) {
    Frame const frame = frame_of({33, 7}, 12);
    polarization::Calibration calibration = polarization::ideal_calibration(Mosaic::from_phase(2));
    calibration.analysers = polarization::imperfect_analysers(2, {});
    calibration.matrices = matrices_of(calibration.analysers);
    Calibration_file const file(calibration);
    polarization::Settings const settings{calibration.mosaic, Scale(12), calibration.matrices};
    for (Output const output : all_outputs) {
        Harness harness(
            {{"plane", name_of(output)}, {"calibration", file.name()}, {"bit-depth", "12"}});
        ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, frame.size()));
        ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
        expect_output(harness.pull(), frame, settings, output, polarization::Mode::calibrated);
    }
    for (auto const& [property, value, text] :
         {std::array<std::string, 3>{
              "mode", "fast",
              "mode is fast, which applies the weights of a calibration to few pixels only; leave "
              "out mode or calibration"},
          {"layout", "0,135,45,90",
           "layout is 0,135,45,90, but " + file.name() + " is for 90,45,135,0; leave it out"}}) {
        Harness harness({{"calibration", file.name()}, {"bit-depth", "12"}, {property, value}});
        EXPECT_FALSE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, frame.size()));
        EXPECT_EQ(harness.errors(), std::vector<std::string>{text});
    }
}

TEST(Element, a_calibration_of_pixels_is_applied_and_tells_layout_and_depth) {
    Frame const frame = frame_of({32, 8}, 12);
    polarization::Simulation_settings sensor;
    sensor.width = 32;
    sensor.height = 8;
    sensor.phase = 2;
    polarization::Pixel_spread spread;
    spread.hot_pixels = 0.05;
    auto const calibration = imperfect_pixels(sensor, spread);
    Calibration_file const file(calibration);
    polarization::Settings settings{calibration.mosaic, Scale(12), calibration.matrices};
    settings.tables =
        std::make_shared<polarization::Sensor_tables>(calibration, calibration.maps->region);
    settings.matrices = settings.tables->position_matrices();
    Harness harness({{"plane", "angle"}, {"calibration", file.name()}});
    ASSERT_TRUE(harness.takes(GST_VIDEO_FORMAT_GRAY16_LE, frame.size()));
    ASSERT_EQ(harness.push(frame), GST_FLOW_OK);
    expect_output(harness.pull(), frame, settings, Output::angle, polarization::Mode::calibrated);

    harness.set("bit-depth", "10");
    EXPECT_EQ(harness.push(frame), GST_FLOW_ERROR);
    EXPECT_EQ(
        harness.errors().at(0), "bit-depth is 10, but the maps of " + file.name() +
                                    " are for samples of 12 bits; give frames as they were for "
                                    "the calibration");
    Harness other(Properties{{"calibration", file.name()}});
    EXPECT_FALSE(other.takes(GST_VIDEO_FORMAT_GRAY16_LE, {34, 8}));
    EXPECT_EQ(
        other.errors().at(0),
        "the size of the frame is 34 x 8; give frames of the calibrated size, 32 x 8");
}

} // namespace
