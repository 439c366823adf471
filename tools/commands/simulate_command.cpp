#include "commands/commands.hpp"
#include "commands/simulate_run.hpp"
#include "input/input_options.hpp"
#include "input/option_values.hpp"
#include "terminal/failure.hpp"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

namespace polarize_tool {
namespace {

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize simulate -o frame.png --phase 2 --truth truth\n"
    "  veldrane-polarize simulate -o run.raw --frames 100 --pixel-format Mono12p\n"
    "  veldrane-polarize simulate -o series/cal.png --polarizer-series 0:165:15 --imperfect\n"
    "The last makes series/cal_angle_000.0.png and so on, series/cal_angles.csv, and the\n"
    "analysers that were drawn, series/cal_analysers.json, which `process --calibration` takes.\n"
    "  veldrane-polarize simulate -o series/cal.png --polarizer-series 0:165:15 --pixel-spread \\\n"
    "      --dark-frames 8 --flat-frames 2 --flat-levels 6\n"
    "makes a series of a sensor of which no two pixels are alike, series/cal_dark_000.png and so "
    "on,\n"
    "and pairs of flat frames, series/cal_flat_1_000.png to series/cal_flat_6_001.png.";

struct Flags {
    bool no_noise = false;
    bool imperfect = false;
    bool overwrites = false;
    polarization::Analyser_spread spread;
    bool pixels_differ = false;
    polarization::Pixel_spread pixel_spread;
    CLI::Option const* pixel_format = nullptr;
};

constexpr std::uint64_t largest_seed = std::numeric_limits<std::int64_t>::max();

std::string preset(double number) {
    std::ostringstream text;
    text << number;
    return text.str();
}

void check_output_name(std::filesystem::path const& file) {
    auto const ending = file.extension();
    if (ending != ".png" && ending != ".raw") {
        throw Usage_error("--output is " + file.string() + "; the name must end in .png or .raw");
    }
}

void add_sensor_options(
    CLI::App& command, polarization::Simulation_settings& settings, Flags& flags) {
    Whole_range const side = {2, 16384};
    add_whole_number(command, "--width", settings.width, side, "Columns")
        ->default_str(std::to_string(settings.width));
    add_whole_number(command, "--height", settings.height, side, "Rows")
        ->default_str(std::to_string(settings.height));
    add_whole_number(command, "--phase", settings.phase, {0, 3}, phase_help)
        ->default_str(std::to_string(settings.phase));
    add_whole_number(
        command, "--bit-depth", settings.bit_depth, {8, 16}, "Significant bits of a sample")
        ->default_str(std::to_string(settings.bit_depth));
    CLI::Option* const seed = add_whole_number(
                                  command, "--seed", settings.seed, {0, largest_seed},
                                  "Start of the noise, 0 to 2^63 - 1")
                                  ->default_str(std::to_string(settings.seed));
    CLI::Option* const none =
        command.add_flag("--no-noise", flags.no_noise, "Leave out shot noise and read noise")
            ->excludes(seed);
    add_number(
        command, "--electrons-per-count", {0.01, 1000.0},
        "Conversion gain; if not given 10500 electrons are the full scale",
        [&settings](double value) { settings.electrons_per_count = value; })
        ->excludes(none);
    add_number(
        command, "--read-noise", {0.0, 1000.0}, "Standard deviation in electrons",
        [&settings](double value) { settings.read_noise = value; })
        ->default_str(preset(settings.read_noise))
        ->excludes(none);
}

/// Options with numbers that mean something beside a flag alone.
struct Numbers_of_flag {
    CLI::App& command;
    CLI::Option* flag;
    std::string group;

    void add(std::string const& name, double& number, Range range, char const* help) const {
        add_number(command, name, range, help, [&number](double value) { number = value; })
            ->default_str(preset(number))
            ->needs(flag)
            ->group(group);
    }
    void add_seed(std::string const& name, std::uint64_t& seed) const {
        add_whole_number(command, name, seed, {0, largest_seed}, "Start of the draw, 0 to 2^63 - 1")
            ->default_str(std::to_string(seed))
            ->needs(flag)
            ->group(group);
    }
};

void add_analyser_options(CLI::App& command, Flags& flags) {
    std::string const group = "Imperfect analysers";
    CLI::Option* const imperfect =
        command
            .add_flag(
                "--imperfect", flags.imperfect,
                "Draw analysers at random, and write what was drawn to FRAME_analysers.json")
            ->group(group);
    polarization::Analyser_spread& spread = flags.spread;
    Numbers_of_flag const numbers{command, imperfect, group};
    numbers.add(
        "--throughput-spread", spread.throughput, {0.0, 0.2},
        "Throughputs lie in 1 - SPREAD to 1 + SPREAD");
    numbers.add(
        "--lowest-diattenuation", spread.lowest_diattenuation, {0.1, 1.0},
        "Contrast of an analyser");
    numbers.add("--highest-diattenuation", spread.highest_diattenuation, {0.1, 1.0}, "The same");
    numbers.add(
        "--orientation-spread", spread.orientation, {0.0, 15.0},
        "Largest distance from the mosaic's angle in degrees");
    numbers.add_seed("--analyser-seed", spread.seed);
}

void add_pixel_options(CLI::App& command, Flags& flags) {
    std::string const group = "Pixels that differ";
    CLI::Option* const differ =
        command
            .add_flag(
                "--pixel-spread", flags.pixels_differ,
                "Draw every pixel at random, around the analysers that --imperfect draws or around "
                "diattenuations of 0.95, and write what was drawn to FRAME_analysers.json, with "
                "its "
                "maps beside it. Spreads are standard deviations")
            ->group(group);
    polarization::Pixel_spread& spread = flags.pixel_spread;
    Numbers_of_flag const numbers{command, differ, group};
    numbers.add("--pixel-gain-spread", spread.gain_spread, {0.0, 0.2}, "Part of the gain");
    numbers.add("--pixel-orientation-spread", spread.orientation_spread, {0.0, 5.0}, "In degrees");
    numbers.add(
        "--pixel-diattenuation-spread", spread.diattenuation_spread, {0.0, 0.2},
        "Diattenuations are cut off at 1");
    numbers.add(
        "--dark-level", spread.dark_level, {0.0, 16383.0},
        "Mean sample without light, at most a quarter of the full scale");
    numbers.add("--dark-spread", spread.dark_spread, {0.0, 16383.0}, "Of the dark level");
    numbers.add(
        "--hot-pixels", spread.hot_pixels, {0.0, 0.1},
        "Share of pixels that are at the full scale without light");
    numbers.add(
        "--dead-pixels", spread.dead_pixels, {0.0, 0.1}, "Share of pixels that see no light");
    numbers.add_seed("--pixel-seed", spread.seed);
}

void add_frames_beside(CLI::App& command, Simulate_options& options, std::string const& group) {
    add_whole_number(
        command, "--dark-frames", options.dark_frames, {1, 1000},
        "Also so many frames without light: FRAME_dark_000.png")
        ->group(group);
    CLI::Option* const flat = add_whole_number(
                                  command, "--flat-frames", options.flat_frames, {1, 1000},
                                  "Also so many frames of unpolarised uniform light at each level: "
                                  "FRAME_flat_1_000.png")
                                  ->group(group);
    add_whole_number(
        command, "--flat-levels", options.flat_levels, {1, 100},
        "So many levels of it, level K of N at 80 % * (K / N)^2 of the full scale; photon transfer "
        "takes pairs of frames at several")
        ->default_str(std::to_string(options.flat_levels))
        ->needs(flat)
        ->group(group);
}

void add_series_options(CLI::App& command, Simulate_options& options, Flags& flags) {
    std::string const group = "Several frames";
    CLI::Option* const frames =
        add_whole_number(
            command, "--frames", options.frames, {1, 1000000},
            "So many frames that differ by their noise: FRAME_000000.png and so on, or one file of "
            "raw samples")
            ->default_str(std::to_string(options.frames))
            ->group(group);
    flags.pixel_format =
        add_pixel_format(command, options.pixel_format, "How the samples lie in a .raw file")
            ->default_str(options.pixel_format)
            ->group(group);
    command
        .add_option(
            "--polarizer-series", options.polariser_series,
            "A uniform source behind a polariser at the angles A0, A0 + STEP, ... up to A1 degrees "
            "(0 to 360): one frame an angle, FRAME_angle_045.0.png, and FRAME_angles.csv")
        ->type_name("A0:A1:STEP")
        ->excludes(frames)
        ->group(group);
    add_frames_beside(command, options, group);
}

// Depths give these ranges that options have alone.
void check_dark_figure(char const* option, double value, int bit_depth) {
    unsigned const most = (1U << bit_depth) / 4 - 1;
    if (value > most) {
        throw Usage_error(
            std::string(option) + " is " + preset(value) + "; give 0 to " + std::to_string(most) +
            " at a depth of " + std::to_string(bit_depth) + " bits");
    }
}

void complete(Simulate_options& options, Flags const& flags) {
    polarization::Simulation_settings& settings = options.settings;
    settings.noise = !flags.no_noise;
    options.existing = flags.overwrites ? Existing_files::replace : Existing_files::keep;
    if (flags.imperfect) {
        settings.analysers = polarization::imperfect_analysers(settings.phase, flags.spread);
    }
    options.analyser_seed = flags.spread.seed;
    if (flags.pixels_differ) {
        check_dark_figure("--dark-level", flags.pixel_spread.dark_level, settings.bit_depth);
        check_dark_figure("--dark-spread", flags.pixel_spread.dark_spread, settings.bit_depth);
        options.pixel_spread = flags.pixel_spread;
    }
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
        ->type_name("FRAME.png");
    add_sensor_options(command, options->settings, *flags);
    command
        .add_option(
            "--truth", options->truth_folder,
            "Also write the true S0, S1, S2 (sample units), angle (degrees, 0 to below 180) and "
            "degree of polarisation (0 to 1) as 32-bit float TIFF FRAME_true_NAME.tif")
        ->type_name("DIR");
    add_series_options(command, *options, *flags);
    add_analyser_options(command, *flags);
    add_pixel_options(command, *flags);
    command.add_flag("--overwrite", flags->overwrites, "Replace files that are there");
    command.add_flag("-q,--quiet", options->is_quiet, "Say nothing but what went wrong");
    command.footer(example);
    command.callback([options, flags] {
        check_output_name(options->output);
        if (options->output.extension() == ".png" && flags->pixel_format->count() > 0) {
            throw Usage_error(
                "--pixel-format is for .raw files, but --output is " + options->output.string() +
                "; leave it out or choose a name that ends in .raw");
        }
        if (flags->spread.lowest_diattenuation > flags->spread.highest_diattenuation) {
            throw Usage_error("--lowest-diattenuation is above --highest-diattenuation");
        }
        complete(*options, *flags);
        run_simulate(*options);
    });
}

} // namespace polarize_tool
