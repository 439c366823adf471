// The camera for tests sends what it says: without that no test with it shows anything.
#include "camera_process.hpp"
#include "reception.hpp"
#include "sensor.hpp"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using camera_process::Camera_lock;
using camera_process::Camera_process;
using camera_process::Sent;
using polarization::Pixel_format;
using polarization::Region;
using polarization::region_of;
using reception::receive;
using reception::Received;
using simulated_camera::exposures;
using simulated_camera::payload_of;
using simulated_camera::Sensor;
using Strings = std::vector<std::string>;

class Simulated_camera : public testing::Test {
    Camera_lock lock_;
};

// Whole frames of it go into any socket: Aravis widens that of a stream behind the first packet.
constexpr polarization::Size size{160, 120};

Strings camera_options(Strings const& more) {
    Strings options = {"--width", "160", "--height", "120"};
    options.insert(options.end(), more.begin(), more.end());
    return options;
}

// A frame of the camera's, whichever of those that it sends round and round.
std::size_t index_of(Received const& frame) {
    return static_cast<std::size_t>(frame.number - 1) % Sensor{}.frames;
}

TEST_F(Simulated_camera, sends_the_sensors_frames_in_every_pixel_format) {
    Camera_process camera(camera_options({"--rate", "100"}));
    for (Pixel_format const format : polarization::all_pixel_formats) {
        std::string const name(name_of(format));
        auto const sent = exposures({size}, bit_depth_of(format));
        auto const frames = receive(camera.id(), {.frames = 5, .pixel_format = name});
        ASSERT_EQ(frames.size(), 5U) << name;
        for (Received const& frame : frames) {
            ASSERT_TRUE(frame.is_complete) << name;
            EXPECT_EQ(frame.pixel_format, name);
            EXPECT_EQ(frame.region, region_of(size));
            EXPECT_TRUE(frame.data == payload_of(sent[index_of(frame)], region_of(size), format))
                << name;
        }
        EXPECT_FALSE(frames[0].data == frames[1].data);
    }
    EXPECT_EQ(camera.stop().size(), polarization::all_pixel_formats.size());
}

TEST_F(Simulated_camera, sends_a_region_from_an_odd_corner) {
    Camera_process camera(camera_options({"--rate", "100", "--phase", "2"}));
    Region const region{3, 5, 100, 101};
    auto const sent = exposures({size, 2}, 12);
    for (Received const& frame : receive(camera.id(), {.frames = 3, .region = region})) {
        EXPECT_EQ(frame.region, region);
        EXPECT_TRUE(frame.data == payload_of(sent[index_of(frame)], region, Pixel_format::mono12p));
    }
}

TEST_F(Simulated_camera, numbers_wrap_past_0_and_time_goes_on) {
    Camera_process camera(camera_options({"--rate", "100", "--first-frame-number", "65534"}));
    auto const frames = receive(camera.id(), {.frames = 4});
    ASSERT_EQ(frames.size(), 4U);
    std::vector<std::uint64_t> numbers;
    for (std::size_t index = 0; index < frames.size(); ++index) {
        numbers.push_back(frames[index].number);
        if (index > 0) {
            EXPECT_GT(frames[index].nanoseconds, frames[index - 1].nanoseconds);
        }
    }
    EXPECT_EQ(numbers, (std::vector<std::uint64_t>{65534, 65535, 1, 2}));
}

TEST_F(Simulated_camera, lost_packets_stay_lost_and_are_counted) {
    Camera_process camera(camera_options({"--rate", "100", "--lose", "2", "--frames", "60"}));
    auto const frames = receive(camera.id(), {.frames = 61, .packet_size = 1500});
    std::size_t incomplete = 0;
    for (Received const& frame : frames) {
        incomplete += frame.is_complete ? 0U : 1U;
    }
    std::vector<Sent> const sent = camera.stop();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(frames.size(), sent[0].frames);
    EXPECT_EQ(sent[0].frames, 60U);
    EXPECT_EQ(sent[0].packets, 60U * (2 + 20));
    EXPECT_GT(sent[0].lost_packets, 10U);
    EXPECT_EQ(incomplete, sent[0].damaged_frames);
}

TEST_F(Simulated_camera, changes_its_size) {
    Camera_process camera(camera_options({"--rate", "100", "--change-size-at", "3:80x120"}));
    auto const frames = receive(camera.id(), {.frames = 4});
    ASSERT_EQ(frames.size(), 4U);
    EXPECT_EQ(frames[1].region.width, size.width);
    EXPECT_TRUE(!frames[2].is_complete || frames[2].region.width == 80);
}

} // namespace
