/// @file
/// What commands that take frames of a camera have in common: how it is chosen, set up and opened.
#pragma once

#include "input/frame_preparation.hpp"
#include "veldrane_mrv/polarization/calibration.hpp"
#include "veldrane_mrv/polarization/camera.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace polarize_tool {

inline constexpr char const* camera_group = "Camera";

/// Of --pixel-format.
inline constexpr char const* camera_format_help =
    "What the camera sends; without it what it is set to. The bit depth follows from it";

/// Of --region.
inline constexpr char const* camera_region_help =
    "The part of the sensor that the camera sends; without it what it is set to. --phase, --layout "
    "and --calibration are those of the whole sensor always: an odd COLUMN or ROW is taken care of";

/// --camera.
CLI::Option* add_camera(CLI::App& command, std::string& id);

/// --exposure, --gain, --frame-rate, --reconnect and --no-packet-socket.
/// @return these
std::vector<CLI::Option*> add_camera_settings(
    CLI::App& command, polarization::Camera_options& options);

/// @throws File_failure if none answers
void require_cameras(std::vector<polarization::Camera_description> const& cameras);

/// Opens the camera of `options`, or the only one that answers.
/// @throws Usage_error for several and no id, and for options that the camera refuses
/// @throws File_failure as polarization::open_camera
std::unique_ptr<polarization::Camera_source> opened_camera(polarization::Camera_options& options);

/// Of frames that the camera has cut out itself.
/// @throws as Frame_preparation
Frame_preparation preparation_for(
    polarization::Camera_source const& camera, Sample_options samples);

/// Maps of pixels belong to places on the sensor.
/// @throws File_failure if those of the calibration are of another one
void check_sensor_of(
    polarization::Camera_source const& camera,
    std::optional<polarization::Calibration> const& calibration,
    std::filesystem::path const& calibration_file);

} // namespace polarize_tool
