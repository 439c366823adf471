#include "commands/camera_options.hpp"
#include "commands/commands.hpp"
#include "commands/view_run.hpp"
#include "input/recorded_settings.hpp"
#include "terminal/failure.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

constexpr char const* camera_help =
    "Show what this camera sends, by its id as live --list shows it or by its address in the "
    "network; without ID the only one that there is";

constexpr char const* region_help =
    "Show this part of each frame; of a camera, have it send no more. The mosaic is given for the "
    "whole frame or sensor: an odd COLUMN or ROW is taken care of";

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize view run.raw --layout 90,45,135,0\n"
    "  veldrane-polarize view frames --phase 2 --bit-depth 12\n"
    "  veldrane-polarize view --camera --layout 90,45,135,0 --exposure 5000\n"
    "One line on standard output is the address of the page; open it in a browser on this "
    "machine.\n"
    "What stands behind # in it lets whoever has it see the frames, as long as the program runs:\n"
    "Ctrl-C ends it. For a browser on another machine, or a phone, give a --port and tunnel it:\n"
    "  ssh -t -L 8080:127.0.0.1:8080 HOST veldrane-polarize view run.raw --layout 90,45,135,0 "
    "--port 8080";

/// Options that are about a camera, or about files, alone.
struct Sided_options {
    std::vector<CLI::Option*> camera;
    std::vector<char const*> files = {"--width", "--height", "--header-bytes", "--stride",
                                      "--start", "--stop",   "--step"};
};

void check_source(View_line const& line, CLI::App const& command, Sided_options const& sided) {
    bool const has_files = !line.input.inputs.empty();
    if (line.shows_camera == has_files) {
        throw Usage_error(
            has_files ? "--camera is given, and " + line.input.inputs.front() +
                            " as well, but one page shows one of them; leave the other out"
                      : "neither FRAME nor --camera is given; name a frame, a folder or a "
                        "recording, or add --camera");
    }
    auto const refuse = [](std::string const& option, char const* about) {
        throw Usage_error(option + about + "; leave it out");
    };
    for (CLI::Option const* const option : sided.camera) {
        if (!line.shows_camera && option->count() > 0) {
            refuse(option->get_name(), " is about a camera, but --camera is not given");
        }
    }
    for (char const* const option : sided.files) {
        if (line.shows_camera && command.count(option) > 0) {
            refuse(option, " is about files, but --camera is given");
        }
    }
}

void check_and_run(View_line& line, CLI::App const& command, Sided_options const& sided) {
    line.shows_camera = command.count("--camera") > 0;
    check_source(line, command, sided);
    check_address(line.address);
    if (!line.shows_camera) {
        take_from_recordings(line.input, line.samples, line.mosaic);
    }
    check_weights(line);
    line.camera.region = line.samples.region();
    line.camera.pixel_format = line.shows_camera ? line.input.pixel_format : std::string();
    run_view(line);
}

} // namespace

void add_view_command(CLI::App& program, int&) {
    auto const line = std::make_shared<View_line>();
    CLI::App& command = *program.add_subcommand(
        "view", "Shows frames in a browser: of a camera while they arrive, of a recording, of a "
                "folder.");
    add_input_options(command, line->input);
    command.get_option("frames")->required(false);
    add_sample_options(command, line->samples, region_help);
    add_mosaic_options(command, line->mosaic);
    add_weight_options(command, *line);
    add_camera(command, line->camera.id)->description(camera_help)->expected(0, 1);
    Sided_options sided;
    sided.camera = add_camera_settings(command, line->camera);
    add_address_options(command, line->address);
    command.footer(example);
    command.callback([line, &command, sided] { check_and_run(*line, command, sided); });
}

} // namespace polarize_tool
