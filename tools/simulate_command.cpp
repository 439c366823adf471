#include "commands.hpp"
#include "failure.hpp"
#include "input_options.hpp"
#include "simulate_run.hpp"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>

namespace polarize_tool {
namespace {

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize simulate -o frame.png --phase 2 --truth truth\n"
    "  veldrane-polarize simulate -o run.raw --frames 100 --pixel-format Mono12p\n"
    "  veldrane-polarize simulate -o series/cal.png --polarizer-series 0:165:15 --imperfect\n"
    "The last makes series/cal_angle_000.0.png and so on, series/cal_angles.csv, and the\n"
    "analysers that were drawn, series/cal_analysers.json, which `process --calibration` takes.";

struct Flags {
    bool no_noise = false;
    bool imperfect = false;
    bool overwrites = false;
    Analyser_spread spread;
};

std::string output_name_problem(std::string const& name) {
    auto const ending = std::filesystem::path(name).extension();
    return ending == ".png" || ending == ".raw" ? std::string()
                                                : name + " must end in .png or .raw";
}

void add_sensor_options(CLI::App& command, Simulation_settings& settings, Flags& flags) {
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
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command.add_flag("--no-noise", flags.no_noise, "Leave out shot noise and read noise");
}

void add_analyser_options(CLI::App& command, Flags& flags) {
    std::string const group = "Imperfect analysers";
    CLI::Option* const imperfect =
        command
            .add_flag(
                "--imperfect", flags.imperfect,
                "Draw analysers at random, and write what was drawn to FRAME_analysers.json")
            ->group(group);
    Analyser_spread& spread = flags.spread;
    command
        .add_option(
            "--throughput-spread", spread.throughput,
            "Throughputs lie in 1 - SPREAD to 1 + SPREAD, 0 to 0.2")
        ->check(finite_number)
        ->check(CLI::Range(0.0, 0.2))
        ->capture_default_str()
        ->needs(imperfect)
        ->group(group);
    command
        .add_option(
            "--lowest-diattenuation", spread.lowest_diattenuation, "Contrast of an analyser, to 1")
        ->check(finite_number)
        ->check(CLI::Range(0.1, 1.0))
        ->capture_default_str()
        ->needs(imperfect)
        ->group(group);
    command.add_option("--highest-diattenuation", spread.highest_diattenuation, "The same")
        ->check(finite_number)
        ->check(CLI::Range(0.1, 1.0))
        ->capture_default_str()
        ->needs(imperfect)
        ->group(group);
    command
        .add_option(
            "--orientation-spread", spread.orientation,
            "Largest distance from the mosaic's angle in degrees, 0 to 15")
        ->check(finite_number)
        ->check(CLI::Range(0.0, 15.0))
        ->capture_default_str()
        ->needs(imperfect)
        ->group(group);
    command.add_option("--analyser-seed", spread.seed, "Start of the draw, 0 to 2^63 - 1")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str()
        ->needs(imperfect)
        ->group(group);
}

void add_series_options(CLI::App& command, Simulate_options& options) {
    std::string const group = "Several frames";
    CLI::Option* const frames =
        command
            .add_option(
                "--frames", options.frames,
                "So many frames that differ by their noise, 1 to 1000000: FRAME_000000.png and so "
                "on, or one file of raw samples")
            ->check(CLI::Range(1, 1000000))
            ->capture_default_str()
            ->group(group);
    command
        .add_option(
            "--pixel-format", options.pixel_format,
            "Layout of a .raw file: Mono8, Mono10, Mono12, Mono14, Mono16, Mono10p, Mono12p, "
            "Mono10Packed or Mono12Packed")
        ->capture_default_str()
        ->type_name("NAME")
        ->group(group);
    command
        .add_option(
            "--polarizer-series", options.polarizer_series,
            "A uniform source behind a polariser at the angles A0, A0 + STEP, ... up to A1 degrees "
            "(0 to 360): one frame an angle, FRAME_angle_045.0.png, and FRAME_angles.csv")
        ->type_name("A0:A1:STEP")
        ->excludes(frames)
        ->group(group);
}

} // namespace

void add_simulate_command(CLI::App& program, int& /*exit_code*/) {
    auto const options = std::make_shared<Simulate_options>();
    auto const flags = std::make_shared<Flags>();
    CLI::App& command = *program.add_subcommand(
        "simulate",
        "Makes raw frames of a glossy ball under a clear sky, or of a polariser series, with known "
        "truth.");
    command
        .add_option(
            "-o,--output", options->output,
            "The frame: PNG of 8 bits at depth 8, else of 16; or raw samples. Its folder is made "
            "if missing")
        ->required()
        ->type_name("FRAME.png")
        ->check(output_name_problem);
    add_sensor_options(command, options->settings, *flags);
    command
        .add_option(
            "--truth", options->truth_folder,
            "Also write the true S0, S1, S2 (sample units), angle (degrees, 0 to below 180) and "
            "degree of polarisation (0 to 1) as 32-bit float TIFF FRAME_true_NAME.tif")
        ->type_name("DIR");
    add_series_options(command, *options);
    add_analyser_options(command, *flags);
    command.add_flag("--overwrite", flags->overwrites, "Replace files that are there");
    command.add_flag("-q,--quiet", options->is_quiet, "Say nothing but what went wrong");
    command.footer(example);
    command.callback([options, flags] {
        if (flags->spread.lowest_diattenuation > flags->spread.highest_diattenuation) {
            throw Usage_error("--lowest-diattenuation is above --highest-diattenuation");
        }
        options->settings.noise = !flags->no_noise;
        options->existing = flags->overwrites ? Existing_files::replace : Existing_files::keep;
        if (flags->imperfect) {
            options->settings.analysers =
                imperfect_analysers(options->settings.phase, flags->spread);
        }
        options->analyser_seed = flags->spread.seed;
        run_simulate(*options);
    });
}

} // namespace polarize_tool
