// usage: long_run MINUTES
// The simulated camera at 30 frames a second, numbers that wrap after a quarter of an hour,
// processed for that long: fails if memory grows or a frame is missing. Prints a line a minute.
#include "camera_process.hpp"
#include "veldrane_mrv/polarization/camera.hpp"
#include "veldrane_mrv/polarization/fast_transform.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using std::chrono::steady_clock;

constexpr polarization::Size size{640, 480};
constexpr std::size_t frames_a_minute = 30 * 60;
// Kilobytes: frames that wait for once take memory that is kept. In half an hour a leak of one
// kilobyte a frame would be 54000.
constexpr long waiting_frames = 16;
constexpr long allowed_growth = 1024 + waiting_frames * (640 * 480 * 3 / 2 / 1024);

long resident_kilobytes() {
    std::ifstream file("/proc/self/statm");
    long all = 0;
    long resident = 0;
    file >> all >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Quantile of latencies in milliseconds.
double quantile(std::vector<double>& latencies, double share) {
    auto const place =
        static_cast<std::ptrdiff_t>(share * static_cast<double>(latencies.size() - 1));
    std::nth_element(latencies.begin(), latencies.begin() + place, latencies.end());
    return latencies[static_cast<std::size_t>(place)];
}

bool watch(std::size_t minutes) {
    camera_process::Camera_lock const lock;
    camera_process::Camera_process const camera({"--first-frame-number", "38000"});
    polarization::Camera_options options;
    options.id = camera.id();
    options.live.waiting_frames = waiting_frames;
    auto const source = open_camera(options);
    polarization::Settings const settings =
        polarization::ideal_settings(polarization::Mosaic::from_phase(0), polarization::Scale{12});
    std::vector<std::uint16_t> azimuth(size.width * size.height);
    std::vector<std::uint16_t> dolp(azimuth.size());
    std::vector<double> latencies(frames_a_minute);
    polarization::Frame_slot slot;
    long at_start = 0;
    long now = 0;
    for (std::size_t index = 0; index < minutes * frames_a_minute; ++index) {
        if (!source->has_frame(index)) {
            return false;
        }
        source->read(index, slot);
        transform(slot.frame().view(), settings, {.azimuth = azimuth, .dolp = dolp});
        latencies[index % frames_a_minute] =
            std::chrono::duration<double, std::milli>(steady_clock::now() - source->arrival())
                .count();
        if ((index + 1) % frames_a_minute == 0) {
            now = resident_kilobytes();
            at_start = at_start == 0 ? now : at_start;
            auto const counts = source->counts();
            std::printf(
                "minute %zu: %zu frames, %lu dropped, %lu lost, %lu incomplete, %ld kB, "
                "latency %.2f ms, 99th percentile %.2f ms\n",
                (index + 1) / frames_a_minute, index + 1, counts.dropped, counts.lost,
                counts.all_incomplete(), now, quantile(latencies, 0.5), quantile(latencies, 0.99));
            std::fflush(stdout);
        }
    }
    auto const counts = source->counts();
    return now - at_start <= allowed_growth && counts.dropped == 0 && counts.lost == 0 &&
           counts.all_incomplete() == 0;
}

} // namespace

int main(int count, char** words) try {
    std::size_t const minutes = count == 2 ? std::strtoul(words[1], nullptr, 10) : 0;
    if (minutes == 0) {
        std::fputs("usage: long_run MINUTES\n", stderr);
        return 2;
    }
    return watch(minutes) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (std::exception const& error) {
    std::fprintf(stderr, "long_run: %s\n", error.what());
    return EXIT_FAILURE;
}
