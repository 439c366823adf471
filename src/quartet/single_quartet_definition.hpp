#pragma once

#include "quartet/arctangent.hpp"
#include "quartet/degree_of_polarization.hpp"
#include "quartet/single_quartet.hpp"
#include "quartet/stokes.hpp"
#include "variants/output_set.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quartet {

/// The clamp and conversion of every 16-bit plane. minss and maxss return their second operand for
/// a NaN and for equal zeros, so a NaN becomes the limit and -0 becomes +0. The conversion rounds
/// in the mode in force, to nearest even by default; the low 16 bits are kept.
[[gnu::always_inline]] inline std::uint16_t clamp_and_convert(__m128 value, __m128 limit) {
    __m128 const clamped = _mm_max_ss(_mm_min_ss(value, limit), _mm_setzero_ps());
    return static_cast<std::uint16_t>(_mm_cvtss_si32(clamped));
}

/// (M * s) / Q with a true division where the planes have a scale of their own.
template <bool rescale>
[[gnu::always_inline]] inline __m128 stokes_plane_value(
    __m128 s, __m128 maximum_output_value, Polarization_computation_arguments const& arguments) {
    if constexpr (rescale) {
        return _mm_div_ss(
            _mm_mul_ss(maximum_output_value, s), _mm_load_ss(&arguments.maximum_input_value));
    } else {
        return s;
    }
}

} // namespace quartet

template <
    typename Same_output_range, typename Want_normalized_stokes, typename Want_s0, typename Want_s1,
    typename Want_s2, typename Want_azimuth, typename Want_dolp, bool last_column, bool last_row>
void generate_polarization_output_data_for_single_quartet(
    unsigned long row, unsigned long column, std::array<float, 16> const& matrix,
    Polarization_computation_arguments const& arguments, Image_buffer_overlays& overlays) {
    using Set = Output_set<
        Same_output_range, Want_normalized_stokes, Want_s0, Want_s1, Want_s2, Want_azimuth,
        Want_dolp>;
    static_assert(Set::want_any_plane, "a generator exists only for sets with a requested plane");

    quartet::Samples const samples =
        quartet::read_samples<last_column, last_row>(overlays.raw_image, row, column);
    [[maybe_unused]] __m128 s0, s1, s2, limit;
    if constexpr (Set::needs_s0) {
        s0 = quartet::s0(samples, matrix.data());
    }
    if constexpr (Set::needs_s1) {
        s1 = quartet::s1(samples, matrix.data());
    }
    if constexpr (Set::needs_s2) {
        s2 = quartet::s2(samples, matrix.data());
    }
    if constexpr (Set::want_16_bit_plane) {
        limit = _mm_load_ss(&arguments.maximum_output_value);
    }

    if constexpr (Set::want_normalized_stokes) {
        float* const pair =
            arguments.normalized_stokes_image + (arguments.width * row + column) * 2;
        _mm_store_ss(pair, _mm_div_ss(s1, s0));
        _mm_store_ss(pair + 1, _mm_div_ss(s2, s0));
    }
    auto const store_stokes = [&](Image_buffer_overlay const& plane, __m128 s) {
        plane.at(row, column) = quartet::clamp_and_convert(
            quartet::stokes_plane_value<Set::rescale>(s, limit, arguments), limit);
    };
    if constexpr (Set::want_s0) {
        store_stokes(overlays.s0_image, s0);
    }
    if constexpr (Set::want_s1) {
        store_stokes(overlays.s1_image, s1);
    }
    if constexpr (Set::want_s2) {
        store_stokes(overlays.s2_image, s2);
    }
    if constexpr (Set::want_azimuth) {
        overlays.azimuth_image.at(row, column) =
            quartet::clamp_and_convert(quartet::azimuth_value(s1, s2, limit), limit);
    }
    if constexpr (Set::want_dolp) {
        overlays.dolp_image.at(row, column) =
            quartet::clamp_and_convert(quartet::dolp_value(s0, s1, s2, limit), limit);
    }
}
