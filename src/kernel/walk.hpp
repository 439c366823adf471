#pragma once

#include "variants/output_set.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

/// What the decision tree runs at its leaves: one frame, with everything that does not change
/// during it bound at compile time.
struct Polarization_process_vector_avx2_callback {
    /// No plane requested: no sample is read, nothing is written.
    template <typename Indices, typename... Flag>
    requires(!requests_a_plane<Flag...>) static int process(
        Polarization_computation_arguments const&, Calibration_matrices const&) {
        return 0;
    }

    /// The kernel, defined in kernel/walk_definition.hpp.
    /// @tparam Indices one of the four index lists
    template <
        typename Indices, typename Same_output_range, typename Want_normalized_stokes,
        typename Want_s0, typename Want_s1, typename Want_s2, typename Want_azimuth,
        typename Want_dolp, typename Height_is_even, typename Width_is_even>
    requires requests_a_plane<
        Same_output_range, Want_normalized_stokes, Want_s0, Want_s1, Want_s2, Want_azimuth,
        Want_dolp>
    static int process(
        Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices);
};
