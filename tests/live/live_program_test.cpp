// `veldrane-polarize live` with the simulated camera: planes are those of `process`, every frame is
// accounted for, and whatever ends a run leaves what was received.
#include "camera_process.hpp"
#include "program_run.hpp"
#include "sensor.hpp"
#include "test_files.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using camera_process::Camera_lock;
using camera_process::Camera_process;
using camera_process::Sent;
using polarization::Pixel_format;
using polarization::Region;
using program_run::Outcome;
using program_run::Running_program;
using simulated_camera::exposures;
using simulated_camera::payload_of;
using Strings = std::vector<std::string>;

// Whole frames of it go into any socket.
constexpr polarization::Size size{160, 120};

Strings joined(Strings first, Strings const& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Strings small(Strings const& more = {}) {
    return joined({"--width", "160", "--height", "120"}, more);
}

class Live_program : public testing::Test {
protected:
    std::string in_folder(std::string const& name) const { return (folder_ / name).string(); }
    std::string recording() const { return in_folder("run.raw"); }

    Strings live(Strings const& more) const {
        return joined({POLARIZE_PROGRAM, "live", "--camera", Camera_process::id()}, more);
    }
    Outcome run_live(Strings const& more) const { return program_run::run_command(live(more)); }

    nlohmann::json sidecar() const {
        return nlohmann::json::parse(test_files::read(folder_ / "run.raw.json"));
    }

    // The recording's frames are those of the camera with the numbers of the sidecar.
    void expect_frames_as_sent() const {
        auto const sent = exposures({size}, 12);
        std::vector<std::uint8_t> const bytes = test_files::read(recording());
        std::size_t const frame_bytes = size.width * size.height * 3 / 2;
        auto const numbers = sidecar().at("frame_number").get<std::vector<std::size_t>>();
        ASSERT_EQ(bytes.size(), numbers.size() * frame_bytes);
        for (std::size_t index = 0; index < numbers.size(); ++index) {
            auto const payload = payload_of(
                sent[(numbers[index] - 1) % sent.size()], region_of(size), Pixel_format::mono12p);
            auto const frame =
                std::as_bytes(std::span(bytes)).subspan(index * frame_bytes, frame_bytes);
            EXPECT_TRUE(std::equal(frame.begin(), frame.end(), payload.begin(), payload.end()))
                << numbers[index];
        }
    }

    test_files::Folder folder_;

private:
    Camera_lock lock_;
};

TEST_F(Live_program, planes_are_those_of_process_on_the_recording) {
    for (std::string const phase : {"0", "1", "2", "3"}) {
        Camera_process camera(small({"--rate", "200", "--phase", phase}));
        for (std::string const format : {"Mono8", "Mono12", "Mono12p", "Mono16"}) {
            std::string const region = phase == "2" ? "3,5,120,90" : "0,0,160,120";
            Outcome const live = run_live(
                {"--pixel-format", format, "--phase", phase, "--region", region, "--frames", "3",
                 "-o", "-", "--record", recording(), "--overwrite"});
            ASSERT_EQ(live.code, 0) << live.errors;
            Outcome const processed = program_run::run({"process", recording(), "-o", "-"});
            ASSERT_EQ(processed.code, 0) << processed.errors;
            EXPECT_GT(live.output.size(), 3U * 120 * 90 * 10);
            EXPECT_TRUE(live.output == processed.output) << format << ", phase " << phase;
        }
    }
}

// From the sensor's samples, without a camera and a recording between.
TEST_F(Live_program, planes_of_a_region_from_an_odd_corner_are_the_sensors) {
    auto const whole =
        payload_of(exposures({size, 1}, 12)[0], region_of(size), Pixel_format::mono12);
    test_files::write(
        folder_ / "sensor.raw",
        std::span(reinterpret_cast<std::uint8_t const*>(whole.data()), whole.size()));
    Camera_process camera(small({"--phase", "1"}));
    for (std::string const region : {"3,5,100,60", "2,5,100,61", "3,4,98,60"}) {
        Outcome const live = run_live(
            {"--pixel-format", "Mono12p", "--phase", "1", "--region", region, "--frames", "1", "-o",
             "-", "--planes", "s0,azimuth,dolp"});
        ASSERT_EQ(live.code, 0) << live.errors;
        Outcome const processed = program_run::run(
            {"process", in_folder("sensor.raw"), "--pixel-format", "Mono12", "--width", "160",
             "--height", "120", "--phase", "1", "--region", region, "-o", "-", "--planes",
             "s0,azimuth,dolp"});
        ASSERT_EQ(processed.code, 0) << processed.errors;
        EXPECT_TRUE(live.output == processed.output) << region;
    }
}

TEST_F(Live_program, with_lost_packets_no_bad_frame_is_written_and_each_is_accounted_for) {
    Camera_process camera(small({"--rate", "200", "--frames", "150", "--lose", "2"}));
    // All have come after one second, unless the machine stands still.
    Outcome const live = run_live({"--seconds", "3", "--record", recording()});
    ASSERT_EQ(live.code, 0) << live.errors;
    Sent const sent = camera.stop().at(0);
    EXPECT_EQ(sent.frames, 150U);
    EXPECT_GT(sent.damaged_frames, 3U);
    expect_frames_as_sent();
    nlohmann::json const counts = sidecar().at("counts");
    EXPECT_EQ(counts.at("received"), sent.frames - sent.damaged_frames);
    EXPECT_EQ(counts.at("dropped"), 0);
    std::size_t all =
        counts.at("received").get<std::size_t>() + counts.at("lost").get<std::size_t>();
    for (auto const& cause : counts.at("incomplete")) {
        all += cause.get<std::size_t>();
    }
    EXPECT_EQ(all, sent.frames);
}

TEST_F(Live_program, numbers_that_wrap_are_no_gap) {
    Camera_process camera(small({"--rate", "100", "--first-frame-number", "65534"}));
    Outcome const live = run_live({"--frames", "4", "--record", recording()});
    EXPECT_EQ(live.code, 0) << live.errors;
    EXPECT_NE(live.output.find("lost 0, incomplete 0"), std::string::npos) << live.output;
    EXPECT_EQ(sidecar().at("frame_number"), (std::vector<int>{65534, 65535, 1, 2}));
}

TEST_F(Live_program, a_camera_that_dies_leaves_all_that_it_sent_and_one_line) {
    Camera_process camera(small({"--rate", "100", "--die-after", "5"}));
    Outcome const live = run_live(
        {"-q", "--record", recording(), "-o", in_folder("results"), "--phase", "0", "--planes",
         "dolp", "--no-pictures"});
    EXPECT_EQ(live.code, 1);
    EXPECT_NE(live.errors.find("went away"), std::string::npos) << live.errors;
    expect_frames_as_sent();
    EXPECT_EQ(sidecar().at("frame_number").size(), 5U);
    EXPECT_EQ(test_files::names_in(folder_ / "results").size(), 10U);
}

TEST_F(Live_program, an_interrupted_run_leaves_what_it_received) {
    Camera_process camera(small({"--rate", "100"}));
    std::array<int, 2> ends = {-1, -1};
    ASSERT_EQ(pipe(ends.data()), 0);
    Running_program program(
        live({"-o", "-", "--planes", "dolp", "--phase", "0", "--record", recording()}), ends[1]);
    close(ends[1]);
    std::vector<char> plane(size.width * size.height * 2);
    std::size_t got = 0;
    while (got < plane.size()) { // a frame is through
        ssize_t const more = read(ends[0], plane.data() + got, plane.size() - got);
        ASSERT_GT(more, 0);
        got += static_cast<std::size_t>(more);
    }
    program.send(SIGINT);
    while (read(ends[0], plane.data(), plane.size()) > 0) {
        ++got;
    }
    close(ends[0]);
    Outcome const outcome = program.wait();
    EXPECT_EQ(outcome.code, 130) << outcome.errors;
    expect_frames_as_sent();
    EXPECT_GE(sidecar().at("frame_number").size(), 1U);
}

TEST_F(Live_program, frames_of_another_size_are_not_recorded) {
    Camera_process camera(
        small({"--rate", "100", "--frames", "8", "--change-size-at", "4:80x120"}));
    Outcome const live = run_live({"--seconds", "1.5", "--record", recording()});
    EXPECT_EQ(live.code, 0) << live.errors;
    expect_frames_as_sent();
    EXPECT_EQ(sidecar().at("frame_number"), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(sidecar().at("counts").at("incomplete").at("size mismatch"), 5);
}

// Root may open packet sockets, a user not: the way of the frames is another.
TEST_F(Live_program, works_for_a_user_as_for_root) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "every other test has shown it";
    }
    Strings const nobody = {
        "/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--no-new-privs"};
    if (program_run::run_command(joined(nobody, {POLARIZE_PROGRAM, "--version"})).code != 0) {
        GTEST_SKIP() << "no user but root can run " << POLARIZE_PROGRAM;
    }
    Camera_process camera(small({"--rate", "100"}));
    Strings const line =
        live({"--frames", "3", "-o", "-", "--planes", "s0,azimuth,dolp", "--phase", "0"});
    Outcome const root = program_run::run_command(line);
    Outcome const user = program_run::run_command(joined(nobody, line));
    EXPECT_EQ(root.code, 0) << root.errors;
    EXPECT_EQ(user.code, 0) << user.errors;
    EXPECT_TRUE(user.output == root.output);
    EXPECT_EQ(user.output.size(), 3 * 3 * 2 * size.width * size.height);
}

} // namespace
