#include "commands/simulate_run.hpp"

#include "input/option_values.hpp"
#include "output/array_writing.hpp"
#include "output/image_writing.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/progress.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;

constexpr double brightest_flat_level = 0.8; // of the full scale

cv::Mat as_picture(polarization::Frame const& frame, int bit_depth) {
    cv::Mat const samples(
        static_cast<int>(frame.height), static_cast<int>(frame.width), CV_16UC1,
        const_cast<std::uint16_t*>(frame.samples.data()));
    if (bit_depth > 8) {
        return samples.clone();
    }
    cv::Mat narrow;
    samples.convertTo(narrow, CV_8U);
    return narrow;
}

fs::path with_suffix(fs::path const& folder, fs::path const& name, std::string const& suffix) {
    fs::path file = folder / name.stem();
    file += suffix;
    return file;
}

polarization::Pixel_format checked_format(Simulate_options const& options) {
    try {
        auto const format = polarization::parse_pixel_format(options.pixel_format);
        if (static_cast<int>(polarization::bit_depth_of(format)) < options.settings.bit_depth) {
            throw Usage_error(
                "--pixel-format " + options.pixel_format + " cannot hold samples of " +
                std::to_string(options.settings.bit_depth) + " bits; lower --bit-depth");
        }
        return format;
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(std::string("--pixel-format: ") + error.what());
    }
}

bool is_raw_file(fs::path const& output) {
    return output.extension() == ".raw";
}

/// Puts frames into PNG files of their own, or one behind the other into one file.
class Frame_writer {
public:
    Frame_writer(Simulate_options const& options, Staged_files& files)
        : options_{options}, files_{files}, is_raw_{is_raw_file(options.output)},
          format_{checked_format(options)} {}

    bool is_raw() const { return is_raw_; }

    void write(polarization::Frame const& frame, fs::path const& file) {
        if (!is_raw_) {
            files_.add(file, encode_png(as_picture(frame, options_.settings.bit_depth)));
            return;
        }
        std::vector<std::uint8_t> bytes(
            polarization::bytes_per_frame(format_, frame.height, frame.width));
        polarization::pack_frame(
            format_, frame.samples, frame.width, std::as_writable_bytes(std::span(bytes)));
        if (std::exchange(is_open_, true)) {
            files_.append(bytes);
        } else {
            files_.add(options_.output, bytes);
        }
    }

private:
    Simulate_options const& options_;
    Staged_files& files_;
    bool is_raw_;
    bool is_open_ = false;
    polarization::Pixel_format format_;
};

// The names of the files, a line each.
std::string add_truth(
    Staged_files& files, polarization::Truth const& truth, Simulate_options const& options) {
    std::pair<char const*, std::vector<float> const&> const planes[] = {
        {"s0", truth.s0},
        {"s1", truth.s1},
        {"s2", truth.s2},
        {"angle", truth.angle},
        {"degree", truth.degree}};
    std::string names;
    for (auto const& [name, plane] : planes) {
        fs::path const file = with_suffix(
            options.truth_folder, options.output, std::string("_true_") + name + ".tif");
        Array_view const array(
            std::span<float const>(plane), options.settings.width, options.settings.height);
        files.add(file, {encode(array, File_format::tiff).head, array.bytes()});
        names += "\n  " + visible(file.string());
    }
    return names;
}

// Puts the pixels into the settings.
// @return what is true of the sensor, if anything was drawn
std::optional<polarization::Calibration> drawn_sensor(Simulate_options& options) {
    polarization::Simulation_settings& settings = options.settings;
    std::string description = "simulated";
    std::optional<polarization::Calibration> sensor;
    if (settings.analysers) {
        sensor = polarization::ideal_calibration(polarization::Mosaic::from_phase(settings.phase));
        sensor->analysers = *settings.analysers;
        sensor->matrices = polarization::matrices_of(sensor->analysers);
        sensor->quality.condition_number = polarization::condition_number(sensor->analysers);
        description += ", analyser seed " + std::to_string(options.analyser_seed);
    }
    if (options.pixel_spread) {
        sensor =
            polarization::imperfect_pixels(settings, *options.pixel_spread, throw_if_interrupted);
        settings.pixels = std::make_shared<polarization::Sensor_pixels const>(*sensor);
        description += ", pixel seed " + std::to_string(options.pixel_spread->seed);
    }
    if (sensor) {
        sensor->provenance = {
            std::string(polarization::software_version()),
            polarization::current_time(),
            {},
            description};
    }
    return sensor;
}

// As a calibration, so that it can be compared with a measured one and used in its place.
void add_truth_of_sensor(
    Staged_files& files, polarization::Calibration const& sensor, fs::path const& output) {
    auto const made = polarization::files_of(
        sensor, with_suffix(output.parent_path(), output, "_analysers.json"));
    bool is_open = false;
    for (std::span<std::byte const> const part : made.array_parts()) {
        Staged_files::Bytes const bytes{
            reinterpret_cast<std::uint8_t const*>(part.data()), part.size()};
        if (std::exchange(is_open, true)) {
            files.append(bytes);
        } else {
            files.add(made.array_file, bytes);
        }
    }
    files.add(with_suffix(output.parent_path(), output, "_analysers.json"), made.json);
}

std::string sensor_line(Simulate_options const& options) {
    polarization::Simulation_settings const& settings = options.settings;
    return to_string(polarization::Size{settings.width, settings.height}) + ", phase " +
           std::to_string(settings.phase) + ", bit depth " + std::to_string(settings.bit_depth) +
           ", " + (settings.noise ? "seed " + std::to_string(settings.seed) : "no noise") +
           (options.pixel_spread ? ", pixel seed " + std::to_string(options.pixel_spread->seed)
                                 : "");
}

// As a number with leading zeros.
std::string numbered(std::string const& front, std::uint64_t number, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%0*llu", digits, static_cast<unsigned long long>(number));
    return front + text;
}

// @return what to say
std::string add_scene(Staged_files& files, Simulate_options const& options) {
    polarization::Light const light =
        polarization::scene_light(options.settings, throw_if_interrupted);
    Frame_writer writer(options, files);
    Progress progress(options.frames, !options.is_quiet);
    for (std::uint64_t number = 0; number < options.frames; ++number) {
        fs::path const file = options.frames == 1
                                  ? options.output
                                  : with_suffix(
                                        options.output.parent_path(), options.output,
                                        numbered("_", number, 6) + ".png");
        writer.write(
            polarization::record(light, options.settings, number, throw_if_interrupted), file);
        progress.add(light.size());
    }
    std::string line = visible(options.output.string()) + ": ";
    if (options.frames > 1) {
        line += std::to_string(options.frames) + " frames of ";
    }
    line += sensor_line(options);
    if (writer.is_raw()) {
        line += ", " + options.pixel_format;
    }
    if (!options.truth_folder.empty()) {
        line += add_truth(files, polarization::truth_of(light, throw_if_interrupted), options);
    }
    return line;
}

std::string add_series(Staged_files& files, Simulate_options const& options) {
    std::vector<double> const angles = series_angles(options.polariser_series);
    Frame_writer writer(options, files);
    if (writer.is_raw() || !options.truth_folder.empty()) {
        throw Usage_error("--polarizer-series writes PNG files only, and no --truth planes");
    }
    std::string table = "file,angle\n";
    Progress progress(angles.size(), !options.is_quiet);
    for (std::size_t number = 0; number < angles.size(); ++number) {
        fs::path const file = with_suffix(
            options.output.parent_path(), options.output,
            angle_suffix(angles[number], angles) + ".png");
        polarization::Light const light =
            polarization::uniform_light(options.settings, angles[number]);
        writer.write(
            polarization::record(light, options.settings, number, throw_if_interrupted), file);
        char text[32];
        std::snprintf(text, sizeof text, ",%.10g\n", angles[number]);
        table += file.filename().string() + text;
        progress.add(light.size());
    }
    fs::path const list = with_suffix(options.output.parent_path(), options.output, "_angles.csv");
    files.add(list, table);
    return visible(list.string()) + ": " + std::to_string(angles.size()) + " angles, frames of " +
           sensor_line(options);
}

// Dark and flat frames beside the others.
// @return what to say
std::string add_frames_beside(Staged_files& files, Simulate_options const& options) {
    Frame_writer writer(options, files);
    auto const add = [&](double level, std::string const& name, std::uint64_t first_number,
                         std::uint64_t count) {
        auto const light = polarization::flat_light(options.settings, level);
        for (std::uint64_t number = 0; number < count; ++number) {
            writer.write(
                polarization::record(
                    light, options.settings, first_number + number, throw_if_interrupted),
                with_suffix(
                    options.output.parent_path(), options.output,
                    numbered(name + "_", number, 3) + ".png"));
        }
    };
    add(0.0, "_dark", first_dark_frame, options.dark_frames);
    auto const digits = static_cast<int>(std::to_string(options.flat_levels).size());
    for (std::uint64_t level = 1; level <= options.flat_levels; ++level) {
        auto const part = static_cast<double>(level) / static_cast<double>(options.flat_levels);
        // By squares, since read noise shows at low levels.
        add(brightest_flat_level * part * part, numbered("_flat_", level, digits),
            first_flat_frame + level * options.flat_frames, options.flat_frames);
    }
    std::string line;
    if (options.dark_frames > 0) {
        line += "\n  " + std::to_string(options.dark_frames) + " dark frames";
    }
    if (options.flat_frames > 0) {
        line += "\n  " + std::to_string(options.flat_frames) + " flat frames at each of " +
                std::to_string(options.flat_levels) + " levels";
    }
    return line;
}

} // namespace

std::vector<double> series_angles(std::string const& text) {
    constexpr std::size_t most_angles = 3601;
    std::vector<double> numbers;
    for (std::size_t start = 0; start <= text.size();) {
        std::size_t const end = std::min(text.find(':', start), text.size());
        numbers.push_back(
            finite_number(std::string_view(text).substr(start, end - start)).value_or(-1.0));
        start = end + 1;
    }
    bool const are_three = numbers.size() == 3;
    double const first = are_three ? numbers[0] : -1.0;
    double const last = are_three ? numbers[1] : -1.0;
    double const step = are_three ? numbers[2] : -1.0;
    if (!(first >= 0.0 && first <= last && last <= 360.0 && step > 0.0) ||
        (last - first) / step > static_cast<double>(most_angles - 1)) {
        throw Usage_error(
            "--polarizer-series is " + text +
            "; give A0:A1:STEP with 0 <= A0 <= A1 <= 360 and at most 3601 angles, such as "
            "0:165:15");
    }
    std::vector<double> angles;
    constexpr double tolerance = 1e-6; // of a step: 0:1:0.1 includes 1
    auto const steps = static_cast<std::size_t>((last - first) / step + tolerance);
    for (std::size_t number = 0; number <= steps; ++number) {
        angles.push_back(first + static_cast<double>(number) * step);
    }
    return angles;
}

std::string angle_suffix(double angle, std::vector<double> const& series) {
    constexpr int most_decimals = 6;
    int decimals = 1;
    auto const is_told = [&](double value) {
        double const power = std::pow(10.0, decimals);
        return std::abs(std::round(value * power) / power - value) < 1e-9;
    };
    while (decimals < most_decimals && !std::all_of(series.begin(), series.end(), is_told)) {
        ++decimals;
    }
    char text[40];
    std::snprintf(text, sizeof text, "_angle_%0*.*f", 4 + decimals, decimals, angle);
    return text;
}

void run_simulate(Simulate_options options) {
    if (is_raw_file(options.output) && options.dark_frames + options.flat_frames > 0) {
        throw Usage_error("--dark-frames and --flat-frames write PNG files only");
    }
    if (options.frames == 1 && options.polariser_series.empty()) {
        refuse_existing(options.output, options.existing);
    }
    auto const sensor = drawn_sensor(options);
    // Before the files, so that these are removed first if anything fails.
    Made_folder const folder(options.output.parent_path());
    Made_folder const truth_folder(options.truth_folder);
    Staged_files files(options.existing);
    std::string const line = (options.polariser_series.empty() ? add_scene(files, options)
                                                               : add_series(files, options)) +
                             add_frames_beside(files, options);
    if (sensor) {
        add_truth_of_sensor(files, *sensor, options.output);
    }
    throw_if_interrupted();
    files.publish();
    if (!options.is_quiet) {
        say_lines(line);
    }
}

} // namespace polarize_tool
