// Frames of a camera that is a thread with frames in its memory, at a steady rate through all that
// `veldrane-polarize live` does with them: how old they are when their planes are done, and how
// many are dropped. Planes go to a folder, or nowhere.

#include "commands/live_run.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace polarization = veldrane_mrv::polarization;
using polarization::Raw_layout;

struct Options {
    std::string pixel_format = "Mono12p";
    std::size_t width = 2448;
    std::size_t height = 2048;
    double rate = 75.0;
    std::size_t frames = 750;
    std::size_t waiting = 16;
    unsigned jobs = 0;
    std::string folder;
};

// Different ones, as many as no cache holds.
std::vector<std::string> frames_of(Raw_layout const& layout) {
    std::mt19937 random{1};
    std::vector<std::string> frames(8, std::string(layout.frame_bytes(), '\0'));
    for (std::string& frame : frames) {
        for (char& byte : frame) {
            byte = static_cast<char>(random());
        }
    }
    return frames;
}

void send(
    polarization::Live_feed& feed, std::vector<std::string> const& frames, Options const& options) {
    auto const begin = std::chrono::steady_clock::now();
    std::chrono::duration<double> const period(1.0 / options.rate);
    for (std::size_t i = 0; i < options.frames; ++i) {
        auto const due = begin + static_cast<double>(i) * period;
        std::this_thread::sleep_until(
            std::chrono::time_point_cast<std::chrono::steady_clock::duration>(due));
        feed.give(frames[i % frames.size()], {i + 1, 0, 0}, std::chrono::steady_clock::now());
    }
    feed.end();
}

polarize_tool::Results results_of(Options const& options, Raw_layout const& layout) {
    polarize_tool::Results results;
    results.folder = options.folder.empty() ? "-" : options.folder;
    results.format = polarize_tool::File_format::raw;
    results.existing = polarize_tool::Existing_files::replace;
    results.processing.settings = polarization::ideal_settings(
        polarization::Mosaic::from_phase(2),
        polarization::Scale(static_cast<int>(bit_depth_of(layout.format))));
    results.processing.planes.insert(polarization::Plane::azimuth);
    results.processing.planes.insert(polarization::Plane::dolp);
    results.origin.pixel_format = layout;
    return results;
}

int run(Options const& options) {
    check(polarization::processor_features());
    auto const layout =
        polarization::make_raw_layout(options.pixel_format, options.width, options.height, 0, 0);
    auto const frames = frames_of(layout);
    auto const results = results_of(options, layout);
    polarize_tool::Sample_options samples;
    polarize_tool::Frame_preparation const preparation(samples, layout);
    polarization::Live_options live;
    live.waiting_frames = options.waiting;
    polarization::Live_source source("memory", "live", layout, live);
    polarize_tool::Live_statistics statistics(polarize_tool::frames_in_flight(options.jobs), false);
    polarize_tool::Live_sinks sinks;
    sinks.results = &results;
    sinks.preparation = &preparation;
    sinks.jobs = options.jobs;
    sinks.is_quiet = true;
    int code = 0;
    {
        std::jthread const camera([&] { send(source.feed(), frames, options); });
        code = run_live(source, statistics, sinks);
    }
    std::fprintf(
        stderr, "%s %zu x %zu, %zu frames at %g frames/s: %s, %s\n", options.pixel_format.c_str(),
        options.width, options.height, options.frames, options.rate, statistics.summary().c_str(),
        polarize_tool::told_losses(source.counts()).c_str());
    return code;
}

} // namespace

int main(int argument_count, char** arguments) {
    try {
        Options options;
        CLI::App program{"Latency and drops of frames at a steady rate, told on standard error"};
        program.add_option("--pixel-format", options.pixel_format)->capture_default_str();
        program.add_option("--width", options.width)->capture_default_str();
        program.add_option("--height", options.height)->capture_default_str();
        program.add_option("--rate", options.rate, "Frames a second")->capture_default_str();
        program.add_option("--frames", options.frames)->capture_default_str();
        program.add_option("--waiting", options.waiting)->capture_default_str();
        program.add_option("--jobs", options.jobs, "0: one for each core")->capture_default_str();
        program.add_option(
            "--folder", options.folder, "Of the planes' files; without it planes go nowhere");
        CLI11_PARSE(program, argument_count, arguments);
        int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
            return 1;
        }
        return run(options);
    } catch (std::exception const& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return 1;
    }
}
