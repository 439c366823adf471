#include "frame.hpp"

namespace lifecycle {
namespace {

constexpr std::int32_t full_scale = 4095;

// Samples without a pattern that a 2x2 cell or a block could repeat.
Frame_planes::Plane samples() {
    Frame_planes::Plane plane{};
    std::uint32_t state = 1;
    for (std::uint16_t& sample : plane) {
        state = state * 1664525U + 1013904223U;
        sample = static_cast<std::uint16_t>(state >> 20U);
    }
    return plane;
}

} // namespace

int compute(Module const& module, Frame_planes& planes) {
    static Frame_planes::Plane const raw = samples();
    static constexpr std::array<float, 16> weights{0.5F, 0.5F, 0.5F, 0.5F, 1, -1, 1, -1,
                                                   1,    1,    -1,   -1,   0, 0,  0, 0};
    planes.s0.fill(not_written);
    planes.azimuth.fill(not_written);
    planes.dolp.fill(not_written);
    Polarization_computation_arguments const arguments{
        .height = Frame_planes::height,
        .width = Frame_planes::width,
        .polar_phase = 1,
        .raw_image = raw.data(),
        .bit_depth = 12,
        .maximum_input_value = full_scale,
        .maximum_output_value = full_scale,
        .maximum_output_value_integer = full_scale,
        .normalized_stokes_image = nullptr,
        .s0_image = planes.s0.data(),
        .s1_image = nullptr,
        .s2_image = nullptr,
        .azimuth_image = planes.azimuth.data(),
        .dolp_image = planes.dolp.data()};
    return module.transform(arguments, {weights, weights, weights, weights});
}

} // namespace lifecycle
