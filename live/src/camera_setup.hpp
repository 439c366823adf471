/// @file
/// Finding a camera, and setting it up as its options say.
#pragma once

#include "aravis.hpp"

#include "veldrane_mrv/polarization/camera.hpp"

namespace veldrane_mrv::polarization::aravis {

struct Ready_camera {
    Owned<ArvCamera> camera;
    Camera_description description;
    Camera_settings settings;
    ArvPixelFormat pixel_format = 0; // by its number
    Raw_layout layout = {};
};

/// Opened and set up, and not sending yet.
/// @throws File_failure, Argument_error as `open_camera`
Ready_camera ready_camera(Camera_options const& options);

} // namespace veldrane_mrv::polarization::aravis
