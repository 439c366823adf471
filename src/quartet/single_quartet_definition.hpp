#pragma once

#include "quartet/lanes.hpp"
#include "quartet/planes.hpp"
#include "quartet/single_quartet.hpp"
#include "quartet/stokes.hpp"
#include "variants/output_set.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace quartet {

/// Reads a quartet. The flags move a neighbour to the other side of the pixel:
///
///     neither    last_column    last_row    both
///      o h          h o           v d        d v
///      v d          d v           o h        h o
template <bool last_column, bool last_row>
[[gnu::always_inline]] inline Samples<One_lane> read_samples(
    Image_buffer_overlay const& raw_image, std::size_t row, std::size_t column) {
    std::size_t const beside = last_column ? column - 1 : column + 1;
    std::size_t const below = last_row ? row - 1 : row + 1;
    auto const sample = [&raw_image](std::size_t r, std::size_t c) {
        return _mm_cvtsi32_ss(_mm_setzero_ps(), raw_image.at(r, c));
    };
    return {sample(row, column), sample(row, beside), sample(below, column), sample(below, beside)};
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

    using Lanes = quartet::One_lane;
    quartet::Samples<Lanes> const samples =
        quartet::read_samples<last_column, last_row>(overlays.raw_image, row, column);
    quartet::Stokes<Lanes> const stokes = quartet::estimate<Set>(samples, matrix.data());

    if constexpr (Set::want_normalized_stokes) {
        float* const pair =
            arguments.normalized_stokes_image + (arguments.width * row + column) * 2;
        _mm_store_ss(pair, Lanes::divide(stokes.s1, stokes.s0));
        _mm_store_ss(pair + 1, Lanes::divide(stokes.s2, stokes.s0));
    }
    // The conversion rounds in the mode in force, to nearest even by default; the low 16 bits are
    // kept.
    quartet::for_each_16_bit_plane<Set, Lanes>(
        arguments, overlays, [&](Image_buffer_overlay const& plane, auto value) {
            plane.at(row, column) = static_cast<std::uint16_t>(_mm_cvtss_si32(value(stokes)));
        });
}
