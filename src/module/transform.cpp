#include "kernel/walk.hpp"
#include "variants/var_to_template.hpp"
#include "variants/vector_data_indices_avx2.hpp"

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <cstdint>

namespace {

/// 2^bit_depth - 1, with the low five bits of `bit_depth` as count. Unsigned, so that a count of 31
/// wraps as two's complement does.
std::int32_t expected_full_scale(std::int32_t bit_depth) {
    std::uint32_t const count = static_cast<std::uint32_t>(bit_depth) & 31U;
    return static_cast<std::int32_t>((std::uint32_t{1} << count) - 1U);
}

struct Output_flags {
    bool want_normalized_stokes, want_s0, want_s1, want_s2, want_azimuth, want_dolp;
    bool height_is_even, width_is_even;
};

template <typename Indices, bool Same_output_range>
int select_kernel(
    Output_flags const& flags, Polarization_computation_arguments const& arguments,
    Calibration_matrices const& matrices) {
    using Tree = var_to_template<
        Polarization_process_vector_avx2_callback, 8,
        std::tuple<Indices, std::integral_constant<bool, Same_output_range>>>;
    return Tree::template impl<
        int, bool, bool, bool, bool, bool, bool, bool, Polarization_computation_arguments const&,
        Calibration_matrices const&>(
        flags.want_normalized_stokes, bool{flags.want_s0}, bool{flags.want_s1}, bool{flags.want_s2},
        bool{flags.want_azimuth}, bool{flags.want_dolp}, bool{flags.height_is_even},
        bool{flags.width_is_even}, arguments, matrices);
}

template <typename Indices>
int select_range(
    Output_flags const& flags, Polarization_computation_arguments const& arguments,
    Calibration_matrices const& matrices) {
    bool const same_output_range =
        arguments.maximum_output_value_integer == expected_full_scale(arguments.bit_depth);
    return same_output_range ? select_kernel<Indices, true>(flags, arguments, matrices)
                             : select_kernel<Indices, false>(flags, arguments, matrices);
}

} // namespace

int qn_polarization_processor_transform_vector_avx2(
    Polarization_computation_arguments const& arguments, Calibration_matrices const& matrices) {
    Output_flags const flags{
        .want_normalized_stokes = arguments.normalized_stokes_image != nullptr,
        .want_s0 = arguments.s0_image != nullptr,
        .want_s1 = arguments.s1_image != nullptr,
        .want_s2 = arguments.s2_image != nullptr,
        .want_azimuth = arguments.azimuth_image != nullptr,
        .want_dolp = arguments.dolp_image != nullptr,
        .height_is_even = (arguments.height & 1) == 0,
        .width_is_even = (arguments.width & 1) == 0,
    };
    switch (arguments.polar_phase) {
    case 2:
        return select_range<Phase_2_indices>(flags, arguments, matrices);
    case 3:
        return select_range<Phase_3_indices>(flags, arguments, matrices);
    case 1:
        return select_range<Phase_1_indices>(flags, arguments, matrices);
    default:
        return select_range<Phase_0_indices>(flags, arguments, matrices);
    }
}
