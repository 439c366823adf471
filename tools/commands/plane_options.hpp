/// @file
/// Options of commands that make planes: which planes, how they are computed, and where they go.
#pragma once

#include "input/frame_preparation.hpp"
#include "input/input_options.hpp"
#include "output/results.hpp"
#include "veldrane_mrv/polarization/processor.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace polarize_tool {

struct Plane_options {
    Sample_options samples;
    Mosaic_options mosaic;
    Results results;
    std::string planes = "all";
    std::optional<unsigned> full_scale;
    std::filesystem::path calibration_file;
    std::optional<polarization::Mode> mode;
    std::optional<double> zero_direction;
    Units units = Units::scaled;
    bool is_signed = false;
    bool wants_pictures = true;
    bool is_masked = true;
    std::optional<double> electrons_per_count;
    std::optional<double> read_noise;
    bool overwrites = false;
};

/// Of these --calibration, --mode, --zero-direction, --electrons-per-count and --read-noise: how
/// pixels are weighted, and how far they are trusted, whatever is made of them.
void add_weight_options(CLI::App& command, Plane_options& options);

/// @throws Usage_error for options of `add_weight_options` that do not fit together, or without a
///         mosaic
void check_weights(Plane_options const& options);

/// --planes, --calibration, --mode and what else tells what is computed.
void add_plane_options(CLI::App& command, Plane_options& options);

/// -o, --format, --pictures, --mask, --overwrite and --stack.
void add_result_options(
    CLI::App& command, Plane_options& options, std::string const& output_help,
    std::string const& stack_help);

/// @throws Usage_error for options that do not fit together, or that would change nothing
void check_planes(Plane_options const& options, CLI::App const& command);

/// The same about planes that go to standard output.
void check_piped_planes(Plane_options const& options, CLI::App const& command);

/// Of the command line, else of the calibration.
std::optional<polarization::Noise_model> noise_of(
    Plane_options const& options, std::optional<polarization::Calibration> const& calibration);

/// Makes of `options.results` all that a run takes, after the checks.
/// @param raw of the frames, if they are bare samples
/// @throws Usage_error, File_failure as `transform_settings`; Usage_error without noise that is
///         needed
void settle_results(
    Plane_options& options, CLI::App const& command, Frame_preparation const& preparation,
    std::optional<Raw_layout> const& raw);

} // namespace polarize_tool
