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
    /// @tparam Flag    the output set's seven, then `height_is_even` and `width_is_even`
    template <typename Indices, typename... Flag>
    requires requests_a_plane<Flag...>
    static int process(
        Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices);
};
