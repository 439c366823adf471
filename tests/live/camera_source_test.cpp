// A camera as a source of frames: what is handed on is what was sent, and what is not is counted.
#include "camera_process.hpp"
#include "sensor.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/camera.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using camera_process::Camera_lock;
using camera_process::Camera_process;
using camera_process::Sent;
using polarization::Camera_options;
using polarization::Camera_source;
using polarization::Drop_policy;
using polarization::Incomplete_cause;
using polarization::Live_counts;
using polarization::Pixel_format;
using polarization::Region;
using simulated_camera::exposures;
using simulated_camera::payload_of;
using Strings = std::vector<std::string>;

// Whole frames of it go into any socket: that of a stream is widened behind its first packet.
constexpr polarization::Size size{160, 120};

Strings small(Strings const& more = {}) {
    Strings options = {"--width", "160", "--height", "120", "--rate", "100"};
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

Camera_options options_of(std::size_t frames) {
    Camera_options options;
    options.id = Camera_process::id();
    options.live.frames = frames;
    options.live.waiting_frames = 1000;
    return options;
}

std::vector<std::byte> bytes_of(Camera_source const& source) {
    auto const* const first = reinterpret_cast<std::byte const*>(source.bytes().data());
    return {first, first + source.bytes().size()};
}

std::size_t frames_told_of(Camera_source const& source) {
    Live_counts const counts = source.counts();
    return counts.received + counts.all_incomplete() + counts.lost;
}

// All that the camera sends has come, one way or another. A source that lacks a frame ends after
// half a minute: no time that is short for a test is long enough for a machine that stands still.
std::unique_ptr<Camera_source> open_until_told_of(std::size_t frames, Camera_options options) {
    auto const opened = std::make_shared<Camera_source const*>(nullptr);
    options.live.seconds = 30.0;
    options.live.stop_requested = [opened, frames] { return frames_told_of(**opened) >= frames; };
    auto source = open_camera(options);
    *opened = source.get();
    return source;
}

struct Received {
    std::uint64_t number;
    std::vector<std::byte> bytes;
};

// From frame `first` to the end of the source.
std::vector<Received> receive_all(Camera_source& source, std::size_t first = 0) {
    std::vector<Received> frames;
    for (std::size_t index = first; source.has_frame(index); ++index) {
        frames.push_back({source.place(index).capture->frame_number, bytes_of(source)});
    }
    return frames;
}

std::vector<std::uint64_t> numbers_of(std::vector<Received> const& frames) {
    std::vector<std::uint64_t> numbers;
    numbers.reserve(frames.size());
    for (Received const& frame : frames) {
        numbers.push_back(frame.number);
    }
    return numbers;
}

class Camera_as_source : public testing::Test {
    Camera_lock lock_;
};

TEST_F(Camera_as_source, frames_are_those_sent_in_every_format) {
    Camera_process camera(small());
    for (Pixel_format const format : polarization::all_pixel_formats) {
        auto const sent = exposures({size}, bit_depth_of(format));
        Camera_options options = options_of(3);
        options.pixel_format = name_of(format);
        auto const source = open_camera(options);
        EXPECT_EQ(source->settings().pixel_format, format);
        auto const frames = receive_all(*source);
        ASSERT_EQ(frames.size(), 3U) << options.pixel_format;
        for (std::size_t index = 0; index < 3; ++index) {
            EXPECT_EQ(frames[index].number, index + 1);
            EXPECT_TRUE(frames[index].bytes == payload_of(sent[index], region_of(size), format))
                << options.pixel_format;
        }
    }
}

TEST_F(Camera_as_source, a_region_is_the_sensors_from_an_odd_corner) {
    Camera_process camera(small({"--phase", "1"}));
    auto const sent = exposures({size, 1}, 12);
    for (Region const region :
         {Region{3, 5, 100, 60}, Region{1, 0, 20, 21}, Region{0, 7, 160, 9}}) {
        Camera_options options = options_of(2);
        options.region = region;
        auto const source = open_camera(options);
        EXPECT_EQ(source->settings().region, region);
        EXPECT_EQ(source->settings().sensor, size);
        auto const frames = receive_all(*source);
        ASSERT_EQ(frames.size(), 2U);
        EXPECT_TRUE(frames[0].bytes == payload_of(sent[0], region, Pixel_format::mono12p));
    }
}

TEST_F(Camera_as_source, every_frame_with_lost_packets_is_accounted_for) {
    Camera_process camera(small({"--frames", "150", "--lose", "2"}));
    auto const sent = exposures({size}, 12);
    auto source = open_until_told_of(150, options_of(150));
    std::vector<Received> const frames = receive_all(*source);
    Live_counts const counts = source->counts();
    source = nullptr;
    for (Received const& frame : frames) {
        EXPECT_TRUE(
            frame.bytes ==
            payload_of(sent[(frame.number - 1) % 4], region_of(size), Pixel_format::mono12p))
            << frame.number;
    }
    Sent const said = camera.stop().at(0);
    EXPECT_EQ(said.frames, 150U);
    EXPECT_GT(said.damaged_frames, 3U);
    EXPECT_EQ(counts.received, frames.size());
    EXPECT_EQ(counts.received, said.frames - said.damaged_frames);
    EXPECT_EQ(counts.received + counts.all_incomplete() + counts.lost, said.frames);
}

TEST_F(Camera_as_source, numbers_that_wrap_leave_no_gap) {
    Camera_process camera(small({"--first-frame-number", "65533"}));
    auto const source = open_camera(options_of(6));
    EXPECT_EQ(
        numbers_of(receive_all(*source)),
        (std::vector<std::uint64_t>{65533, 65534, 65535, 1, 2, 3}));
    EXPECT_EQ(source->counts().lost, 0U);
}

TEST_F(Camera_as_source, a_camera_that_comes_back_is_waited_for) {
    auto camera = std::make_unique<Camera_process>(small({"--die-after", "5"}));
    Camera_options options = options_of(12);
    options.reconnect_seconds = 60;
    auto const source = open_camera(options);
    ASSERT_TRUE(source->has_frame(4));
    while (camera->is_running()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    camera = nullptr;
    camera = std::make_unique<Camera_process>(small());
    for (std::size_t index = 1; index < 12; ++index) {
        ASSERT_TRUE(source->has_frame(index));
    }
    EXPECT_EQ(source->counts().reconnections, 1U);
}

TEST_F(Camera_as_source, a_short_pause_within_a_frame_loses_nothing) {
    Camera_process camera(small({"--stall-at", "3:60"}));
    auto const source = open_camera(options_of(6));
    EXPECT_EQ(numbers_of(receive_all(*source)), (std::vector<std::uint64_t>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(source->counts().all_incomplete(), 0U);
}

TEST_F(Camera_as_source, a_frame_that_does_not_end_is_a_time_out) {
    Camera_process camera(small({"--stall-at", "3:900"}));
    auto const source = open_camera(options_of(5));
    EXPECT_EQ(numbers_of(receive_all(*source)), (std::vector<std::uint64_t>{1, 2, 4, 5, 6}));
    EXPECT_EQ(source->counts().of(Incomplete_cause::time_out), 1U);
    EXPECT_EQ(source->counts().lost, 0U);
}

TEST_F(Camera_as_source, frames_of_another_size_are_not_handed_on) {
    for (std::string const other : {"80x120", "160x60", "120x160"}) {
        Camera_process camera(
            {"--width", "200", "--height", "200", "--rate", "100", "--frames", "8",
             "--change-size-at", "4:" + other});
        Camera_options options = options_of(8);
        options.region = Region{0, 0, 160, 120};
        auto const source = open_until_told_of(8, options);
        EXPECT_EQ(numbers_of(receive_all(*source)), (std::vector<std::uint64_t>{1, 2, 3})) << other;
        EXPECT_EQ(source->counts().of(Incomplete_cause::size_mismatch), 5U) << other;
    }
}

TEST_F(Camera_as_source, what_a_slow_reader_gets_is_his_choice) {
    for (Drop_policy const drop : {Drop_policy::newest, Drop_policy::oldest, Drop_policy::none}) {
        Camera_process camera(small({"--frames", "20"}));
        Camera_options options = options_of(1000);
        options.live.waiting_frames = 4;
        options.live.drop = drop;
        options.live.seconds = 1.0;
        auto const source = open_camera(options);
        ASSERT_TRUE(source->has_frame(0));
        // Without drops not all can come while nobody makes room.
        std::chrono::milliseconds const patience(drop == Drop_policy::none ? 500 : 30000);
        auto const until = std::chrono::steady_clock::now() + patience;
        while (frames_told_of(*source) < 20 && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        auto const numbers = numbers_of(receive_all(*source, 1));
        Live_counts const counts = source->counts();
        if (drop == Drop_policy::newest) {
            EXPECT_EQ(numbers, (std::vector<std::uint64_t>{2, 3, 4, 5}));
        } else if (drop == Drop_policy::oldest) {
            EXPECT_EQ(numbers, (std::vector<std::uint64_t>{17, 18, 19, 20}));
        } else {
            EXPECT_GE(numbers.size(), 4U);
            EXPECT_EQ(counts.dropped, 0U);
        }
        EXPECT_EQ(counts.received, 1 + numbers.size() + counts.dropped);
        EXPECT_EQ(
            counts.received + counts.lost + counts.all_incomplete(),
            drop == Drop_policy::none ? numbers.back() : 20U);
    }
}

TEST_F(Camera_as_source, what_the_camera_has_not_is_refused) {
    Camera_process camera(small());
    Camera_options options = options_of(1);
    options.pixel_format = "Mono13";
    EXPECT_THROW(open_camera(options), polarization::Argument_error);
    options = options_of(1);
    options.region = Region{3, 5, 158, 60};
    EXPECT_THROW(open_camera(options), polarization::Argument_error);
    options = options_of(1);
    options.frame_rate = 1e6;
    EXPECT_THROW(open_camera(options), polarization::Argument_error);
    options = options_of(1);
    options.exposure_us = 1e9;
    EXPECT_THROW(open_camera(options), polarization::Argument_error);
    EXPECT_EQ(receive_all(*open_camera(options_of(1))).size(), 1U);
}

// The buffers of the stream lie full while nobody makes room.
TEST_F(Camera_as_source, what_has_arrived_is_handed_on_when_the_source_is_stopped) {
    Camera_process camera(small({"--frames", "8"}));
    std::atomic<bool> is_requested = false;
    Camera_options options = options_of(100);
    options.live.drop = Drop_policy::none;
    options.live.waiting_frames = 1;
    options.live.stop_requested = [&is_requested] { return is_requested.load(); };
    auto const source = open_camera(options);
    ASSERT_TRUE(source->has_frame(0));
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // all eight have been sent
    is_requested = true;
    auto const rest = receive_all(*source);
    EXPECT_EQ(numbers_of(rest).size(), source->counts().received);
    EXPECT_EQ(source->counts().received, 8U);
    EXPECT_EQ(source->counts().lost + source->counts().dropped, 0U);
}

TEST_F(Camera_as_source, packets_are_as_large_as_the_road_takes) {
    constexpr unsigned long leader_and_trailer = 2;
    for (auto const& [mtu, packets] : {std::pair("1500", 20UL), std::pair("9000", 4UL)}) {
        Camera_process camera(small({"--mtu", mtu, "--frames", "3"}));
        EXPECT_EQ(receive_all(*open_camera(options_of(3))).size(), 3U);
        Sent const said = camera.stop().at(0);
        EXPECT_EQ(said.packets, said.frames * (packets + leader_and_trailer)) << mtu;
    }
}

TEST_F(Camera_as_source, a_refused_region_leaves_the_camera_as_it_was) {
    Camera_process camera(small());
    Region const before{4, 6, 100, 60};
    Camera_options options = options_of(1);
    options.region = before;
    EXPECT_EQ(receive_all(*open_camera(options)).size(), 1U);
    for (Region const region : {Region{0, 0, 1, 1}, Region{100, 0, 100, 60}}) {
        options.region = region;
        EXPECT_THROW(open_camera(options), polarization::Argument_error);
        options.region.reset();
        EXPECT_EQ(open_camera(options)->settings().region, before);
    }
}

} // namespace
