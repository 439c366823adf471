#include "veldrane_mrv/polarization/transform.hpp"

#include "guarantees.hpp"

namespace veldrane_mrv::polarization {

Settings ideal_settings(Mosaic const& mosaic, Scale const& scale) {
    return {mosaic, scale, ideal_matrices(mosaic)};
}

void transform(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    check_call(frame, settings, planes);
    call_processor(frame, settings, planes);
}

} // namespace veldrane_mrv::polarization
