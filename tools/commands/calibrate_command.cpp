#include "commands/calibration_messages.hpp"
#include "commands/commands.hpp"
#include "input/angle_list.hpp"
#include "input/frame_preparation.hpp"
#include "input/input_files.hpp"
#include "input/option_values.hpp"
#include "output/calibration_plot.hpp"
#include "output/calibration_table.hpp"
#include "output/image_writing.hpp"
#include "output/staged_files.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/progress.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_estimate.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

struct Command_line {
    Input_options input;
    Sample_options samples;
    Mosaic_options mosaic;
    fs::path angles;
    fs::path output;
    fs::path plot;
    std::string sensor;
    double source_degree = 1.0;
    bool overwrites = false;
    bool is_quiet = false;
};

constexpr char const* example =
    "Example:\n"
    "  veldrane-polarize calibrate 'series/*.png' -o sensor.json --phase 2 --bit-depth 12 \\\n"
    "      --angles series/cal_angles.csv\n"
    "Without --angles the angle is the number behind `angle_` in the name, as in\n"
    "cal_angle_045.0.png. `simulate --polarizer-series` makes such frames.";

constexpr char const* angles_help =
    "Table of the polariser's angles in degrees, counted as those of the mosaic: a line "
    "`file,angle`, then a line for each frame. Further columns may be `intensity`, the light "
    "relative to other frames, and `frame`, the number in a file of many. Text in UTF-8, as "
    "spreadsheets save CSV: columns may be separated by semicolons or tabs instead, and numbers "
    "may then have a decimal comma; each file is named once";

// Where the frames are measured: dark levels may change towards the borders.
std::array<double, 4> dark_levels(
    polarization::Dark_frame const& dark, std::optional<polarization::Region> const& region) {
    // Written without sums, which could wrap.
    bool const fits = region && region->height >= 2 && region->width >= 2 && dark.height() >= 2 &&
                      region->row <= dark.height() - 2 && dark.width() >= 2 &&
                      region->column <= dark.width() - 2;
    if (!fits) {
        return dark.means(); // a region that fits no frame is refused when the first is measured
    }
    std::size_t const end_row = region->row + std::min(region->height, dark.height() - region->row);
    std::size_t const end_column =
        region->column + std::min(region->width, dark.width() - region->column);
    std::array<double, 4> sums{};
    std::array<double, 4> counts{};
    for (std::size_t row = region->row; row < end_row; ++row) {
        for (std::size_t column = region->column; column < end_column; ++column) {
            std::size_t const position = polarization::cell_position(row, column);
            sums[position] += dark.levels()[row * dark.width() + column];
            counts[position] += 1.0;
        }
    }
    for (std::size_t position = 0; position < sums.size(); ++position) {
        sums[position] /= counts[position];
    }
    return sums;
}

polarization::Estimation_options estimation_of(
    Command_line const& line, Frame_preparation const& preparation) {
    polarization::Estimation_options options;
    options.bit_depth = preparation.bit_depth();
    options.source_degree = line.source_degree;
    options.sensor = line.sensor;
    options.region = line.samples.region();
    if (auto const& dark = preparation.dark()) {
        options.dark_levels = dark_levels(*dark, line.samples.region());
    }
    return options;
}

/// Reads the frames of a series one by one.
class Measurement {
public:
    Measurement(
        Command_line const& line, std::vector<Frame_place> const& places,
        Frame_preparation const& preparation, polarization::Estimation_options const& options)
        : source_{places, line.input.raw_layout()}, preparation_{preparation}, options_{options} {}

    polarization::Series_point operator()(std::size_t number, Polariser_setting const& setting) {
        source_.read(number, slot_);
        Frame& frame = slot_.frame();
        std::string const name = slot_.place().name();
        // The dark level is taken off the means: saturation shows only while it is in the samples.
        Sample_warnings const warnings = preparation_.apply(frame, name, Dark_level::kept);
        if (!warnings.dark.empty() && !std::exchange(has_warned_of_dark_, true)) {
            warn(warnings.dark);
        }
        return polarization::measure(
            {frame.view(), setting.angle, setting.intensity, utf8(name)}, options_);
    }

private:
    Frame_list source_;
    Frame_slot slot_;
    Frame_preparation const& preparation_;
    polarization::Estimation_options const& options_;
    bool has_warned_of_dark_ = false;
};

/// Every frame that cannot be used is named, and then there is no calibration: one that silently
/// left out frames would not be what was asked for.
std::vector<polarization::Series_point> measure_all(
    Command_line const& line, std::vector<Frame_place> const& places,
    Frame_preparation const& preparation, polarization::Estimation_options const& options) {
    std::vector<Polariser_setting> const settings = line.angles.empty()
                                                        ? settings_from_names(places)
                                                        : settings_from_table(line.angles, places);
    Measurement measure(line, places, preparation, options);
    std::vector<polarization::Series_point> series;
    Frame_failures failures;
    {
        Progress progress(places.size(), !line.is_quiet);
        for (std::size_t number = 0; number < places.size(); ++number) {
            throw_if_interrupted();
            Frame_place const& place = places[number];
            std::string const name = place.name() + ": ";
            try {
                series.push_back(measure(number, settings[number]));
                progress.add(series.back().size.width * series.back().size.height);
            } catch (polarization::Argument_error const& error) {
                bool const names_it = error.argument().find(place.name()) != std::string::npos;
                failures.add(place, (names_it ? "" : name) + error.what(), error.remedy());
            } catch (File_failure const& failure) {
                std::string const message = failure.what();
                failures.add(
                    place, message,
                    message.starts_with(name) ? message.substr(name.size()) : message);
            } catch (std::exception const& error) {
                failures.add(place, name + reason_of(error), reason_of(error));
            }
        }
    }
    for (std::string const& failure : failures.lines()) {
        complain(failure);
    }
    if (failures.count() > 0) {
        throw File_failure(
            line.output, "not written, since " + std::to_string(failures.count()) + " of " +
                             std::to_string(places.size()) +
                             " frames cannot be used; correct or leave them out");
    }
    return series;
}

// --overwrite means an older calibration and its plot, whose name the user may not even have given.
void refuse_lost_files(
    Command_line const& line, std::vector<Frame_place> const& frames,
    Frame_preparation const& preparation) {
    std::error_code ignored;
    if (fs::weakly_canonical(line.plot, ignored) == fs::weakly_canonical(line.output, ignored)) {
        throw Usage_error(
            "--plot and --output are both " + line.output.string() +
            "; give the calibration a name that ends in .json, or choose another --plot");
    }
    Input_files inputs(frames, preparation);
    inputs.add(line.angles);
    inputs.refuse(line.output, "--output");
    inputs.refuse(line.plot, "--plot");
}

void run_calibrate(Command_line& line) {
    if (!is_utf8(line.sensor)) {
        throw Usage_error(
            "--sensor is " + line.sensor + ", which is not UTF-8; give a name in UTF-8");
    }
    auto const raw = line.input.raw_layout();
    polarization::Mosaic const mosaic = line.mosaic.required();
    // The whole frame is kept, since the mosaic is that of the whole frame.
    Sample_options uncut = line.samples;
    uncut.region_text.clear();
    Frame_preparation const preparation(uncut, raw);
    polarization::Estimation_options const options = estimation_of(line, preparation);
    if (line.plot.empty()) {
        line.plot = line.output;
        line.plot.replace_extension(".png");
    }
    Found_frames const found = look_for_frames(line.input.inputs, raw, line.input.selection);
    require_frames(found);
    refuse_lost_files(line, found.frames, preparation);
    Made_folder const folder(line.output.parent_path());
    Existing_files const existing =
        line.overwrites ? Existing_files::replace : Existing_files::keep;
    Staged_files files(existing);
    files.add(line.output, std::string()); // found out now if it cannot be written
    refuse_existing(line.plot, existing);
    if (found.failures.size() == 1) {
        throw std::runtime_error(
            found.failures.front() + " (" + line.output.string() + " is not written)");
    }
    if (!found.failures.empty()) {
        for (std::string const& failure : found.failures) {
            complain(failure);
        }
        throw File_failure(line.output, "not written, since some inputs hold no frame");
    }
    auto const series = measure_all(line, found.frames, preparation, options);
    polarization::Calibration const calibration =
        polarization::estimate_calibration(series, mosaic, options);
    std::string const json = polarization::calibration_to_json(calibration);
    files.append({reinterpret_cast<std::uint8_t const*>(json.data()), json.size()});
    cv::Mat const plot = calibration_plot(calibration, series, line.source_degree);
    files.add(line.plot, marked_as_plot(encode_png(plot)));
    throw_if_interrupted();
    files.publish();
    for (std::string const& warning : quality_warnings(calibration)) {
        warn(warning);
    }
    if (!line.is_quiet) {
        say_lines(calibration_table(calibration));
        say("wrote " + line.output.string() + " " + line.plot.string());
    }
}

} // namespace

void add_calibrate_command(CLI::App& program, int& /*exit_code*/) {
    auto const line = std::make_shared<Command_line>();
    CLI::App& command = *program.add_subcommand(
        "calibrate",
        "Measures a sensor's analysers from frames of a uniform source behind a linear polariser "
        "at known angles.");
    add_input_options(command, line->input);
    add_sample_options(command, line->samples);
    add_mosaic_options(command, line->mosaic);
    command.add_option("-o,--output", line->output, "The calibration")
        ->required()
        ->type_name("FILE.json");
    command.add_option("--angles", line->angles, angles_help)->type_name("TABLE.csv");
    command
        .add_option(
            "--plot", line->plot,
            "Picture of measured and fitted means; without this option beside the calibration, "
            "ending in .png")
        ->type_name("FILE.png");
    command.add_option("--sensor", line->sensor, "Name of the sensor, for the file")
        ->type_name("NAME");
    add_number(
        command, "--source-degree", {0.01, 1.0},
        "Degree of polarisation of the light behind the polariser",
        [line](double degree) { line->source_degree = degree; })
        ->default_str("1");
    command.add_flag("--overwrite", line->overwrites, "Replace files that are there");
    command.add_flag("-q,--quiet", line->is_quiet, "Say nothing but what went wrong");
    command.footer(example);
    command.callback([line] { run_calibrate(*line); });
}

} // namespace polarize_tool
