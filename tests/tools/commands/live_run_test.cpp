// veldrane-polarize live: frames that a thread gives in place of a camera, to planes and
// recordings.
#include "commands/live_run.hpp"

#include "commands/live_checks.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"

#include "test_files.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
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
        sinks.drop = drop_;
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
    polarization::Drop_policy drop_ = polarization::Drop_policy::newest;
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
    try {
        run(source);
        ADD_FAILURE() << "it takes something";
    } catch (polarize_tool::File_failure const& failure) {
        testing::internal::GetCapturedStderr();
        EXPECT_NE(std::string(failure.what()).find(results_.folder.string()), std::string::npos)
            << failure.what();
    }
}

TEST_F(Live_run, takes_a_frame_that_a_dying_camera_broke_off_for_no_fault_of_the_network) {
    for (int const incomplete : {1, 2}) {
        Live_source source("camera 1", "live", layout());
        give(source, 1);
        for (int i = 0; i < incomplete; ++i) {
            source.feed().note_incomplete(polarization::Incomplete_cause::time_out);
        }
        source.feed().end("went away; check its power");
        EXPECT_EQ(run(source), 1);
        EXPECT_EQ(errors_.find("larger buffers") != std::string::npos, incomplete > 1) << errors_;
        fs::remove_all(results_.folder);
    }
}

TEST_F(Live_run, names_the_sink_where_no_frame_is_dropped) {
    drop_ = polarization::Drop_policy::none;
    Live_source source("camera 1", "live", layout());
    give(source, 1);
    give(source, 9);
    source.feed().end();
    EXPECT_EQ(run(source), 0);
    EXPECT_NE(errors_.find("lost 7"), std::string::npos) << errors_;
    EXPECT_NE(errors_.find("--drop none"), std::string::npos) << errors_;
}

class Asking_source : public Live_source {
public:
    using Live_source::Live_source;
    std::string meanwhile;

private:
    void begin_receiving() override { meanwhile = polarize_tool::Interrupted().what(); }
};

TEST_F(Live_run, a_second_signal_would_leave_the_recording) {
    Asking_source source("camera 1", "live", layout());
    give(source, 1);
    source.feed().end();
    fs::path const file = folder_.path() / "run.raw";
    EXPECT_EQ(run(source, false, file), 0);
    EXPECT_NE(source.meanwhile.find(file.string() + ".part"), std::string::npos)
        << source.meanwhile;
    EXPECT_STREQ(polarize_tool::Interrupted().what(), "interrupted; nothing half-written stays");
}

TEST_F(Live_run, a_recording_replaces_no_dark_frame_and_no_calibration) {
    fs::path const dark = folder_.path() / "dark.raw";
    test_files::write(dark, frame(0));
    samples_.dark_frames = {dark.string()};
    polarize_tool::Frame_preparation const preparation(samples_, layout());
    fs::path const calibration = folder_.path() / "cal.json";
    test_files::write(calibration, std::string("{}"));
    for (char const* const name : {"dark.raw", "dark", "cal", "cal.json"}) {
        fs::path const file = folder_.path() / name;
        bool const is_lost = fs::path(name) != "dark";
        if (is_lost) {
            EXPECT_THROW(
                polarize_tool::refuse_lost_inputs(file, calibration, preparation),
                polarize_tool::File_failure)
                << name;
        } else {
            EXPECT_NO_THROW(polarize_tool::refuse_lost_inputs(file, calibration, preparation));
        }
    }
    EXPECT_THROW(
        polarize_tool::refuse_other_description(folder_.path() / "cal"),
        polarize_tool::File_failure);
    EXPECT_NO_THROW(polarize_tool::refuse_other_description(folder_.path() / "none"));
}

TEST_F(Live_run, a_stack_needs_room_before_its_frames_are_listed) {
    results_.folder = folder_.path() / "not" / "made";
    EXPECT_NO_THROW(polarize_tool::check_room_of_stack(results_, {width, height}, 2));
    EXPECT_THROW(
        polarize_tool::check_room_of_stack(results_, {60000, 60000}, 1'000'000),
        polarize_tool::Usage_error);
}

TEST(Live_statistics, tell_the_rate_of_arrival) {
    Live_statistics statistics(4, false);
    auto const start = std::chrono::steady_clock::now();
    statistics.note_arrival(0, start);
    statistics.note_done(0);
    EXPECT_EQ(statistics.summary().find("frames/s"), std::string::npos) << statistics.summary();
    for (int i = 1; i < 3; ++i) {
        statistics.note_arrival(
            static_cast<std::size_t>(i), start + std::chrono::milliseconds(500 * i));
    }
    EXPECT_NE(statistics.summary().find(", 2.0 frames/s"), std::string::npos)
        << statistics.summary();
}

TEST(Live_statistics, warn_once_where_nothing_comes) {
    Live_source source("camera 1", "live", polarization::make_raw_layout("Mono8", 4, 4, 0, 0));
    Live_statistics statistics(4, false);
    statistics.watch(source);
    auto const start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    for (int const seconds : {0, 4, 6, 12}) {
        statistics.refresh(start + std::chrono::seconds(seconds));
    }
    std::string const errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(errors.find("no frame has come for 5 s"), std::string::npos) << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
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
