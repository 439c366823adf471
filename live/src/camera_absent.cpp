// Where Aravis is not there.
#include "veldrane_mrv/polarization/camera.hpp"

namespace veldrane_mrv::polarization {
namespace {

[[noreturn]] void refuse() {
    throw File_failure(
        "cameras", "this build cannot reach any; install libaravis-dev and libusb-1.0-0-dev and "
                   "build it again");
}

} // namespace

bool is_built_with_cameras() {
    return false;
}

std::vector<Camera_description> list_cameras() {
    refuse();
}

std::unique_ptr<Camera_source> open_camera(Camera_options const&) {
    refuse();
}

} // namespace veldrane_mrv::polarization
