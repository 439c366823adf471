#pragma once

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// The sets of planes that are measured. A bit for each plane, in the order of the record.
enum Output_planes : unsigned {
    normalized_stokes_plane = 1,
    s0_plane = 2,
    s1_plane = 4,
    s2_plane = 8,
    azimuth_plane = 16,
    dolp_plane = 32,

    no_plane = 0,
    stokes_planes = s0_plane | s1_plane | s2_plane,
    azimuth_and_dolp = azimuth_plane | dolp_plane,
    s0_azimuth_and_dolp = s0_plane | azimuth_and_dolp,
    five_planes = stokes_planes | azimuth_and_dolp,
    six_planes = normalized_stokes_plane | five_planes,
};

struct Output_set {
    char const* name;
    Output_planes planes;
};

inline constexpr Output_set output_sets[] = {
    {"{S0,S1,S2}", stokes_planes},
    {"{azimuth,DoLP}", azimuth_and_dolp},
    {"{S0,azimuth,DoLP}", s0_azimuth_and_dolp},
    {"five", five_planes},
    {"six", six_planes},
};

/// Static: the compiler's choice of instructions differs between the objects that include it.
static inline Output_planes planes_of(Polarization_computation_arguments const& frame) {
    return static_cast<Output_planes>(
        (frame.normalized_stokes_image != nullptr ? normalized_stokes_plane : 0U) |
        (frame.s0_image != nullptr ? s0_plane : 0U) | (frame.s1_image != nullptr ? s1_plane : 0U) |
        (frame.s2_image != nullptr ? s2_plane : 0U) |
        (frame.azimuth_image != nullptr ? azimuth_plane : 0U) |
        (frame.dolp_image != nullptr ? dolp_plane : 0U));
}
