#include "commands/calibrate_run.hpp"

#include "commands/calibration_messages.hpp"
#include "commands/calibration_series.hpp"
#include "commands/noise_measurement.hpp"
#include "input/input_files.hpp"
#include "input/recorded_settings.hpp"
#include "output/calibration_plot.hpp"
#include "output/calibration_table.hpp"
#include "output/image_writing.hpp"
#include "output/map_pictures.hpp"
#include "output/staged_files.hpp"
#include "terminal/failure.hpp"
#include "terminal/interruption.hpp"
#include "terminal/messages.hpp"
#include "terminal/visible_text.hpp"
#include "veldrane_mrv/polarization/calibration_file.hpp"
#include "veldrane_mrv/polarization/calibration_mark.hpp"

#include <fstream>
#include <optional>

namespace polarize_tool {
namespace {

namespace fs = std::filesystem;
using polarization::Calibration_model;

/// What a run writes besides the array file, whose name depends on its contents.
struct Outputs {
    fs::path calibration;
    fs::path plot;
    /// Of the maps, empty without.
    fs::path maps;
};

fs::path maps_picture_of(fs::path const& calibration) {
    return calibration.parent_path() / (calibration.stem().string() + "_maps.png");
}

Outputs outputs_of(Calibrate_options const& options) {
    Outputs outputs{options.output, options.plot, {}};
    if (outputs.plot.empty()) {
        outputs.plot = options.output;
        outputs.plot.replace_extension(".png");
    }
    if (options.model != Calibration_model::position) {
        outputs.maps = maps_picture_of(options.output);
    }
    return outputs;
}

void check_combinations(Calibrate_options const& options) {
    if (!is_utf8(options.sensor)) {
        throw Usage_error(
            "--sensor is " + options.sensor + ", which is not UTF-8; give a name in UTF-8");
    }
    if (options.model != Calibration_model::position) {
        return;
    }
    for (auto const& [option, value] :
         {std::pair("--bad-pixels", options.bad_pixels.string()),
          std::pair("--hold-out", options.held_out)}) {
        if (!value.empty()) {
            throw Usage_error(
                std::string(option) + " is " + value +
                ", which --model position has no use for; give --model gain or pixel too");
        }
    }
}

Found_frames found_flats(Calibrate_options const& options, std::optional<Raw_layout> const& raw) {
    if (options.flat_frames.empty()) {
        return {};
    }
    Found_frames found = look_for_frames(options.flat_frames, raw);
    if (!found.failures.empty()) {
        throw std::runtime_error("flat frame " + found.failures.front());
    }
    if (options.samples.dark_frames.empty()) {
        throw Usage_error(
            "--noise is " + options.flat_frames.front() +
            ", whose level above dark is not known without dark frames; give --dark");
    }
    return found;
}

// The mosaic is that of the whole frame.
Sample_options uncut(Sample_options samples) {
    samples.region_text.clear();
    return samples;
}

polarization::Estimation_options estimation_of(
    Calibrate_options const& options, Frame_preparation const& preparation) {
    polarization::Estimation_options estimation;
    estimation.bit_depth = preparation.bit_depth();
    estimation.source_degree = options.source_degree;
    estimation.sensor = options.sensor;
    estimation.region = options.samples.region();
    if (auto const& dark = preparation.dark()) {
        estimation.dark_levels = dark_levels_in(*dark, estimation.region);
    }
    return estimation;
}

/// What a run reads. Of the frames nothing but the dark ones has been read yet.
struct Inputs {
    explicit Inputs(Calibrate_options const& options)
        : raw{options.input.raw_layout()}, mosaic{options.mosaic.required()},
          preparation{uncut(options.samples), raw}, estimation{estimation_of(options, preparation)},
          bad_pixels{options.bad_pixels.empty() ? Pixel_list() : Pixel_list(options.bad_pixels)},
          frames{look_for_frames(options.input.inputs, raw, options.input.selection)},
          flats{found_flats(options, raw)} {
        require_frames(frames);
    }

    Input_files files(Calibrate_options const& options) const {
        Input_files files(frames.frames, preparation);
        files.add(options.angles);
        files.add(options.bad_pixels);
        for (Frame_place const& flat : flats.frames) {
            files.add(flat.file);
        }
        return files;
    }

    std::optional<Raw_layout> raw;
    polarization::Mosaic mosaic;
    Frame_preparation preparation;
    polarization::Estimation_options estimation;
    Pixel_list bad_pixels;
    Found_frames frames;
    Found_frames flats;
};

bool is_same_file(fs::path const& one, fs::path const& other) {
    std::error_code ignored;
    return fs::weakly_canonical(one, ignored) == fs::weakly_canonical(other, ignored);
}

// --overwrite means an older calibration and its plot, whose name the user may not even have given.
void refuse_lost_files(Outputs const& outputs, Input_files const& inputs) {
    if (is_same_file(outputs.plot, outputs.calibration)) {
        throw Usage_error(
            "--plot and --output are both " + outputs.calibration.string() +
            "; give the calibration a name that ends in .json, or choose another --plot");
    }
    inputs.refuse(outputs.calibration, "--output");
    inputs.refuse(outputs.plot, "--plot");
    if (outputs.maps.empty()) {
        return;
    }
    for (auto const& [option, file] :
         {std::pair("--plot", outputs.plot), std::pair("--output", outputs.calibration)}) {
        if (is_same_file(outputs.maps, file)) {
            throw Usage_error(
                std::string(option) + " is " + file.string() +
                ", where the picture of the maps goes; choose another name");
        }
    }
    inputs.refuse(outputs.maps, "--output");
}

void require_all(Found_frames const& found, fs::path const& output) {
    if (found.failures.size() == 1) {
        throw std::runtime_error(
            found.failures.front() + " (" + output.string() + " is not written)");
    }
    if (!found.failures.empty()) {
        for (std::string const& failure : found.failures) {
            complain(failure);
        }
        throw File_failure(output, "not written, since some inputs hold no frame");
    }
}

std::optional<polarization::Photon_transfer> noise_of(
    Calibrate_options const& options, Inputs const& inputs) {
    if (inputs.flats.frames.empty()) {
        return std::nullopt;
    }
    polarization::Photon_transfer_options transfer;
    transfer.bit_depth = inputs.estimation.bit_depth;
    transfer.dark_levels = inputs.estimation.dark_levels.value_or(transfer.dark_levels);
    transfer.region = inputs.estimation.region;
    return measure_noise(
        inputs.flats.frames, inputs.raw, inputs.preparation, transfer, !options.is_quiet);
}

Measured_series series_of(Calibrate_options const& options, Inputs const& inputs) {
    auto const& places = inputs.frames.frames;
    auto const settings = options.angles.empty() ? settings_from_names(places)
                                                 : settings_from_table(options.angles, places);
    bool const has_maps = options.model != Calibration_model::position;
    auto const held_out =
        has_maps ? frame_held_out(options.held_out, places, settings) : std::nullopt;
    return measure_series(
        {places, settings, inputs.raw, inputs.preparation, inputs.mosaic, inputs.estimation,
         options.model, inputs.bad_pixels, held_out, !options.is_quiet},
        options.output);
}

// The text last: its name is what makes the other files a calibration's.
void stage(
    Staged_files& files, Outputs const& outputs, Measured_series const& measured,
    double source_degree) {
    polarization::Calibration const& calibration = measured.result.calibration;
    auto const texts = polarization::files_of(calibration, outputs.calibration);
    if (texts.maps) {
        // Its name tells its contents: one that a stopped run has left is no other.
        files.add(texts.array_file, {}, Existing_files::replace);
        for (auto const part : texts.array_parts()) {
            files.append({reinterpret_cast<std::uint8_t const*>(part.data()), part.size()});
        }
        files.add(outputs.maps, marked_as_plot(encode_png(map_pictures(measured.result))));
    }
    cv::Mat const plot = calibration_plot(calibration, measured.points, source_degree);
    files.add(outputs.plot, marked_as_plot(encode_png(plot)));
    files.add(outputs.calibration, texts.json);
}

// No file of the user's that happens to have the name.
void remove_maps_picture(Outputs const& outputs) {
    fs::path const picture = maps_picture_of(outputs.calibration);
    std::error_code ignored;
    if (is_same_file(picture, outputs.plot) || !fs::is_regular_file(picture, ignored)) {
        return;
    }
    std::string start(polarization::calibration_mark_reach, '\0');
    std::ifstream(picture, std::ios::binary)
        .read(start.data(), static_cast<std::streamsize>(start.size()));
    if (polarization::is_of_calibration(start)) {
        fs::remove(picture, ignored);
    }
}

void publish(
    Outputs const& outputs, Existing_files existing, Measured_series const& measured,
    double source_degree) {
    Staged_files files(existing);
    stage(files, outputs, measured, source_degree);
    throw_if_interrupted();
    auto const old_array = polarization::array_file_of(outputs.calibration);
    files.publish();
    auto const new_array = polarization::array_file_of(outputs.calibration);
    if (old_array && old_array != new_array) {
        std::error_code ignored;
        fs::remove(*old_array, ignored);
        if (!new_array) {
            remove_maps_picture(outputs);
        }
    }
}

void warn_of_noise(polarization::Photon_transfer const& transfer) {
    if (transfer.clipped.empty()) {
        return;
    }
    std::string line = transfer.clipped.front().source;
    line += ": left out of the noise, since samples are at 0 or at the full scale";
    if (std::size_t const more = transfer.clipped.size() - 1; more > 0) {
        line.append(" (").append(std::to_string(more)).append(" pairs more likewise)");
    }
    warn(line);
}

void tell(
    Outputs const& outputs, Measured_series const& measured,
    std::optional<polarization::Photon_transfer> const& noise) {
    polarization::Calibration const& calibration = measured.result.calibration;
    say_lines(calibration_table(calibration));
    if (calibration.maps) {
        say_lines(map_table(measured.result));
    }
    if (noise) {
        say(noise_line(*noise));
    }
    std::string wrote = "wrote " + outputs.calibration.string();
    if (auto const array = polarization::array_file_of(outputs.calibration)) {
        wrote.append(" ").append(array->string());
    }
    wrote.append(" ").append(outputs.plot.string());
    if (!outputs.maps.empty()) {
        wrote.append(" ").append(outputs.maps.string());
    }
    say(wrote);
}

} // namespace

void run_calibrate(Calibrate_options options) {
    check_combinations(options);
    take_from_recordings(options.input, options.samples, options.mosaic);
    Inputs const inputs(options);
    Outputs const outputs = outputs_of(options);
    refuse_lost_files(outputs, inputs.files(options));
    Made_folder const folder(outputs.calibration.parent_path());
    Existing_files const existing =
        options.overwrites ? Existing_files::replace : Existing_files::keep;
    Staged_files(existing).add(outputs.calibration, std::string()); // may be impossible
    refuse_existing(outputs.plot, existing);
    if (!outputs.maps.empty()) {
        refuse_existing(outputs.maps, existing);
    }
    require_all(inputs.frames, outputs.calibration);
    auto const noise = noise_of(options, inputs);
    Measured_series measured = series_of(options, inputs);
    if (noise) {
        measured.result.calibration.noise = noise->noise;
    }
    publish(outputs, existing, measured, options.source_degree);
    for (std::string const& warning : quality_warnings(measured.result.calibration)) {
        warn(warning);
    }
    bool const was_to_be_judged = options.held_out.empty() && !outputs.maps.empty();
    if (was_to_be_judged && measured.result.calibration.quality.models.empty()) {
        warn("No frame was held out to judge the models by, since the others would not tell the "
             "analysers; give more angles.");
    }
    if (noise) {
        warn_of_noise(*noise);
    }
    if (!options.is_quiet) {
        tell(outputs, measured, noise);
    }
}

} // namespace polarize_tool
