// veldrane-polarize live: frames that a thread gives in place of a camera, to planes and
// recordings.
#include "commands/live_run.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace polarization = veldrane_mrv::polarization;
using polarization::Live_options;
using polarization::Live_source;
using polarization::Plane;
using polarize_tool::Live_sinks;
using polarize_tool::Live_statistics;

constexpr std::size_t width = 48;
constexpr std::size_t height = 20;

std::string text_of(fs::path const& file) {
    auto const bytes = test_files::read(file);
    return {bytes.begin(), bytes.end()};
}

class Live_run : public testing::Test {
protected:
    Live_run() {
        results_.folder = folder_.path() / "out";
        results_.format = polarize_tool::File_format::raw;
        results_.processing.settings = polarization::ideal_settings(
            polarization::Mosaic::from_phase(2), polarization::Scale(8));
        results_.processing.planes.insert(Plane::s0);
        results_.origin.pixel_format = layout();
        samples_.bit_depth = 8;
    }

    static polarization::Raw_layout layout() {
        return polarization::make_raw_layout("Mono8", width, height, 0, 0);
    }

    static std::string frame(std::uint64_t number) {
        std::string bytes(width * height, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<char>(number * 7 + i * 13 % 120);
        }
        return bytes;
    }

    static void give(Live_source& source, std::uint64_t number) {
        source.feed().give(
            frame(number), {number, number * 10, number * 100}, std::chrono::steady_clock::now());
    }

    int run(Live_source& source, bool makes_planes = true, fs::path const& record = {}) {
        Live_statistics statistics(polarize_tool::frames_in_flight(2), false);
        polarize_tool::Frame_preparation const preparation(samples_, std::nullopt);
        Live_sinks sinks;
        sinks.jobs = 2;
        sinks.is_quiet = true;
        sinks.frames = frames_;
        if (makes_planes) {
            sinks.results = &results_;
            sinks.preparation = &preparation;
        }
        std::optional<polarization::Recording_writer> recording;
        if (!record.empty()) {
            polarization::Recording_description description;
            description.format = layout().format;
            description.size = {width, height};
            recording.emplace(record, description);
            sinks.recording = &*recording;
        }
        testing::internal::CaptureStderr();
        int const code = run_live(source, statistics, sinks);
        errors_ = testing::internal::GetCapturedStderr();
        return code;
    }

    fs::path result(std::string const& name) const { return results_.folder / name; }

    test_files::Folder folder_;
    polarize_tool::Sample_options samples_;
    polarize_tool::Results results_;
    std::optional<std::size_t> frames_;
    std::string errors_;
};

TEST_F(Live_run, writes_planes_with_what_the_camera_tells) {
    Live_source source("camera 1", "live", layout());
    for (std::uint64_t const number : {5U, 6U, 7U}) {
        give(source, number);
    }
    source.feed().end();
    EXPECT_EQ(run(source), 0);
    EXPECT_EQ(errors_, "");
    for (int i = 0; i < 3; ++i) {
        std::string const stem = "live_00000" + std::to_string(i) + "_s0";
        EXPECT_EQ(fs::file_size(result(stem + ".raw")), width * height * 2);
        auto const json = nlohmann::json::parse(text_of(result(stem + ".json")));
        EXPECT_EQ(json["capture"]["frame_number"], 5 + i);
        EXPECT_EQ(json["capture"]["host_time_ns"], 500 + 100 * i);
    }
}

TEST_F(Live_run, keeps_what_arrived_when_the_camera_goes_away) {
    Live_source source("camera 1", "live", layout());
    give(source, 1);
    give(source, 2);
    source.feed().end("went away; check its power");
    EXPECT_EQ(run(source), 1);
    EXPECT_EQ(errors_, "veldrane-polarize: camera 1: went away; check its power\n");
    EXPECT_TRUE(fs::exists(result("live_000001_s0.raw")));
    EXPECT_FALSE(fs::exists(result("live_000002_s0.raw")));
}

TEST_F(Live_run, records_alone_and_beside_planes) {
    for (bool const makes_planes : {false, true}) {
        fs::path const file = folder_.path() / (makes_planes ? "both.raw" : "alone.raw");
        Live_source source("camera 1", "live", layout());
        give(source, 65535);
        give(source, 2);
        source.feed().note_incomplete(polarization::Incomplete_cause::time_out, 3);
        source.feed().end();
        EXPECT_EQ(run(source, makes_planes, file), 0);
        EXPECT_NE(errors_.find("lost 1, incomplete 1 (1 time-out)"), std::string::npos) << errors_;
        EXPECT_EQ(text_of(file), frame(65535) + frame(2));
        auto const description = polarization::read_recording_description(file);
        ASSERT_TRUE(description);
        EXPECT_EQ(description->counts.lost, 1U);
        EXPECT_EQ(description->counts.incomplete.at("time-out"), 1U);
        EXPECT_EQ(description->captures.at(1).frame_number, 2U);
        EXPECT_EQ(fs::exists(result("live_000001_s0.raw")), makes_planes);
    }
}

TEST_F(Live_run, puts_frames_into_a_stack_and_names_those_that_did_not_come) {
    results_.are_stacked = true;
    frames_ = 3;
    Live_source source("camera 1", "live", layout());
    give(source, 8);
    give(source, 9);
    source.feed().end();
    EXPECT_EQ(run(source), 0);
    EXPECT_EQ(fs::file_size(result("live_s0.raw")), 3 * width * height * 2);
    auto const json = nlohmann::json::parse(text_of(result("live_stack.json")));
    EXPECT_EQ(json["missing"].size(), 1U);
    EXPECT_EQ(json["capture"]["frame_number"], nlohmann::json::parse("[8, 9, null]"));
}

TEST_F(Live_run, tells_of_dropped_frames) {
    Live_options options;
    options.waiting_frames = 1;
    Live_source source("camera 1", "live", layout(), options);
    give(source, 1);
    give(source, 2);
    source.feed().end();
    EXPECT_EQ(run(source), 0);
    EXPECT_NE(errors_.find("1 of 2 frames were dropped"), std::string::npos) << errors_;
}

TEST_F(Live_run, ends_at_a_place_that_takes_nothing) {
    results_.folder = folder_.path() / "file" / "out";
    test_files::write(folder_.path() / "file", std::string("no folder"));
    Live_source source("camera 1", "live", layout());
    give(source, 1);
    source.feed().end();
    EXPECT_ANY_THROW(run(source));
    testing::internal::GetCapturedStderr();
}

TEST(Latencies, tell_what_a_share_of_frames_does_not_exceed) {
    polarize_tool::Latencies latencies;
    EXPECT_TRUE(latencies.is_empty());
    for (int i = 100; i > 0; --i) {
        latencies.add(i);
    }
    EXPECT_EQ(latencies.quantile(0.5), 50);
    EXPECT_EQ(latencies.quantile(0.99), 99);
    for (int i = 0; i < 4096; ++i) {
        latencies.add(7);
    }
    EXPECT_EQ(latencies.quantile(1), 7);
}

} // namespace
