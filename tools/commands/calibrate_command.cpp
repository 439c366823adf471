#include "commands/calibrate_run.hpp"
#include "commands/commands.hpp"
#include "input/option_values.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

constexpr char const* example =
    "Example:\n"
    "  veldrane-polarize calibrate 'series/*.png' -o sensor.json --phase 2 --bit-depth 12 \\\n"
    "      --angles series/cal_angles.csv\n"
    "Without --angles the angle is the number behind `angle_` in the name, as in\n"
    "cal_angle_045.0.png. `simulate --polarizer-series` makes such frames.\n"
    "  veldrane-polarize calibrate 'series/cal_angle_*.png' -o sensor.json --model pixel --phase 2 "
    "\\\n"
    "      --bit-depth 12 --dark 'series/cal_dark_*.png' --noise 'series/cal_flat_*.png'\n"
    "measures every pixel and how samples scatter.";

constexpr char const* angles_help =
    "Table of the polariser's angles in degrees, counted as those of the mosaic: a line "
    "`file,angle`, then a line for each frame. Further columns may be `intensity`, the light "
    "relative to other frames, and `frame`, the number in a file of many. Text in UTF-8, as "
    "spreadsheets save CSV: columns may be separated by semicolons or tabs instead, and numbers "
    "may then have a decimal comma; each file is named once";

void add_model_options(CLI::App& command, Calibrate_options& options) {
    std::vector<std::pair<std::string, polarization::Calibration_model>> models;
    for (polarization::Calibration_model const model : polarization::all_calibration_models) {
        models.emplace_back(name_of(model), model);
    }
    add_choice(
        command, "--model", options.model, models,
        "What is measured: the analysers of the four positions of the cell; with them dark level "
        "and gain of every pixel; or dark level and analyser of every pixel")
        ->default_str("position");
    std::string const group = "Models gain and pixel";
    command
        .add_option(
            "--bad-pixels", options.bad_pixels,
            "Pixels that tell nothing, a line `column,row` each, counted from 0 over the whole "
            "sensor. Others are found")
        ->type_name("LIST")
        ->group(group);
    command
        .add_option(
            "--hold-out", options.held_out,
            "The frame that the models are judged by before it is used as the others are: its "
            "number from 0 on, its name, or none; if not given, one in the middle of the angles")
        ->type_name("NAME|N|none")
        ->group(group);
    add_words(
        command, "--noise", options.flat_frames,
        "Pairs of frames of the same unpolarised light, two after another, at three levels or "
        "more, as frames, folders or patterns; may be given again. With --dark they tell electrons "
        "per count and read noise")
        ->type_name("FRAME");
}

} // namespace

void add_calibrate_command(CLI::App& program, int& /*exit_code*/) {
    auto const line = std::make_shared<Calibrate_options>();
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
    add_model_options(command, *line);
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
