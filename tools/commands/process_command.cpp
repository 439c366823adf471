#include "commands/commands.hpp"
#include "commands/process_run.hpp"
#include "input/option_values.hpp"
#include "input/transform_settings.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace polarize_tool {
namespace {

using polarization::Mode;
using polarization::Plane;
using polarization::Plane_set;

struct Command_line {
    Process_options run;
    Sample_options samples;
    Mosaic_options mosaic;
    Results results;
    std::string planes = "all";
    std::optional<unsigned> full_scale;
    std::filesystem::path calibration_file;
    std::optional<Mode> mode;
    std::optional<double> zero_direction;
    Units units = Units::scaled;
    bool is_signed = false;
    bool wants_pictures = true;
    bool is_masked = true;
    std::optional<double> electrons_per_count;
    std::optional<double> read_noise;
    bool overwrites = false;
    unsigned repetitions = 1;
};

constexpr char const* planes_help =
    "Planes to compute, separated by commas: s0, s1, s2, azimuth, dolp (16 bits a number unless "
    "--signed or --units say otherwise), normalized_stokes (32-bit floats, S1/S0 and S2/S0), or "
    "all for these six; and, only if named, validity (8 bits: 1 saturated, 2 below dark, 4 bad "
    "pixel, 8 weak) and uncertainty (three 32-bit floats: standard deviations of S0, degree and "
    "angle; needs --electrons-per-count or a calibration with noise). In fast mode "
    "normalized_stokes lies as the processor packs it: at the pixel's own place "
    "only in frames of two rows or fewer than 32 columns, NaN where it stores nothing";

constexpr char const* full_scale_help =
    "Full scale N of the 16-bit planes, 1 to 65535: 180 degrees of azimuth and a degree of "
    "polarisation of 1 are N. S0 is half the sum of four samples, up to 2 (2^B - 1) for bit depth "
    "B. Without this option S0, S1 and S2 are scaled by 65535 / (2 (2^B - 1)), so that nothing "
    "clips. N = 2^B - 1 keeps them in sample units, and S0 clips at N. Any other N scales them by "
    "N / (2 (2^B - 1))";

constexpr char const* calibration_help =
    "Calibration of this sensor, as `calibrate` writes it. Every pixel goes through its weights "
    "(calibrated mode); it also tells the mosaic";

constexpr char const* mode_help =
    "fast: one call of the processor a frame. calibrated: every pixel through the weights of its "
    "position, every plane at pixel positions; without --calibration by those of ideal analysers";

constexpr char const* zero_direction_help =
    "Count angles from the axis that lies so many degrees counter-clockwise from the rows: S1, S2 "
    "and the angle of calibrated mode turn with it; the degree of polarisation stays";

constexpr char const* units_help =
    "scaled: steps of the full scale. degrees or radians: 32-bit floats in physical units; the "
    "angle from 0 along the rows, counter-clockwise, NaN where the degree is 0; the degree as a "
    "fraction, NaN where S0 is 0; S0, S1, S2 in sample units";

constexpr char const* output_help =
    "Folder of the results, made if missing. - writes the planes to standard output instead, as "
    "--format raw has them: frame after frame, in each the planes in the order of --planes above, "
    "row by row, the lower byte first; nothing stands between them. A frame that fails ends it. "
    "Lines about the run go to standard error";

constexpr char const* pictures_help =
    "Write pictures of the degree (FRAME_degree.png, with dolp) and the angle dimmed by the degree "
    "(FRAME_angle_degree.png, with azimuth as well), or none; without this option they are written "
    "for frames that are alone in their file. Pictures are for the eye and have no JSON file "
    "beside them";

constexpr char const* electrons_help =
    "Conversion gain of the camera in electrons for one unit of a sample, 0.001 to 1000000: the "
    "noise that "
    "uncertainty and the weak light of validity are judged by, in place of the calibration's";

constexpr char const* read_noise_help =
    "Read noise in electrons, 0 to 1000000; goes with --electrons-per-count, 0 if not given";

constexpr char const* mask_help =
    "Grey in the pictures where a pixel is not valid, as the plane validity has it: saturated, and "
    "below dark, bad or weak as far as calibration and noise are known; or colours everywhere";

constexpr char const* stack_help =
    "For long recordings: one file a plane for all frames of a recording, DIR/FILE_PLANE.npy, .raw "
    "or .tif (a BigTIFF with a page a frame), and one DIR/FILE_stack.json, in place of files for "
    "each frame. A folder of pictures is one recording and gives its name. The frame i has place "
    "i; "
    "one that fails is zeros there, or NaN, and is listed as missing";

constexpr char const* resume_help =
    "Go on with a run that was broken off: pass over frames whose files are all there, none of "
    "them empty, and count them; with which options they were made is not looked at. A frame of "
    "which a file is missing is processed anew, and its other files are replaced. With --stack do "
    "the frames that an unfinished stack lacks, or a finished one misses; frames and options have "
    "to be those that it was begun with";

constexpr char const* jobs_help =
    "Frames worked on at once, or threads that share them where there are fewer; 0 is one for each "
    "core. Twice as many lie in memory, each with 4 "
    "bytes a pixel, 2 more for each 16-bit plane, 8 for normalized_stokes, 1 for validity and 12 "
    "for uncertainty; --signed and --units need more. Give fewer jobs if memory is short";

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize process frame.png -o results --phase 2 --bit-depth 12\n"
    "  veldrane-polarize process run.raw -o results --pixel-format Mono12p --width 2448 \\\n"
    "      --height 2048 --layout 90,45,135,0 --planes azimuth,dolp --format npy --stack\n"
    "Each plane is written to DIR/FRAME_PLANE.tif, and what its numbers mean to\n"
    "DIR/FRAME_PLANE.json. Frames of a file with many are numbered, FRAME_000000_PLANE.tif, or\n"
    "lie in one file a plane with --stack. Frames of standard input are named stdin_000000 and so\n"
    "on:\n"
    "  cat run.raw | veldrane-polarize process - -o - --pixel-format Mono12p --width 2448 \\\n"
    "      --height 2048 --layout 90,45,135,0 --planes dolp > dolp.raw";

Plane_set planes_of(std::string const& list) {
    try {
        return polarization::parse_planes(lower_case(list));
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("--planes: ") + error.what());
    }
}

void refuse_unfit_format(Results const& results) {
    if (results.format == File_format::png && results.are_stacked) {
        throw Usage_error(
            "--format png holds one frame a file; use --format npy, tiff or raw with --stack");
    }
    for (Plane const plane : results.processing.planes.list()) {
        if (results.format == File_format::png &&
            results.processing.kind_of(plane) != polarization::Element_type::uint16 &&
            results.processing.kind_of(plane) != polarization::Element_type::uint8) {
            throw Usage_error(
                "--format png holds numbers of 8 and 16 bits only, and " +
                std::string(name_of(plane)) +
                " is none here; use --format tiff or npy, or other --planes");
        }
    }
}

void check_usage(Command_line const& line) {
    if (line.calibration_file.empty()) {
        static_cast<void>(line.mosaic.required());
    } else if (line.mode == Mode::fast) {
        throw Usage_error(
            "--mode fast applies weights to few pixels only; leave out --calibration or --mode");
    }
    static_cast<void>(line.mosaic.given());
    if (line.zero_direction && line.calibration_file.empty() && line.mode != Mode::calibrated) {
        throw Usage_error(
            "--zero-direction turns weights, which fast mode applies to few pixels only; add "
            "--mode calibrated or --calibration, or leave it out");
    }
}

// Options that would change nothing: whoever gives one expects something of it.
void refuse_options_without_effect(Command_line const& line, CLI::App const& command) {
    Plane_set const planes = planes_of(line.planes);
    auto const refuse = [&line](std::string const& option, std::string const& needed) {
        throw Usage_error(
            option + " is about " + needed + ", but --planes is " + line.planes +
            "; add one or leave " + option + " out");
    };
    bool const has_integers = std::ranges::any_of(planes.list(), [](Plane plane) {
        return description_of(plane).element == polarization::Element_type::uint16;
    });
    if (command.count("--pictures") > 0 && line.wants_pictures && !planes.contains(Plane::dolp)) {
        refuse("--pictures", "dolp, alone or with azimuth");
    }
    if (line.is_signed && !planes.contains(Plane::s1) && !planes.contains(Plane::s2)) {
        refuse("--signed", "s1 and s2");
    }
    if (line.units != Units::scaled && !has_integers) {
        refuse("--units", "s0, s1, s2, azimuth and dolp");
    }
    if (line.full_scale && !has_integers) {
        refuse("--full-scale", "s0, s1, s2, azimuth and dolp");
    }
    if (line.read_noise && !line.electrons_per_count) {
        throw Usage_error(
            "--read-noise is in electrons, but --electrons-per-count is not given; add it");
    }
    bool const has_angles = planes.contains(Plane::s1) || planes.contains(Plane::s2) ||
                            planes.contains(Plane::azimuth) ||
                            planes.contains(Plane::normalized_stokes);
    if (line.zero_direction && !has_angles) {
        refuse("--zero-direction", "s1, s2, azimuth and normalized_stokes");
    }
    if (line.repetitions > 1 && line.run.jobs > 1) {
        throw Usage_error(
            "--repeat measures one frame at a time, but --jobs is " +
            std::to_string(line.run.jobs) + "; leave one of them out");
    }
}

// Of the command line, else of the calibration.
std::optional<polarization::Noise_model> noise_of(
    Command_line const& line, std::optional<polarization::Calibration> const& calibration) {
    if (!line.electrons_per_count) {
        return calibration ? calibration->noise : std::nullopt;
    }
    return polarization::Noise_model{*line.electrons_per_count, line.read_noise.value_or(0.0)};
}

// What cannot be where frames come from a pipe or planes go into one.
void check_pipes(Command_line const& line, CLI::App const& command) {
    line.run.input.check_standard_input();
    if (line.run.input.reads_standard_input() && line.run.passes_over_done) {
        throw Usage_error("--skip-existing passes over frames, but those of standard input have to "
                          "be read; leave "
                          "it out, or choose frames with --start");
    }
    if (line.run.input.reads_standard_input() && line.results.are_stacked) {
        throw Usage_error(
            "--stack takes its room before the first frame, but how many frames standard input "
            "has, shows at its end; leave it out, or save the stream to a file");
    }
    if (!line.results.are_piped()) {
        return;
    }
    if (command.count("--format") > 0 && line.results.format != File_format::raw) {
        throw Usage_error(
            "--format is " + std::string(ending_of(line.results.format)) +
            ", but -o - writes bare numbers; give raw, or leave it out");
    }
    for (auto const& [option, is_given] :
         {std::pair("--overwrite", line.overwrites),
          std::pair("--skip-existing", line.run.passes_over_done),
          std::pair("--stack", line.results.are_stacked),
          std::pair("--pictures", command.count("--pictures") > 0 && line.wants_pictures)}) {
        if (is_given) {
            throw Usage_error(
                std::string(option) + " is about files, but -o - makes none; leave it out");
        }
    }
    if (isatty(STDOUT_FILENO) != 0) {
        throw Usage_error(
            "-o - writes numbers to standard output, which is a terminal; pipe it into a program "
            "or redirect it to a file");
    }
}

int run_process(Command_line& line, CLI::App const& command) {
    check_pipes(line, command);
    std::optional<Raw_layout> const raw = line.run.input.raw_layout();
    check_usage(line);
    refuse_options_without_effect(line, command);
    Plane_set const planes = planes_of(line.planes);
    check(polarization::processor_features());
    Frame_preparation const preparation(line.samples, raw);
    auto [settings, calibration] = transform_settings(
        line.mosaic, line.calibration_file, line.full_scale, preparation,
        line.zero_direction.value_or(0));
    settings.noise = noise_of(line, calibration);
    if (planes.contains(Plane::uncertainty) && !settings.noise) {
        throw Usage_error(
            "--planes has uncertainty, but no noise is known; give --electrons-per-count and "
            "--read-noise, or a calibration that measured them");
    }
    Results& results = line.results;
    results.processing = {
        settings,
        line.mode.value_or(calibration ? Mode::calibrated : Mode::fast),
        planes,
        line.is_signed,
        line.units,
        line.repetitions,
        line.zero_direction.value_or(0)};
    results.origin = {
        line.samples.shift,
        preparation.dark_files(),
        preparation.region(),
        line.calibration_file,
        calibration,
        calibration ? polarization::hash_of_maps(*calibration) : std::string(),
        raw};
    // Of a frame that is not done, what is there is a part of it.
    results.existing = line.overwrites || line.run.passes_over_done ? Existing_files::replace
                                                                    : Existing_files::keep;
    if (command.count("--pictures") > 0) {
        results.pictures.are_wanted = line.wants_pictures;
    }
    results.pictures.are_masked = line.is_masked;
    refuse_unfit_format(results);
    if (line.repetitions > 1) {
        line.run.jobs = 1; // another thread would disturb the times
    }
    return Process_run(line.run, preparation, results)();
}

void add_plane_options(CLI::App& command, Command_line& line) {
    std::string const group = "Planes";
    command.add_option("--planes", line.planes, planes_help)
        ->type_name("LIST")
        ->capture_default_str()
        ->group(group);
    command.add_option("--calibration", line.calibration_file, calibration_help)
        ->type_name("FILE.json")
        ->group(group);
    add_choice<Mode>(
        command, "--mode", line.mode, {{"fast", Mode::fast}, {"calibrated", Mode::calibrated}},
        mode_help)
        ->group(group);
    command
        .add_flag(
            "--signed", line.is_signed,
            "S1 and S2 with their signs, as 32-bit integers; otherwise negative ones are stored "
            "as 0")
        ->group(group);
    add_number(
        command, "--zero-direction", {-360.0, 360.0}, zero_direction_help,
        [&line](double degrees) { line.zero_direction = degrees; })
        ->default_str("0")
        ->group(group);
    add_choice<Units>(
        command, "--units", line.units,
        {{"scaled", Units::scaled}, {"degrees", Units::degrees}, {"radians", Units::radians}},
        units_help)
        ->group(group);
    add_whole_number(command, "--full-scale", line.full_scale, {1, 65535}, full_scale_help)
        ->group(group);
    add_number(
        command, "--electrons-per-count", {1e-3, 1e6}, electrons_help,
        [&line](double number) { line.electrons_per_count = number; })
        ->group(group);
    add_number(command, "--read-noise", {0, 1e6}, read_noise_help, [&line](double number) {
        line.read_noise = number;
    })->group(group);
}

void add_output_options(CLI::App& command, Command_line& line) {
    std::string const group = "Results";
    command.add_option("-o,--output", line.results.folder, output_help)
        ->required()
        ->type_name("DIR")
        ->group(group);
    add_choice<File_format>(
        command, "--format", line.results.format,
        {{"tiff", File_format::tiff},
         {"png", File_format::png},
         {"raw", File_format::raw},
         {"npy", File_format::npy}},
        "tiff (uncompressed), png (8- and 16-bit planes only), npy (NumPy), or raw: the numbers "
        "alone")
        ->group(group);
    command.add_flag("--pictures,!--no-pictures", line.wants_pictures, pictures_help)->group(group);
    command.add_flag("--mask,!--no-mask", line.is_masked, mask_help)->group(group);
    CLI::Option* const overwrite =
        command.add_flag("--overwrite", line.overwrites, "Replace results that are there")
            ->group(group);
    command.add_flag("--stack", line.results.are_stacked, stack_help)->group(group);
    command.add_flag("--skip-existing,--resume", line.run.passes_over_done, resume_help)
        ->excludes(overwrite)
        ->group(group);
    add_whole_number(command, "-j,--jobs", line.run.jobs, {0, 1024}, jobs_help)
        ->default_str("0")
        ->group(group);
    add_whole_number(
        command, "--repeat", line.repetitions, {1, 100000},
        "Run the transform so many times, 1 to 100000, and print the best and median time")
        ->default_str("1")
        ->group(group);
    command.add_flag("-q,--quiet", line.run.is_quiet, "Say nothing but what went wrong")
        ->group(group);
}

} // namespace

void add_process_command(CLI::App& program, int& exit_code) {
    auto const line = std::make_shared<Command_line>();
    CLI::App& command = *program.add_subcommand(
        "process", "Computes the polarimetric planes of raw frames and writes them to files.");
    add_input_options(command, line->run.input);
    add_sample_options(command, line->samples);
    add_mosaic_options(command, line->mosaic);
    add_plane_options(command, *line);
    add_output_options(command, *line);
    command.footer(example);
    command.callback([line, &command, &exit_code] { exit_code = run_process(*line, command); });
}

} // namespace polarize_tool
