#include "commands/camera_options.hpp"

#include "input/option_values.hpp"
#include "terminal/failure.hpp"
#include "veldrane_mrv/polarization/argument_error.hpp"

#include <CLI/CLI.hpp>

namespace polarize_tool {

using polarization::Camera_description;
using polarization::Camera_source;

namespace {

constexpr char const* camera_help =
    "The camera, by its id as --list shows it or by its address in the network; not needed where "
    "there is but one";

constexpr char const* reconnect_help = "Wait so long for a camera that goes away, up to 1e6 "
                                       "seconds, and go on when it is back; without "
                                       "it the run ends";

constexpr char const* socket_help =
    "Receive by way of the system's network stack only, where a camera in the network might "
    "otherwise be received past it with the right to do so (CAP_NET_RAW); try it where no frame "
    "arrives";

std::string id_of_the_only_camera() {
    auto const cameras = polarization::list_cameras();
    require_cameras(cameras);
    std::vector<std::string> ids;
    ids.reserve(cameras.size());
    for (Camera_description const& camera : cameras) {
        ids.push_back(camera.id + " (" + camera.model + ")");
    }
    if (cameras.size() > 1) {
        throw Usage_error(
            "--camera tells no ID, and " + std::to_string(cameras.size()) +
            " cameras answer; choose " + listed(ids));
    }
    return cameras.front().id;
}

} // namespace

void require_cameras(std::vector<Camera_description> const& cameras) {
    if (cameras.empty()) {
        throw File_failure(
            "cameras",
            "none answers; check power and cable, and that its address lies in the network "
            "of this machine");
    }
}

std::unique_ptr<Camera_source> opened_camera(polarization::Camera_options& options) {
    if (options.id.empty()) {
        options.id = id_of_the_only_camera();
    }
    try {
        return open_camera(options);
    } catch (polarization::Argument_error const& error) {
        throw Usage_error(error.what());
    }
}

Frame_preparation preparation_for(Camera_source const& camera, Sample_options samples) {
    samples.region_text.clear(); // which the camera has cut out
    samples.bit_depth = samples.depth(camera.layout());
    return {samples, std::nullopt, camera.settings().region};
}

void check_sensor_of(
    Camera_source const& camera, std::optional<polarization::Calibration> const& calibration,
    std::filesystem::path const& calibration_file) {
    if (calibration && calibration->maps && calibration->maps->sensor != camera.settings().sensor) {
        throw File_failure(
            camera.name(), "has a sensor of " + to_string(camera.settings().sensor) +
                               " pixels, but the maps of " + calibration_file.string() +
                               " are for one of " + to_string(calibration->maps->sensor) +
                               "; give the calibration of this camera, made of whole frames");
    }
}

CLI::Option* add_camera(CLI::App& command, std::string& id) {
    return command.add_option("--camera", id, camera_help)->type_name("ID")->group(camera_group);
}

std::vector<CLI::Option*> add_camera_settings(
    CLI::App& command, polarization::Camera_options& options) {
    auto const add_setting = [&](char const* name, Range range, char const* help, auto& target) {
        return add_number(command, name, range, help, [&target](double value) { target = value; })
            ->group(camera_group);
    };
    return {
        add_setting("--exposure", {1e-3, 1e12}, "Exposure in microseconds", options.exposure_us),
        add_setting("--gain", {-1e6, 1e6}, "Gain in the camera's unit, mostly dB", options.gain),
        add_setting("--frame-rate", {1e-6, 1e6}, "Frames a second", options.frame_rate),
        add_setting("--reconnect", {0, 1e6}, reconnect_help, options.reconnect_seconds),
        command.add_flag("--no-packet-socket{false}", options.may_use_packet_socket, socket_help)
            ->group(camera_group)};
}

} // namespace polarize_tool
