#include "processor_call.hpp"

namespace veldrane_mrv::polarization {

Polarization_computation_arguments processor_arguments(
    Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    // An empty span may have an address, which the processor would take for a request.
    auto const request = [](auto plane) { return plane.empty() ? nullptr : plane.data(); };
    return {
        .height = frame.height(),
        .width = frame.width(),
        .polar_phase = settings.mosaic.phase(),
        .raw_image = frame.data(),
        .bit_depth = settings.scale.bit_depth(),
        .maximum_input_value = settings.scale.maximum_input_value(),
        .maximum_output_value = settings.scale.maximum_output_value(),
        .maximum_output_value_integer = settings.scale.maximum_output_value_integer(),
        .normalized_stokes_image = request(planes.normalized_stokes),
        .s0_image = request(planes.s0),
        .s1_image = request(planes.s1),
        .s2_image = request(planes.s2),
        .azimuth_image = request(planes.azimuth),
        .dolp_image = request(planes.dolp),
    };
}

void call_processor(Frame_view const& frame, Settings const& settings, Plane_views const& planes) {
    auto const arguments = processor_arguments(frame, settings, planes);
    qn_polarization_processor_transform_vector_avx2(arguments, settings.matrices.references());
}

} // namespace veldrane_mrv::polarization
