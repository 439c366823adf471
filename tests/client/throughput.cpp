// Figures, not a test: frames per second of the pipeline with 1 and 2 threads.
// `client_throughput [frames]`; with few frames it only shows that it still runs.

#include "veldrane_mrv/polarization/pipeline.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/transform.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>
#include <vector>

namespace {

using namespace veldrane_mrv::polarization;

constexpr std::size_t height = 2048;
constexpr std::size_t width = 2448;

using Samples = std::vector<std::uint16_t>;

double seconds_of(std::function<void()> const& run) {
    auto const begin = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Processor time of all threads, which other programs' load hardly changes.
double processor_seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

Samples random_samples(int bit_depth) {
    std::mt19937 random{1};
    Samples samples(height * width);
    std::ranges::generate(
        samples, [&] { return static_cast<std::uint16_t>(random() & ((1U << bit_depth) - 1)); });
    return samples;
}

std::vector<std::byte> packed_frame(Pixel_format format) {
    std::vector<std::byte> bytes(bytes_per_frame(format, height, width));
    pack_frame(format, random_samples(static_cast<int>(bit_depth_of(format))), width, bytes);
    return bytes;
}

struct Slot {
    std::vector<std::byte> bytes;
    Samples samples;
    Planes planes;
    Calibrated_transform calibrated;
};

enum class Work { fast, calibrated };

// Frames per second.
double run_frames(unsigned threads, Work work, std::size_t frames, Plane_set const& wanted) {
    constexpr Pixel_format format = Pixel_format::mono12p;
    std::vector<std::byte> const recording = packed_frame(format);
    Settings const settings{
        Mosaic::from_phase(2), Scale{12}, ideal_matrices(Mosaic::from_phase(2))};
    auto const make_slot = [&] {
        return Slot{
            std::vector<std::byte>(recording.size()), Samples(height * width),
            Planes{height, width, wanted}, Calibrated_transform{settings}};
    };
    std::uint64_t sum = 0;
    double const seconds = seconds_of([&] {
        run_pipeline(
            {threads, 0, {}}, make_slot,
            [&](std::size_t index, Slot& slot) {
                std::ranges::copy(recording, slot.bytes.begin());
                return index < frames;
            },
            [&](std::size_t, Slot& slot) {
                unpack_frame(format, slot.bytes, width, slot.samples);
                Frame_view const frame{slot.samples, height, width};
                if (work == Work::fast) {
                    transform(frame, settings, slot.planes.views());
                } else {
                    slot.calibrated(frame, slot.planes.views());
                }
            },
            [&](std::size_t, Slot& slot) {
                sum += slot.planes.integer_plane(Plane::dolp)[width + 1];
            });
    });
    return sum == 0 ? 0 : static_cast<double>(frames) / seconds;
}

struct Figures {
    std::vector<double> frames_per_second;
    std::vector<double> processor_milliseconds;

    void measure(unsigned threads, Work work, std::size_t frames, Plane_set const& wanted) {
        double const begin = processor_seconds();
        frames_per_second.push_back(run_frames(threads, work, frames, wanted));
        processor_milliseconds.push_back(
            1000 * (processor_seconds() - begin) / static_cast<double>(frames));
    }
};

void measure_pipeline(char const* name, Work work, std::size_t frames, Plane_set const& wanted) {
    Figures one;
    Figures two;
    // Side by side, so that load of other programs meets both.
    for (int repetition = 0; repetition < 5; ++repetition) {
        one.measure(1, work, frames, wanted);
        two.measure(2, work, frames, wanted);
    }
    std::printf(
        "pipeline %-24s frames/s: 1 thread %.1f, 2 threads %.1f, ratio %.2f; "
        "processor ms a frame: %.1f and %.1f\n",
        name, median(one.frames_per_second), median(two.frames_per_second),
        median(two.frames_per_second) / median(one.frames_per_second),
        median(one.processor_milliseconds), median(two.processor_milliseconds));
}

} // namespace

int main(int count, char** arguments) {
    auto const frames = std::max(1UL, count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 100UL);
    Plane_set const two_planes{Plane::azimuth, Plane::dolp};
    measure_pipeline("fast azimuth,dolp", Work::fast, frames, two_planes);
    measure_pipeline("calibrated azimuth,dolp", Work::calibrated, frames, two_planes);
    measure_pipeline("calibrated all six", Work::calibrated, frames, Plane_set::all());
    return 0;
}
