#include "commands/plane_options.hpp"

#include "input/option_values.hpp"
#include "input/transform_settings.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <unistd.h>
#include <utility>

namespace polarize_tool {
namespace {

using polarization::Mode;
using polarization::Plane;
using polarization::Plane_set;

constexpr char const* planes_group = "Planes";

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

Plane_set planes_of(std::string const& list) {
    try {
        return polarization::parse_planes(lower_case(list));
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("--planes: ") + error.what());
    }
}

void refuse_unfit_format(Plane_options const& options) {
    Results const& results = options.results;
    Processing processing;
    processing.planes = planes_of(options.planes);
    processing.is_signed = options.is_signed;
    processing.units = options.units;
    if (results.format == File_format::png && results.are_stacked) {
        throw Usage_error(
            "--format png holds one frame a file; use --format npy, tiff or raw with --stack");
    }
    for (Plane const plane : processing.planes.list()) {
        if (results.format == File_format::png &&
            processing.kind_of(plane) != polarization::Element_type::uint16 &&
            processing.kind_of(plane) != polarization::Element_type::uint8) {
            throw Usage_error(
                "--format png holds numbers of 8 and 16 bits only, and " +
                std::string(name_of(plane)) +
                " is none here; use --format tiff or npy, or other --planes");
        }
    }
}

// Options that would change nothing: whoever gives one expects something of it.
void refuse_options_without_effect(Plane_options const& options, CLI::App const& command) {
    Plane_set const planes = planes_of(options.planes);
    auto const refuse = [&options](std::string const& option, std::string const& needed) {
        throw Usage_error(
            option + " is about " + needed + ", but --planes is " + options.planes +
            "; add one or leave " + option + " out");
    };
    bool const has_integers = std::ranges::any_of(planes.list(), [](Plane plane) {
        return description_of(plane).element == polarization::Element_type::uint16;
    });
    if (command.count("--pictures") > 0 && options.wants_pictures &&
        !planes.contains(Plane::dolp)) {
        refuse("--pictures", "dolp, alone or with azimuth");
    }
    if (options.is_signed && !planes.contains(Plane::s1) && !planes.contains(Plane::s2)) {
        refuse("--signed", "s1 and s2");
    }
    if (options.units != Units::scaled && !has_integers) {
        refuse("--units", "s0, s1, s2, azimuth and dolp");
    }
    if (options.full_scale && !has_integers) {
        refuse("--full-scale", "s0, s1, s2, azimuth and dolp");
    }
    bool const has_angles = planes.contains(Plane::s1) || planes.contains(Plane::s2) ||
                            planes.contains(Plane::azimuth) ||
                            planes.contains(Plane::normalized_stokes);
    if (options.zero_direction && !has_angles) {
        refuse("--zero-direction", "s1, s2, azimuth and normalized_stokes");
    }
}

} // namespace

std::optional<polarization::Noise_model> noise_of(
    Plane_options const& options, std::optional<polarization::Calibration> const& calibration) {
    if (!options.electrons_per_count) {
        return calibration ? calibration->noise : std::nullopt;
    }
    return polarization::Noise_model{
        *options.electrons_per_count, options.read_noise.value_or(0.0)};
}

void check_weights(Plane_options const& options) {
    if (options.calibration_file.empty()) {
        static_cast<void>(options.mosaic.required());
    } else if (options.mode == Mode::fast) {
        throw Usage_error(
            "--mode fast applies weights to few pixels only; leave out --calibration or --mode");
    }
    static_cast<void>(options.mosaic.given());
    if (options.zero_direction && options.calibration_file.empty() &&
        options.mode != Mode::calibrated) {
        throw Usage_error(
            "--zero-direction turns weights, which fast mode applies to few pixels only; add "
            "--mode calibrated or --calibration, or leave it out");
    }
    if (options.read_noise && !options.electrons_per_count) {
        throw Usage_error(
            "--read-noise is in electrons, but --electrons-per-count is not given; add it");
    }
}

void check_planes(Plane_options const& options, CLI::App const& command) {
    check_weights(options);
    refuse_options_without_effect(options, command);
    refuse_unfit_format(options);
}

void check_piped_planes(Plane_options const& options, CLI::App const& command) {
    if (!options.results.are_piped()) {
        return;
    }
    if (command.count("--format") > 0 && options.results.format != File_format::raw) {
        throw Usage_error(
            "--format is " + std::string(ending_of(options.results.format)) +
            ", but -o - writes bare numbers; give raw, or leave it out");
    }
    for (auto const& [option, is_given] :
         {std::pair("--overwrite", options.overwrites),
          std::pair("--stack", options.results.are_stacked),
          std::pair("--pictures", command.count("--pictures") > 0 && options.wants_pictures)}) {
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

void settle_results(
    Plane_options& options, CLI::App const& command, Frame_preparation const& preparation,
    std::optional<Raw_layout> const& raw) {
    Plane_set const planes = planes_of(options.planes);
    auto [settings, calibration] = transform_settings(
        options.mosaic, options.calibration_file, options.full_scale, preparation,
        options.zero_direction.value_or(0));
    settings.noise = noise_of(options, calibration);
    if (planes.contains(Plane::uncertainty) && !settings.noise) {
        throw Usage_error(
            "--planes has uncertainty, but no noise is known; give --electrons-per-count and "
            "--read-noise, or a calibration that measured them");
    }
    Results& results = options.results;
    results.processing = {
        .settings = settings,
        .mode = options.mode.value_or(calibration ? Mode::calibrated : Mode::fast),
        .planes = planes,
        .is_signed = options.is_signed,
        .units = options.units,
        .zero_direction = options.zero_direction.value_or(0)};
    results.origin = {
        options.samples.shift,
        preparation.dark_files(),
        preparation.region_on_sensor(),
        options.calibration_file,
        calibration,
        calibration ? polarization::hash_of_maps(*calibration) : std::string(),
        raw};
    results.existing = options.overwrites ? Existing_files::replace : Existing_files::keep;
    if (command.count("--pictures") > 0) {
        results.pictures.are_wanted = options.wants_pictures;
    }
    results.pictures.are_masked = options.is_masked;
}

void add_weight_options(CLI::App& command, Plane_options& options) {
    command.add_option("--calibration", options.calibration_file, calibration_help)
        ->type_name("FILE.json")
        ->group(planes_group);
    add_choice<Mode>(
        command, "--mode", options.mode, {{"fast", Mode::fast}, {"calibrated", Mode::calibrated}},
        mode_help)
        ->group(planes_group);
    add_number(
        command, "--zero-direction", {-360.0, 360.0}, zero_direction_help,
        [&options](double degrees) { options.zero_direction = degrees; })
        ->default_str("0")
        ->group(planes_group);
    add_number(
        command, "--electrons-per-count", {1e-3, 1e6}, electrons_help,
        [&options](double number) { options.electrons_per_count = number; })
        ->group(planes_group);
    add_number(command, "--read-noise", {0, 1e6}, read_noise_help, [&options](double number) {
        options.read_noise = number;
    })->group(planes_group);
}

void add_plane_options(CLI::App& command, Plane_options& options) {
    command.add_option("--planes", options.planes, planes_help)
        ->type_name("LIST")
        ->capture_default_str()
        ->group(planes_group);
    add_weight_options(command, options);
    command
        .add_flag(
            "--signed", options.is_signed,
            "S1 and S2 with their signs, as 32-bit integers; otherwise negative ones are stored "
            "as 0")
        ->group(planes_group);
    add_choice<Units>(
        command, "--units", options.units,
        {{"scaled", Units::scaled}, {"degrees", Units::degrees}, {"radians", Units::radians}},
        units_help)
        ->group(planes_group);
    add_whole_number(command, "--full-scale", options.full_scale, {1, 65535}, full_scale_help)
        ->group(planes_group);
}

void add_result_options(
    CLI::App& command, Plane_options& options, std::string const& output_help,
    std::string const& stack_help) {
    std::string const group = "Results";
    command.add_option("-o,--output", options.results.folder, output_help)
        ->type_name("DIR")
        ->group(group);
    add_choice<File_format>(
        command, "--format", options.results.format,
        {{"tiff", File_format::tiff},
         {"png", File_format::png},
         {"raw", File_format::raw},
         {"npy", File_format::npy}},
        "tiff (uncompressed), png (8- and 16-bit planes only), npy (NumPy), or raw: the numbers "
        "alone")
        ->group(group);
    command.add_flag("--pictures,!--no-pictures", options.wants_pictures, pictures_help)
        ->group(group);
    command.add_flag("--mask,!--no-mask", options.is_masked, mask_help)->group(group);
    command.add_flag("--overwrite", options.overwrites, "Replace results that are there")
        ->group(group);
    command.add_flag("--stack", options.results.are_stacked, stack_help)->group(group);
}

} // namespace polarize_tool
