#include "commands.hpp"
#include "image_writing.hpp"
#include "simulation.hpp"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

namespace polarize_tool {
namespace {

struct Simulate_options {
    std::filesystem::path output;
    std::filesystem::path truth_folder;
    Simulation_settings settings;
    bool no_noise = false;
};

cv::Mat as_picture(Frame const& frame, int bit_depth) {
    cv::Mat const samples(
        static_cast<int>(frame.height), static_cast<int>(frame.width), CV_16UC1,
        const_cast<std::uint16_t*>(frame.samples.data()));
    if (bit_depth > 8) {
        return samples.clone();
    }
    cv::Mat narrow;
    samples.convertTo(narrow, CV_8U);
    return narrow;
}

// The names of the files, a line each.
std::string add_truth(
    Staged_files& files, Truth const& truth, Simulation_settings const& settings,
    std::filesystem::path const& start_of_name) {
    std::pair<char const*, std::vector<float> const&> const planes[] = {
        {"s0", truth.s0},
        {"s1", truth.s1},
        {"s2", truth.s2},
        {"angle", truth.angle},
        {"degree", truth.degree}};
    std::string names;
    for (auto const& [name, plane] : planes) {
        std::filesystem::path file = start_of_name;
        file += std::string("_true_") + name + ".tif";
        files.add(file, encode_tiff(plane, settings.width, settings.height));
        names += "  " + file.string() + "\n";
    }
    return names;
}

void run_simulate(Simulate_options& options) {
    options.settings.noise = !options.no_noise;
    Simulation const simulation = simulate(options.settings);
    Staged_files files;
    files.add(options.output, encode_png(as_picture(simulation.frame, options.settings.bit_depth)));
    std::string truth_names;
    if (!options.truth_folder.empty()) {
        make_folder(options.truth_folder);
        truth_names = add_truth(
            files, simulation.truth, options.settings,
            options.truth_folder / options.output.stem());
    }
    files.publish();
    std::printf(
        "%s: %zu x %zu, phase %d, bit depth %d, %s\n", options.output.c_str(),
        options.settings.width, options.settings.height, options.settings.phase,
        options.settings.bit_depth,
        options.no_noise ? "no noise" : ("seed " + std::to_string(options.settings.seed)).c_str());
    std::fputs(truth_names.c_str(), stdout);
}

std::string png_name_problem(std::string const& name) {
    bool const is_png = std::filesystem::path(name).extension() == ".png";
    return is_png ? std::string() : name + " must end in .png";
}

} // namespace

void add_simulate_command(CLI::App& program, int& /*exit_code*/) {
    auto const options = std::make_shared<Simulate_options>();
    Simulation_settings& settings = options->settings;
    CLI::App& command = *program.add_subcommand(
        "simulate", "Makes a raw frame of a glossy ball under a clear sky, with known truth.");
    command
        .add_option("-o,--output", options->output, "The frame: an 8-bit PNG at depth 8, else 16")
        ->required()
        ->type_name("FRAME.png")
        ->check(png_name_problem);
    command.add_option("--width", settings.width, "Columns, 2 to 16384")
        ->check(CLI::Range(2, 16384))
        ->capture_default_str();
    command.add_option("--height", settings.height, "Rows, 2 to 16384")
        ->check(CLI::Range(2, 16384))
        ->capture_default_str();
    command
        .add_option(
            "--phase", settings.phase,
            "Mosaic, top-left cell row by row in degrees: 0: 0 135 / 45 90, 1: 45 90 / 0 135, "
            "2: 90 45 / 135 0, 3: 135 0 / 90 45")
        ->check(CLI::Range(0, 3))
        ->capture_default_str();
    command.add_option("--bit-depth", settings.bit_depth, "Significant bits of a sample, 8 to 16")
        ->check(CLI::Range(8, 16))
        ->capture_default_str();
    command.add_option("--seed", settings.seed, "Start of the noise, 0 to 2^63 - 1")
        ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()))
        ->capture_default_str();
    command.add_flag("--no-noise", options->no_noise, "Leave out shot noise and read noise");
    command
        .add_option(
            "--truth", options->truth_folder,
            "Also write the true S0, S1, S2 (sample units), angle (degrees, 0 to below 180) and "
            "degree of polarisation (0 to 1) as 32-bit float TIFF FRAME_true_NAME.tif")
        ->type_name("DIR");
    command.callback([options] { run_simulate(*options); });
}

} // namespace polarize_tool
