#include "commands/camera_options.hpp"
#include "commands/commands.hpp"
#include "commands/live_checks.hpp"
#include "commands/live_run.hpp"
#include "commands/plane_options.hpp"
#include "input/option_values.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/camera.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

using polarization::Camera_description;
using polarization::Camera_source;
using polarization::Drop_policy;

struct Command_line : Plane_options {
    polarization::Camera_options camera;
    bool lists = false;
    std::filesystem::path record_file;
    unsigned jobs = 0;
    bool is_quiet = false;

    bool makes_planes() const { return !results.folder.empty(); }
};

constexpr char const* drop_help =
    "Which frame goes when one arrives and --waiting frames wait already: newest, that one; "
    "oldest, the one that waits longest; none, none, and a camera that goes on sending meanwhile "
    "loses frames instead. Those that go are counted";

constexpr char const* waiting_help =
    "Frames that may wait to be processed, 1 to 4096. Each takes memory as it arrives; the fewer, "
    "the younger is what is processed when the machine cannot keep up";

constexpr char const* seconds_help =
    "So long after the camera begins to send, the run ends, 0.001 to 1e9";

constexpr char const* record_help =
    "Record the raw frames, as they arrive: FILE holds the samples, FILE.json camera, settings, "
    "frame "
    "numbers and time stamps, and `process` takes FILE as it is. With -o, or alone: no planes are "
    "made then. Frames are recorded as they are taken for planes: where these are slow, what is "
    "dropped "
    "is missing here too";

constexpr char const* output_help =
    "Folder of the results, made if missing: live_000000_PLANE.tif and so on. - writes the planes "
    "to "
    "standard output instead, as --format raw has them: frame after frame, in each the planes in "
    "the "
    "order of --planes above, row by row, the lower byte first; nothing stands between them. Lines "
    "about the run go to standard error";

constexpr char const* stack_help =
    "One file a plane for all frames, DIR/live_PLANE.npy, .raw or .tif (a BigTIFF with a page a "
    "frame), and one DIR/live_stack.json. Its room is taken before the first frame, so --frames is "
    "needed; frames that do not come are zeros there, or NaN, and are listed as missing";

constexpr char const* jobs_help = "Frames worked on at once; 0 is one for each core. Twice as many "
                                  "lie in memory, besides those of "
                                  "--waiting";

constexpr char const* example =
    "Examples:\n"
    "  veldrane-polarize live --list\n"
    "  veldrane-polarize live --record run.raw --seconds 10 --layout 90,45,135,0\n"
    "  veldrane-polarize live -o results --layout 90,45,135,0 --planes azimuth,dolp \\\n"
    "      --pixel-format Mono12p --exposure 5000 --frames 100\n"
    "A line on a terminal tells frames, rate, latency (from a frame's arrival until its planes "
    "are\n"
    "where they go: the median of the last 4096 frames, and what 99 % of them do not exceed), and\n"
    "what was lost, incomplete or dropped; the last line tells of the whole run, but for the\n"
    "latency. Frames that are not complete are counted and go no further. Ctrl-C ends the run "
    "behind the frames that "
    "have\n"
    "arrived; a second one ends it at once.";

void refuse_options_without_planes(CLI::App const& command) {
    constexpr std::array about_planes = {
        "--planes",     "--calibration", "--mode",   "--signed", "--zero-direction",
        "--units",      "--full-scale",  "--dark",   "--shift",  "--electrons-per-count",
        "--read-noise", "--bit-depth",   "--format", "--stack",  "--pictures",
        "--mask",       "--jobs"};
    for (char const* const option : about_planes) {
        if (command.count(option) > 0) {
            throw Usage_error(
                std::string(option) +
                " is about planes, but without -o none are made; add -o DIR, or leave it out");
        }
    }
}

void check_line(Command_line& line, CLI::App const& command) {
    line.camera.region = line.samples.region();
    if (!line.makes_planes() && line.record_file.empty()) {
        throw Usage_error(
            "neither --output nor --record is given; give -o DIR for planes, --record FILE for the "
            "raw frames, or both");
    }
    if (line.record_file == "-") {
        throw Usage_error(
            "--record is -, but a recording is two files; give the name of one, or ./- for it");
    }
    if (!line.record_file.empty() && line.overwrites) {
        refuse_other_description(line.record_file);
    }
    if (!line.makes_planes()) {
        refuse_options_without_planes(command);
        static_cast<void>(line.mosaic.given());
        return;
    }
    if (line.results.are_stacked && !line.camera.live.frames) {
        throw Usage_error(
            "--stack takes its room before the first frame, but how many come is not said; give "
            "--frames N, or leave it out");
    }
    if (line.results.are_stacked && *line.camera.live.frames > most_stacked_frames) {
        throw Usage_error(
            "--frames is " + std::to_string(*line.camera.live.frames) +
            ", but a stack has at most " + std::to_string(most_stacked_frames) +
            "; give fewer, or several runs");
    }
    Plane_options piped = static_cast<Plane_options const&>(line);
    piped.overwrites = line.overwrites && line.record_file.empty(); // else it means the recording
    check_piped_planes(piped, command);
    check_planes(line, command);
}

std::string table_of(std::vector<Camera_description> const& cameras) {
    using Row = std::array<std::string, 5>;
    std::vector<Row> rows = {{"ID", "VENDOR", "MODEL", "SERIAL", "ADDRESS"}};
    for (Camera_description const& camera : cameras) {
        rows.push_back(
            {visible(camera.id), visible(camera.vendor), visible(camera.model),
             visible(camera.serial), visible(camera.address)});
    }
    std::array<std::size_t, 5> widths = {};
    for (Row const& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    std::string table;
    for (Row const& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        table += (table.empty() ? "" : "\n") + line;
    }
    return table;
}

int list(CLI::App const& command) {
    for (CLI::Option const* const option : command.get_options()) {
        if (option->count() > 0 && option->get_name() != "--list") {
            throw Usage_error(
                "--list shows the cameras that answer and does nothing else; leave " +
                option->get_name() + " out");
        }
    }
    auto const cameras = polarization::list_cameras();
    require_cameras(cameras);
    say_lines(table_of(cameras));
    return all_done;
}

// Where the first pixel of a frame lies on the sensor tells what mosaic a recording has.
std::optional<polarization::Mosaic> mosaic_of_frames(
    Command_line const& line, polarization::Region const& region) {
    if (line.makes_planes()) {
        return line.results.processing.settings.mosaic;
    }
    auto const given = line.mosaic.given();
    return given ? std::optional(given->of_region(region.row, region.column)) : std::nullopt;
}

polarization::Recording_description description_of(
    Command_line const& line, Camera_source const& camera) {
    auto const& settings = camera.settings();
    auto const& about = camera.description();
    polarization::Recording_description description;
    description.format = settings.pixel_format;
    description.size = settings.region.size();
    description.mosaic = mosaic_of_frames(line, settings.region);
    description.camera = {about.id, about.vendor, about.model, about.serial};
    description.settings = {
        settings.exposure_us, settings.gain, settings.frame_rate, settings.region};
    return description;
}

// What an earlier run left would fail every frame.
void refuse_earlier_results(Camera_source const& camera, Results const& results) {
    for (auto const& file : results.files_of(camera.place(0))) {
        refuse_existing(file, results.existing);
    }
}

int run_live_command(Command_line& line, CLI::App const& command) {
    if (line.lists) {
        return list(command);
    }
    check_line(line, command);
    check(polarization::processor_features());
    Live_statistics statistics(frames_in_flight(line.jobs), !line.is_quiet);
    line.camera.live.stop_requested = [&statistics] {
        statistics.refresh();
        return interruption_flag().load();
    };
    line.camera.sends_at_once = false; // first calibration and dark frames are read
    auto const camera = opened_camera(line.camera);
    Live_sinks sinks;
    std::optional<Frame_preparation> preparation;
    if (line.makes_planes()) {
        preparation.emplace(preparation_for(*camera, line.samples));
        settle_results(line, command, *preparation, camera->layout());
        check_sensor_of(*camera, line.results.origin.calibration, line.calibration_file);
        refuse_earlier_results(*camera, line.results);
        if (line.results.are_stacked) {
            check_room_of_stack(
                line.results, camera->settings().region.size(), *line.camera.live.frames);
        }
        if (!line.record_file.empty()) {
            refuse_lost_inputs(line.record_file, line.calibration_file, *preparation);
        }
        sinks.results = &line.results;
        sinks.preparation = &*preparation;
    }
    std::optional<polarization::Recording_writer> recording;
    if (!line.record_file.empty()) {
        recording.emplace(
            line.record_file, description_of(line, *camera),
            line.overwrites ? Existing_files::replace : Existing_files::keep);
        sinks.recording = &*recording;
    }
    sinks.frames = line.camera.live.frames;
    sinks.seconds = line.camera.live.seconds;
    sinks.drop = line.camera.live.drop;
    sinks.jobs = line.jobs;
    sinks.is_quiet = line.is_quiet;
    return run_live(*camera, statistics, sinks);
}

void add_run_options(CLI::App& command, Command_line& line) {
    std::string const group = "Run";
    auto& live = line.camera.live;
    add_whole_number(
        command, "--frames", live.frames, {.least = 1}, "End behind so many frames that were taken")
        ->group(group);
    add_number(command, "--seconds", {1e-3, 1e9}, seconds_help, [&live](double seconds) {
        live.seconds = seconds;
    })->group(group);
    add_choice<Drop_policy>(
        command, "--drop", live.drop,
        {{"newest", Drop_policy::newest},
         {"oldest", Drop_policy::oldest},
         {"none", Drop_policy::none}},
        drop_help)
        ->default_str("newest")
        ->group(group);
    add_whole_number(command, "--waiting", live.waiting_frames, {1, 4096}, waiting_help)
        ->default_str("16")
        ->group(group);
    add_whole_number(command, "-j,--jobs", line.jobs, {0, 1024}, jobs_help)
        ->default_str("0")
        ->group(group);
    command.add_flag("-q,--quiet", line.is_quiet, "Say nothing but what went wrong")->group(group);
}

} // namespace

void add_live_command(CLI::App& program, int& exit_code) {
    auto const line = std::make_shared<Command_line>();
    CLI::App& command = *program.add_subcommand(
        "live",
        "Computes the polarimetric planes of a camera's frames while they arrive, or records "
        "the frames.");
    add_camera(command, line->camera.id);
    command.add_flag("--list", line->lists, "Show the cameras that answer, and end")
        ->group(camera_group);
    add_pixel_format(command, line->camera.pixel_format, camera_format_help)->group(camera_group);
    add_camera_settings(command, line->camera);
    add_sample_options(command, line->samples, camera_region_help);
    add_mosaic_options(command, line->mosaic);
    add_run_options(command, *line);
    add_plane_options(command, *line);
    add_result_options(command, *line, output_help, stack_help);
    command.add_option("--record", line->record_file, record_help)
        ->type_name("FILE")
        ->group("Results");
    command.footer(example);
    command.callback(
        [line, &command, &exit_code] { exit_code = run_live_command(*line, command); });
}

} // namespace polarize_tool
