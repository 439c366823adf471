/// @file
/// Simulated frames, one or a series, to files.
#pragma once

#include "output/staged_files.hpp"
#include "veldrane_mrv/polarization/imperfect_pixels.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

struct Simulate_options {
    std::filesystem::path output;
    std::filesystem::path truth_folder;
    polarization::Simulation_settings settings;
    std::uint64_t analyser_seed = 1; // for the provenance of imperfect analysers
    /// Drawn by `run_simulate`, which puts the pixels into the settings.
    std::optional<polarization::Pixel_spread> pixel_spread;
    std::uint64_t frames = 1;
    /// Beside the frames: without light, and for each level of unpolarised light.
    std::uint64_t dark_frames = 0;
    std::uint64_t flat_frames = 0;
    std::uint64_t flat_levels = 1;
    std::string pixel_format = "Mono16";
    std::string polariser_series;
    Existing_files existing = Existing_files::keep;
    bool is_quiet = false;
};

/// The angles that "A0:A1:STEP" names, A1 included if the steps reach it.
/// @throws Usage_error unless 0 <= A0 <= A1 <= 360 and there are at most 3601 angles
std::vector<double> series_angles(std::string const& text);

/// The part of a file's name that tells its angle, such as `_angle_045.0`; as many decimals as all
/// angles of the series need, at least one.
std::string angle_suffix(double angle, std::vector<double> const& series);

/// Number of the first dark and the first flat frame, which decides their noise: beyond all other
/// frames, so that it does not depend on how many there are of these.
inline constexpr std::uint64_t first_dark_frame = 1ULL << 20;
inline constexpr std::uint64_t first_flat_frame = 1ULL << 21;

/// All files appear together at the end.
/// @throws Usage_error, File_failure, Interrupted
void run_simulate(Simulate_options options);

} // namespace polarize_tool
