/// @file
/// Frames of files or of a camera, served to a browser.
#pragma once

#include "commands/plane_options.hpp"
#include "commands/view_address.hpp"
#include "input/input_options.hpp"
#include "veldrane_mrv/polarization/camera.hpp"

namespace polarize_tool {

/// What a command line asks `view` for, checked as far as that goes without opening anything.
struct View_line : Plane_options {
    Input_options input;
    polarization::Camera_options camera;
    bool shows_camera = false; // in place of the input
    View_address address;
};

/// Whether this program was built with what it takes to serve a page.
bool is_built_with_view();

/// Serves until the program is interrupted.
/// @throws Interrupted then
/// @throws std::runtime_error if this program was built without the view, and what opening frames
///         throws
void run_view(View_line& line);

} // namespace polarize_tool
