#include "commands/commands.hpp"
#include "input/frame_preparation.hpp"
#include "input/input_files.hpp"
#include "input/option_values.hpp"
#include "input/recorded_settings.hpp"
#include "input/settings_rows.hpp"
#include "input/transform_settings.hpp"
#include "output/processing.hpp"
#include "output/staged_files.hpp"
#include "report/report_page.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/build_identification.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
using polarization::Mode;
using polarization::Plane;

struct Command_line {
    Input_options input;
    Sample_options samples;
    Mosaic_options mosaic;
    fs::path file;
    fs::path calibration_file;
    std::optional<unsigned> full_scale;
    bool overwrites = false;
    bool is_masked = true;
};

constexpr char const* example =
    "Example:\n"
    "  veldrane-polarize report frame.png -o report.html --phase 2 --bit-depth 12\n"
    "The page needs nothing but a browser. It holds the values of every pixel; they show under\n"
    "the pointer, and report.html#pixel=ROW,COLUMN opens with those of one pixel. Of a file or "
    "folder\n"
    "with several frames it shows the first, or the one that --start tells.";

Frame_place place_of(Command_line const& line) {
    if (line.input.inputs.size() != 1) {
        throw Usage_error(
            "a report shows one frame, but " + std::to_string(line.input.inputs.size()) +
            " inputs are given, the second " + line.input.inputs[1] + "; make one report for each");
    }
    Frame_selection selection = line.input.selection;
    selection.stop = selection.start + 1;
    Found_frames const found =
        look_for_frames(line.input.inputs, line.input.raw_layout(), selection);
    if (!found.failures.empty()) {
        throw std::runtime_error(found.failures.front());
    }
    if (found.frames.empty()) {
        throw Usage_error(
            line.input.inputs.front() + ": has no frame number " + std::to_string(selection.start) +
            "; give a smaller --start");
    }
    return found.frames.front();
}

void check_size(Frame const& frame, std::string const& name) {
    if (frame.samples.size() > most_report_pixels) {
        throw File_failure(
            name, to_string(frame.size()) +
                      " pixels are too many for a page that holds every value; at most " +
                      std::to_string(most_report_pixels) +
                      " are possible, so choose a part with --region");
    }
}

// A sample that has lost its dark level does not show any more that it was saturated.
polarization::Inspection inspected(
    Frame frame, std::string const& name, Frame_preparation const& preparation) {
    Sample_warnings const warnings = preparation.apply(frame, name, Dark_level::kept);
    check_size(frame, name);
    for (std::string const& warning : {warnings.depth, warnings.dark}) {
        if (!warning.empty()) {
            warn(warning);
        }
    }
    try {
        return polarization::inspect(frame.view(), preparation.bit_depth(), report_histogram_steps);
    } catch (polarization::Argument_error const& error) {
        throw File_failure(name, error.what());
    }
}

Rows rows_of_report(
    Command_line const& line, Frame_place const& place, Frame_preparation const& preparation,
    Transform_settings const& transform, polarization::Mode mode) {
    Rows rows{{"Frame", place.name()}};
    for (auto& row : settings_rows(
             preparation, transform, mode, line.calibration_file,
             "subtracted for the planes; the samples are counted as they were")) {
        rows.push_back(std::move(row));
    }
    rows.emplace_back("Software", polarization::processor_identification());
    rows.emplace_back("Made", polarization::current_time());
    return rows;
}

int run_report(Command_line& line) {
    take_from_recordings(line.input, line.samples, line.mosaic);
    if (line.calibration_file.empty()) {
        line.mosaic.required();
    }
    check(polarization::processor_features());
    Frame_preparation const preparation(line.samples, line.input.raw_layout());
    Transform_settings const transform =
        transform_settings(line.mosaic, line.calibration_file, line.full_scale, preparation);
    auto const& [settings, calibration] = transform;
    Processing const processing{
        .settings = settings,
        .mode = calibration ? Mode::calibrated : Mode::fast,
        .planes = {Plane::s0, Plane::azimuth, Plane::dolp}};
    Frame_place const place = place_of(line);
    Input_files inputs({place}, preparation);
    inputs.add(line.calibration_file);
    inputs.refuse(line.file, "--output");
    refuse_existing(line.file, line.overwrites ? Existing_files::replace : Existing_files::keep);
    Made_folder const folder(line.file.parent_path());
    Frame_slot slot;
    Frame_list({place}, line.input.raw_layout()).read(0, slot);
    Frame& frame = slot.frame();
    if (calibration) {
        check_sensor(
            frame.size(), place.name(), *calibration, line.calibration_file,
            preparation.region().has_value());
    }
    polarization::Inspection const inspection = inspected(frame, place.name(), preparation);
    std::vector<std::uint8_t> saturated;
    preparation.apply(frame, place.name(), Dark_level::subtracted, &saturated);
    Frame_processor processor(processing);
    try {
        processor.run(frame, saturated);
    } catch (polarization::Argument_error const& error) {
        throw File_failure(place.name(), error.what());
    }
    throw_if_interrupted();
    std::string const page = report_page(
        {.name = place.is_part() ? place.stem() : place.file.filename().string(),
         .planes =
             {processor.stored(Plane::s0), processor.stored(Plane::azimuth),
              processor.stored(Plane::dolp), frame.width, frame.height,
              processing.settings.scale.full_scale(),
              line.is_masked ? processor.validity(frame, saturated)
                             : std::span<std::uint8_t const>()},
         .mosaic = processing.settings.mosaic,
         .scale = processing.settings.scale,
         .mode = processing.mode,
         .inspection = inspection,
         .settings = rows_of_report(line, place, preparation, transform, processing.mode),
         .generator = "veldrane-polarize " + std::string(polarization::software_version())});
    Staged_files files(line.overwrites ? Existing_files::replace : Existing_files::keep);
    files.add(line.file, page);
    throw_if_interrupted();
    files.publish();
    char megabytes[32];
    std::snprintf(megabytes, sizeof megabytes, "%.1f MB", static_cast<double>(page.size()) / 1e6);
    say(place.name() + ": wrote " + line.file.string() + ", " + megabytes);
    return all_done;
}

} // namespace

void add_report_command(CLI::App& program, int& exit_code) {
    auto const line = std::make_shared<Command_line>();
    CLI::App& command = *program.add_subcommand(
        "report",
        "Makes one HTML page of a frame, with pictures, figures and every pixel's values.");
    add_input_options(command, line->input, Frame_choice::one);
    add_sample_options(command, line->samples);
    add_mosaic_options(command, line->mosaic);
    command
        .add_option(
            "--calibration", line->calibration_file,
            "Calibration of this sensor, as `calibrate` writes it; it also tells the mosaic")
        ->type_name("FILE.json");
    add_whole_number(
        command, "--full-scale", line->full_scale, {1, 65535},
        "Full scale of the planes in the page, as for `process`; 65535 without this option");
    command.add_option("-o,--output", line->file, "The page")->required()->type_name("PAGE.html");
    command.add_flag(
        "--mask,!--no-mask", line->is_masked,
        "Grey in the pictures where a pixel is not valid: saturated, and below dark, bad or weak "
        "as "
        "far as the calibration tells; or colours everywhere");
    command.add_flag("--overwrite", line->overwrites, "Replace a page that is there");
    command.footer(example);
    command.callback([line, &exit_code] { exit_code = run_report(*line); });
}

} // namespace polarize_tool
