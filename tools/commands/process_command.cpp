#include "commands/commands.hpp"
#include "commands/plane_options.hpp"
#include "commands/process_run.hpp"
#include "input/option_values.hpp"
#include "input/recorded_settings.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

namespace polarize_tool {
namespace {

struct Command_line : Plane_options {
    Process_options run;
    unsigned repetitions = 1;
};

constexpr char const* output_help =
    "Folder of the results, made if missing. - writes the planes to standard output instead, as "
    "--format raw has them: frame after frame, in each the planes in the order of --planes above, "
    "row by row, the lower byte first; nothing stands between them. A frame that fails ends it. "
    "Lines about the run go to standard error";

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
    if (line.results.are_piped() && line.run.passes_over_done) {
        throw Usage_error("--skip-existing is about files, but -o - makes none; leave it out");
    }
    check_piped_planes(line, command);
}

int run_process(Command_line& line, CLI::App const& command) {
    check_pipes(line, command);
    take_from_recordings(line.run.input, line.samples, line.mosaic);
    std::optional<Raw_layout> const raw = line.run.input.raw_layout();
    check_planes(line, command);
    if (line.repetitions > 1 && line.run.jobs > 1) {
        throw Usage_error(
            "--repeat measures one frame at a time, but --jobs is " +
            std::to_string(line.run.jobs) + "; leave one of them out");
    }
    check(polarization::processor_features());
    Frame_preparation const preparation(line.samples, raw);
    settle_results(line, command, preparation, raw ? raw : line.run.input.recorded_layout);
    line.results.processing.repetitions = line.repetitions;
    if (line.run.passes_over_done) { // of a frame that is not done, what is there is a part of it
        line.results.existing = Existing_files::replace;
    }
    if (line.repetitions > 1) {
        line.run.jobs = 1; // another thread would disturb the times
    }
    return Process_run(line.run, preparation, line.results)();
}

void add_run_options(CLI::App& command, Command_line& line) {
    std::string const group = "Results";
    command.get_option("--output")->required();
    command.add_flag("--skip-existing,--resume", line.run.passes_over_done, resume_help)
        ->excludes(command.get_option("--overwrite"))
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
    add_result_options(command, *line, output_help, stack_help);
    add_run_options(command, *line);
    command.footer(example);
    command.callback([line, &command, &exit_code] { exit_code = run_process(*line, command); });
}

} // namespace polarize_tool
