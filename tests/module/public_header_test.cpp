/// @file
/// Only compiled, never run: the public header is complete, may be included twice, and lays the
/// records out as callers built against another declaration of them rely on.

#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"
// The guard has to hold.
#include "veldrane_mrv_polarization_processor_vector_avx2.hpp"

#include <type_traits>

namespace {

using Arguments = Polarization_computation_arguments;

static_assert(std::is_standard_layout<Arguments>::value, "a plain record");
static_assert(std::is_trivially_copyable<Arguments>::value, "a plain record");
static_assert(sizeof(Arguments) == 96, "no field more or less");
static_assert(alignof(Arguments) == 8, "no stricter alignment than a pointer's");

// The fields in their order, each behind the one before with natural alignment.
static_assert(offsetof(Arguments, height) == 0, "");
static_assert(offsetof(Arguments, width) == 8, "");
static_assert(offsetof(Arguments, polar_phase) == 16, "");
static_assert(offsetof(Arguments, raw_image) == 24, "");
static_assert(offsetof(Arguments, bit_depth) == 32, "");
static_assert(offsetof(Arguments, maximum_input_value) == 36, "");
static_assert(offsetof(Arguments, maximum_output_value) == 40, "");
static_assert(offsetof(Arguments, maximum_output_value_integer) == 44, "");
static_assert(offsetof(Arguments, normalized_stokes_image) == 48, "");
static_assert(offsetof(Arguments, s0_image) == 56, "");
static_assert(offsetof(Arguments, s1_image) == 64, "");
static_assert(offsetof(Arguments, s2_image) == 72, "");
static_assert(offsetof(Arguments, azimuth_image) == 80, "");
static_assert(offsetof(Arguments, dolp_image) == 88, "");

template <typename Field, typename Expected>
constexpr bool is() {
    return std::is_same<Field, Expected>::value;
}

static_assert(is<decltype(Arguments::height), std::size_t>(), "");
static_assert(is<decltype(Arguments::width), std::size_t>(), "");
static_assert(is<decltype(Arguments::polar_phase), std::int32_t>(), "");
static_assert(is<decltype(Arguments::raw_image), std::uint16_t const*>(), "");
static_assert(is<decltype(Arguments::bit_depth), std::int32_t>(), "");
static_assert(is<decltype(Arguments::maximum_input_value), float>(), "");
static_assert(is<decltype(Arguments::maximum_output_value), float>(), "");
static_assert(is<decltype(Arguments::maximum_output_value_integer), std::int32_t>(), "");
static_assert(is<decltype(Arguments::normalized_stokes_image), float*>(), "");
static_assert(is<decltype(Arguments::s0_image), std::uint16_t*>(), "");
static_assert(is<decltype(Arguments::s1_image), std::uint16_t*>(), "");
static_assert(is<decltype(Arguments::s2_image), std::uint16_t*>(), "");
static_assert(is<decltype(Arguments::azimuth_image), std::uint16_t*>(), "");
static_assert(is<decltype(Arguments::dolp_image), std::uint16_t*>(), "");

// A reference lies in a record as a pointer does.
static_assert(sizeof(Calibration_matrices) == 4 * sizeof(void*), "four references");
static_assert(alignof(Calibration_matrices) == alignof(void*), "four references");

using Transform = int (*)(Arguments const&, Calibration_matrices const&);
using Lifecycle = int (*)();
static_assert(
    is<decltype(&qn_polarization_processor_transform_vector_avx2), Transform>(), "signature");
static_assert(
    is<decltype(&qn_polarization_processor_vector_avx2_module_initialize), Lifecycle>(),
    "signature");
static_assert(
    is<decltype(&qn_polarization_processor_vector_avx2_module_terminate), Lifecycle>(),
    "signature");

// A caller builds the matrices' record from four arrays of its own, without a copy.
Calibration_matrices borrow(std::array<float, 16> const& weights) {
    return {weights, weights, weights, weights};
}

} // namespace

bool borrowed_matrices_are_not_copied(std::array<float, 16> const& weights);

bool borrowed_matrices_are_not_copied(std::array<float, 16> const& weights) {
    Calibration_matrices const matrices = borrow(weights);
    return &matrices.even_row_even_column == &weights && &matrices.odd_row_odd_column == &weights;
}
