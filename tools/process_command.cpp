#include "commands.hpp"
#include "failure.hpp"
#include "frame_reading.hpp"
#include "image_writing.hpp"
#include "results.hpp"
#include "transform.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

struct Process_options {
    std::vector<fs::path> frames;
    fs::path folder;
    std::string planes = "s0,s1,s2,azimuth,dolp,normalized_stokes";
    Transform_settings settings;
};

std::vector<std::string> parts_at_commas(std::string const& list) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t comma = list.find(','); comma != std::string::npos;
         comma = list.find(',', start)) {
        parts.push_back(list.substr(start, comma - start));
        start = comma + 1;
    }
    parts.push_back(list.substr(start));
    return parts;
}

std::optional<Plane> plane_called(std::string const& name) {
    auto const found = std::find(plane_names.begin(), plane_names.end(), name);
    if (found == plane_names.end()) {
        return std::nullopt;
    }
    return static_cast<Plane>(found - plane_names.begin());
}

std::string plane_list_problem(std::string const& list) {
    for (std::string const& name : parts_at_commas(list)) {
        if (!plane_called(name)) {
            return "unknown plane '" + name +
                   "'; the planes are s0,s1,s2,azimuth,dolp,normalized_stokes";
        }
    }
    return {};
}

bool same_file(fs::path const& a, fs::path const& b) {
    std::error_code error;
    return fs::weakly_canonical(a, error) == fs::weakly_canonical(b, error);
}

// A frame must not be lost to a result, neither its own nor another frame's.
void refuse_overwriting(Process_options const& options, fs::path const& frame) {
    for (fs::path const& file :
         result_files(options.folder, frame.stem().string(), options.settings.planes)) {
        for (fs::path const& input : options.frames) {
            if (same_file(file, input)) {
                throw File_failure(
                    frame, "its result would overwrite the input " + input.string() +
                               "; choose another folder");
            }
        }
    }
}

void warn_above_bit_depth(fs::path const& name, Frame const& frame, int bit_depth) {
    unsigned const limit = (1U << bit_depth) - 1U;
    unsigned const largest = *std::max_element(frame.samples.begin(), frame.samples.end());
    if (largest > limit) {
        std::fprintf(
            stderr,
            "veldrane-polarize: warning: %s: has samples up to %u, above the full scale %u of "
            "bit depth %d; the total intensity may clip; give a larger --bit-depth\n",
            name.c_str(), largest, limit, bit_depth);
    }
}

void print_summary(
    fs::path const& name, Frame const& frame, Process_options const& options,
    std::vector<double> times) {
    std::sort(times.begin(), times.end());
    double const best = times.front();
    double const median = (times[(times.size() - 1) / 2] + times[times.size() / 2]) / 2.0;
    double const megapixels_per_second =
        static_cast<double>(frame.samples.size()) / median / 1000.0;
    std::string line = name.string() + ": " + std::to_string(frame.width) + " x " +
                       std::to_string(frame.height) + ", transform ";
    char text[160];
    if (times.size() == 1) {
        std::snprintf(text, sizeof text, "%.3f ms, %.0f Mpixel/s", median, megapixels_per_second);
    } else {
        std::snprintf(
            text, sizeof text, "best %.3f ms, median %.3f ms of %zu, %.0f Mpixel/s", best, median,
            times.size(), megapixels_per_second);
    }
    line += text;
    line += ", wrote";
    for (fs::path const& file :
         result_files(options.folder, name.stem().string(), options.settings.planes)) {
        line += " " + file.string();
    }
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void process_frame(
    fs::path const& name, Process_options const& options, std::set<std::string>& taken_stems) {
    refuse_overwriting(options, name);
    Frame const frame = read_frame(name);
    std::string const problem = size_problem(frame);
    if (!problem.empty()) {
        throw File_failure(name, problem);
    }
    if (!taken_stems.insert(name.stem().string()).second) {
        throw File_failure(
            name,
            "given twice, or another input has the same name but for its ending; process it in "
            "a call of its own with another folder");
    }
    warn_above_bit_depth(name, frame, options.settings.bit_depth);
    Transform_result const result = transform(frame, options.settings);
    write_results(options.folder, name.stem().string(), frame, result, options.settings);
    print_summary(name, frame, options, result.milliseconds);
}

int run_process(Process_options& options) {
    options.settings.planes.clear();
    for (std::string const& name : parts_at_commas(options.planes)) {
        options.settings.planes.insert(*plane_called(name));
    }
    std::string const lacking = missing_instructions();
    if (!lacking.empty()) {
        throw std::runtime_error(
            "this processor lacks " + lacking +
            ", which the transform needs; use one of 2013 or "
            "later (Intel Haswell, AMD Excavator)");
    }
    make_folder(options.folder);
    std::vector<std::string> failures;
    std::set<std::string> taken_stems;
    for (fs::path const& frame : options.frames) {
        try {
            process_frame(frame, options, taken_stems);
        } catch (std::bad_alloc const&) {
            failures.push_back(frame.string() + ": too large for the memory of this machine");
        } catch (File_failure const& failure) {
            failures.emplace_back(failure.what());
        } catch (std::exception const& failure) {
            failures.push_back(frame.string() + ": " + failure.what());
        }
    }
    for (std::string const& failure : failures) {
        std::fprintf(stderr, "veldrane-polarize: %s\n", failure.c_str());
    }
    return failures.empty() ? all_done : an_input_failed;
}

constexpr char const* planes_help =
    "Planes to compute, separated by commas. s0, s1, s2, azimuth and dolp become 16-bit TIFF, "
    "normalized_stokes a 32-bit float TIFF of two channels, S1/S0 and S2/S0, as the processor "
    "lays them out: at the pixel's own place only in frames of two rows or fewer than 32 columns, "
    "NaN where it stores nothing. With dolp there is a picture FRAME_degree.png, with dolp and "
    "azimuth also FRAME_angle_degree.png";

constexpr char const* full_scale_help =
    "Full scale N of the 16-bit planes, 1 to 65535: 180 degrees of azimuth and a degree of "
    "polarisation of 1 are N. S0 is half the sum of four samples, up to 2 (2^B - 1) for bit depth "
    "B. Without this option S0, S1 and S2 are scaled by 65535 / (2 (2^B - 1)), so that nothing "
    "clips. N = 2^B - 1 keeps them in sample units, and S0 clips at N. Any other N scales them by "
    "N / (2 (2^B - 1))";

} // namespace

void add_process_command(CLI::App& program, int& exit_code) {
    auto const options = std::make_shared<Process_options>();
    Transform_settings& settings = options->settings;
    CLI::App& command = *program.add_subcommand(
        "process", "Computes the polarimetric planes of raw frames (grey PNG, TIFF or PGM of 8 or "
                   "16 bits) and writes them to DIR/FRAME_PLANE.tif.");
    command.add_option("frames", options->frames, "The raw frames")->required()->type_name("FRAME");
    command.add_option("-o,--output", options->folder, "Folder of the results, made if missing")
        ->required()
        ->type_name("DIR");
    command
        .add_option(
            "--phase", settings.phase,
            "Mosaic, top-left cell row by row in degrees: 0: 0 135 / 45 90, 1: 45 90 / 0 135, "
            "2: 90 45 / 135 0, 3: 135 0 / 90 45")
        ->required()
        ->check(CLI::Range(0, 3));
    command
        .add_option("--bit-depth", settings.bit_depth, "Significant bits B of a sample, 1 to 16")
        ->required()
        ->check(CLI::Range(1, 16));
    command.add_option("--planes", options->planes, planes_help)
        ->type_name("LIST")
        ->check(plane_list_problem)
        ->capture_default_str();
    command.add_option("--full-scale", settings.full_scale, full_scale_help)
        ->type_name("N")
        ->check(CLI::Range(1, 65535));
    command
        .add_option(
            "--repeat", settings.repetitions,
            "Run the transform so many times, 1 to 100000, and print the best and median time")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    command.callback([options, &exit_code] { exit_code = run_process(*options); });
}

} // namespace polarize_tool
