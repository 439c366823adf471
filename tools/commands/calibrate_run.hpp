/// @file
/// What `calibrate` does once its command line has been read.
#pragma once

#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/calibration_maps.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

struct Calibrate_options {
    Input_options input;
    Sample_options samples;
    Mosaic_options mosaic;
    polarization::Calibration_model model = polarization::Calibration_model::position;
    std::filesystem::path angles;
    std::filesystem::path bad_pixels;
    /// As for `frame_held_out`.
    std::string held_out;
    std::vector<std::string> flat_frames;
    std::filesystem::path output;
    /// Beside the calibration if empty.
    std::filesystem::path plot;
    std::string sensor;
    double source_degree = 1.0;
    bool overwrites = false;
    bool is_quiet = false;
};

/// Calibration, array file and pictures appear together at the end.
/// @throws Usage_error, File_failure, polarization::Argument_error
void run_calibrate(Calibrate_options options);

} // namespace polarize_tool
