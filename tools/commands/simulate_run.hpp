/// @file
/// Simulated frames, one or a series, to files.
#pragma once

#include "output/staged_files.hpp"
#include "veldrane_mrv/polarization/simulation.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

struct Simulate_options {
    std::filesystem::path output;
    std::filesystem::path truth_folder;
    polarization::Simulation_settings settings;
    std::uint64_t analyser_seed = 1; // for the provenance of imperfect analysers
    std::uint64_t frames = 1;
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

/// All files appear together at the end.
/// @throws Usage_error, File_failure, Interrupted
void run_simulate(Simulate_options const& options);

} // namespace polarize_tool
