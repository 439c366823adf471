// A GigE Vision camera with a polariser mosaic on 127.0.0.1, for tests: Aravis' fake camera answers
// for it, the frames are simulated ones whose light is known, and what goes wrong on real links and
// in real cameras can be asked for. Says `ready` when it serves.
#include "camera_stream.hpp"

#include <CLI/CLI.hpp>
#include <arv.h>
#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>

namespace {

using namespace simulated_camera;

constexpr char const* address = "127.0.0.1";

struct Line {
    std::string serial = "SIM1";
    Sensor sensor;
    Defaults defaults;
    Schedule schedule;
    Faults faults;
};

// "NUMBER:REST", as two words.
std::pair<std::uint64_t, std::string> with_frame(std::string const& text) {
    std::size_t const colon = text.find(':');
    std::uint64_t frame = 0;
    if (colon == std::string::npos || !CLI::detail::lexical_cast(text.substr(0, colon), frame)) {
        throw CLI::ValidationError(text + " does not begin with a frame's number and a colon");
    }
    return {frame, text.substr(colon + 1)};
}

void add_faults(CLI::App& app, Line& line) {
    app.add_option_function<double>(
           "--lose", [&](double share) { line.faults.lost_share = share / 100; },
           "Per cent of the packets that get lost, at random")
        ->check(CLI::Range(0, 100));
    app.add_option("--seed", line.faults.seed, "Which packets get lost");
    app.add_option(
        "--die-after", line.faults.last_before_death,
        "End the program in the middle of the frame after this one");
    app.add_option_function<std::string>(
        "--stall-at",
        [&](std::string const& text) {
            auto const [frame, time] = with_frame(text);
            line.faults.stall = {frame, std::chrono::milliseconds(std::stol(time))};
        },
        "FRAME:MILLISECONDS, a pause in the middle of that frame");
    app.add_option_function<std::string>(
        "--change-size-at",
        [&](std::string const& text) {
            auto const [frame, size] = with_frame(text);
            std::size_t const cross = size.find('x');
            line.schedule.change = {
                frame, {std::stoul(size.substr(0, cross)), std::stoul(size.substr(cross + 1))}};
        },
        "FRAME:WIDTHxHEIGHT, another size from that frame on");
}

void add_camera(CLI::App& app, Line& line) {
    app.add_option("--serial", line.serial, "Serial number, by which it is found");
    app.add_option_function<std::string>(
        "--pixel-format",
        [&](std::string const& name) {
            line.defaults.pixel_format = polarization::parse_pixel_format(name);
        },
        "Such as Mono12p, which is the default");
    app.add_option("--width", line.sensor.size.width, "Of the sensor");
    app.add_option("--height", line.sensor.size.height, "Of the sensor");
    app.add_option("--phase", line.sensor.phase, "Of the mosaic")->check(CLI::Range(0, 3));
    app.add_option("--rate", line.defaults.frame_rate, "Frames a second");
    app.add_option("--different", line.sensor.frames, "Frames that are sent round and round");
    app.add_option("--frames", line.schedule.frames, "Send no more in one acquisition");
    app.add_option("--first-frame-number", line.schedule.first_number, "In each acquisition")
        ->check(CLI::Range(1, 65535));
    app.add_option("--mtu", line.schedule.largest_packet, "The largest packet that gets through");
}

// Until somebody ends the program.
void wait_for_the_end(sigset_t const& signals) {
    int signal = 0;
    sigwait(&signals, &signal);
}

int serve(Line const& line) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Before there is another thread, which would get them.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::unique_ptr<ArvGvFakeCamera, decltype(&g_object_unref)> const camera(
        arv_gv_fake_camera_new_full(address, line.serial.c_str(), CAMERA_DESCRIPTION),
        g_object_unref);
    if (!arv_gv_fake_camera_is_running(camera.get())) {
        std::cerr << "simulated_camera: " << address << " has a camera already\n";
        return 1;
    }
    Camera_stream stream(
        arv_gv_fake_camera_get_fake_camera(camera.get()), line.sensor, line.defaults, line.schedule,
        line.faults);
    std::atomic<bool> ends = false;
    std::thread sender([&] { stream.run(ends); });
    std::cout << "ready" << std::endl;
    wait_for_the_end(signals);
    ends = true;
    sender.join();
    return 0;
}

} // namespace

int main(int count, char** words) {
    Line line;
    CLI::App app("A simulated camera on 127.0.0.1");
    add_camera(app, line);
    add_faults(app, line);
    try {
        app.parse(count, words);
        return serve(line);
    } catch (CLI::ParseError const& error) {
        return app.exit(error);
    } catch (std::exception const& error) {
        std::cerr << "simulated_camera: " << error.what() << '\n';
        return 1;
    }
}
