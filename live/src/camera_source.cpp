#include "veldrane_mrv/polarization/camera.hpp"

namespace veldrane_mrv::polarization {

Camera_source::Camera_source(
    Raw_layout const& layout, Camera_options const& options, Camera_description const& description,
    Camera_settings const& settings)
    : Live_source("camera " + description.id, options.stem, layout, options.live),
      description_{description}, settings_{settings} {}

} // namespace veldrane_mrv::polarization
