/// @file
/// GenICam cameras on the network (GigE Vision) or on USB (USB3 Vision) as sources of frames.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"
#include "veldrane_mrv/polarization/live_source.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldrane_mrv::polarization {

/// Whether this library was built with what it takes to reach cameras.
bool is_built_with_cameras();

struct Camera_description {
    std::string id; ///< by which it is opened
    std::string vendor;
    std::string model;
    std::string serial;
    std::string address;  ///< in the network, or empty
    std::string protocol; ///< `GigEVision`, `USB3Vision` or `Fake`
};

/// Those that answer, in the order of their ids. Takes about a second.
/// @throws File_failure if this library was built without cameras
std::vector<Camera_description> list_cameras();

struct Camera_options {
    /// Empty for the only one that there is.
    std::string id;
    /// What is not given stays as the camera has it.
    std::string pixel_format; ///< by the name of the convention, such as `Mono12p`
    std::optional<double> exposure_us;
    std::optional<double> gain; ///< in the camera's unit, mostly dB
    std::optional<double> frame_rate;
    std::optional<Region> region; ///< of the sensor
    /// How long to wait for a camera that goes away, in seconds; 0 does not.
    double reconnect_seconds = 0.0;
    /// Whether packets of network cameras may be taken past the system's network stack, where the
    /// process has the right to (CAP_NET_RAW). Never done on a loopback address, where nothing
    /// would arrive.
    bool may_use_packet_socket = true;
    /// Or from the first call of `has_frame` on, for those who take long to get ready.
    bool sends_at_once = true;
    /// Start of the names of results.
    std::string stem = "live";
    Live_options live;
};

/// What a camera runs with.
struct Camera_settings {
    Pixel_format pixel_format = Pixel_format::mono8;
    Region region; ///< of the sensor; an odd column or row moves the mosaic
    Size sensor;
    std::optional<double> exposure_us;
    std::optional<double> gain;
    std::optional<double> frame_rate;
};

/// A camera that sends. Frames that are not whole are counted and go no further.
class Camera_source : public Live_source {
public:
    Camera_source(
        Raw_layout const& layout, Camera_options const& options,
        Camera_description const& description, Camera_settings const& settings);

    Camera_description const& description() const { return description_; }
    Camera_settings const& settings() const { return settings_; }

private:
    Camera_description description_;
    Camera_settings settings_;
};

/// Opens a camera, sets it up and lets it send until the source goes or ends.
/// @throws File_failure in the name of the camera if it cannot be reached or refuses a setting, or
///         if this library was built without cameras
/// @throws Argument_error for no camera, or several and no id; for an option that the camera has
///         not, or a value beyond what it takes
std::unique_ptr<Camera_source> open_camera(Camera_options const& options);

} // namespace veldrane_mrv::polarization
