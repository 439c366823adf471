#pragma once

#include "kernel/load.hpp"
#include "kernel/maths.hpp"
#include "kernel/pack.hpp"
#include "quartet/arranged_row.hpp"
#include "quartet/constants.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace block {

inline constexpr std::size_t columns = 16;

/// Floats that a block stores of one row of the float plane.
inline constexpr std::size_t stored_floats = 16;

template <typename Set>
[[gnu::always_inline]] inline Constants broadcast_constants(
    Polarization_computation_arguments const& arguments) {
    Constants broadcast{};
    if constexpr (Set::want_16_bit_plane) {
        broadcast.maximum_output_value = _mm256_broadcast_ss(&arguments.maximum_output_value);
    }
    if constexpr (Set::want_azimuth) {
        broadcast.azimuth_scale = _mm256_div_ps(
            broadcast.maximum_output_value, _mm256_set1_ps(constants::azimuth_range_degrees));
    }
    if constexpr (Set::rescale) {
        broadcast.input_reciprocal =
            _mm256_rcp_ps(_mm256_broadcast_ss(&arguments.maximum_input_value));
    }
    if constexpr (Set::same_output_range && (Set::want_s1 || Set::want_s2)) {
        __m256 const largest = _mm256_set1_ps(65535.0F);
        broadcast.largest_pixel = pack_pixels(largest, largest, broadcast.maximum_output_value);
    }
    return broadcast;
}

/// The planes' pointers as values: the stores below may alias the caller's record for all that the
/// compiler knows, and would have it reload them for every block.
struct Planes {
    std::uint16_t const* raw_image;
    float* normalized_stokes_image;
    std::uint16_t *s0_image, *s1_image, *s2_image, *azimuth_image, *dolp_image;
    std::size_t width;
};

/// Hardware fetches ahead within a page only, and where the frame and its planes lie alike, all
/// streams come to their pages' ends at once; this far ahead a prefetch hides the wait there.
/// Nearer ones hide less of it, at twice the distance nothing is gained, and every stream's lines
/// have room in the first-level cache.
inline constexpr std::size_t prefetched_bytes = 1024;

/// What lies ahead may lie behind the frame or plane: a number then, no pointer, and the processor
/// passes over what it may not read.
[[gnu::always_inline]] inline void prefetch_ahead_of(void const* place) {
    auto const ahead = reinterpret_cast<std::uintptr_t>(place) + prefetched_bytes;
    _mm_prefetch(reinterpret_cast<char const*>(ahead), _MM_HINT_T0);
}

/// Ordinary stores fetch each line first.
[[gnu::always_inline]] inline void store_row(std::uint16_t* target, __m256i pixels) {
    prefetch_ahead_of(target);
    store_16_pixels(target, pixels);
}

/// One row of the plane of S1 or S2: from floats where it is rescaled, else from the samples.
template <typename Indices, auto index, typename Set, unsigned row>
[[gnu::always_inline]] inline __m256i difference_pixels(
    Arranged_rows const& samples, Pair of, Constants const& broadcast) {
    if constexpr (Set::rescale) {
        return pack_pixels(
            stokes_plane_value<true>(of.even, broadcast),
            stokes_plane_value<true>(of.odd, broadcast), broadcast.maximum_output_value);
    } else {
        return positive_part(
            difference_operands<Indices, index, row, Pixels::all>(samples), broadcast);
    }
}

/// Computes 16 columns of the first or second row of a row pair.
/// @param offset      element offset of the block's first pixel in the row pair's first row
/// @param float_index the running index of the float plane
template <typename Indices, typename Set, unsigned row>
[[gnu::always_inline]] inline void compute_row_of_block(
    Planes const& planes, Constants const& broadcast, std::size_t offset, std::size_t float_index) {
    // The lower of the two rows that these pixels need, which is read here for the first time.
    prefetch_ahead_of(planes.raw_image + offset + (row + 1) * planes.width);
    Arranged_rows const samples = load_block(planes.raw_image + offset, planes.width);
    std::size_t const target = offset + row * planes.width;
    __m256 const limit = broadcast.maximum_output_value;

    [[maybe_unused]] Pair s0_of, s1_of, s2_of;
    if constexpr (Set::needs_s0) {
        s0_of = s0<Indices, row>(samples);
    }
    if constexpr (Set::needs_s1) {
        s1_of = difference<Indices, Indices::s1_operand, row>(samples);
    }
    if constexpr (Set::needs_s2) {
        s2_of = difference<Indices, Indices::s2_operand, row>(samples);
    }

    if constexpr (Set::want_normalized_stokes) {
        __m256 const s0_stored = stored_pixels(s0_of);
        float* const pairs = planes.normalized_stokes_image + float_index + row * 2 * planes.width;
        prefetch_ahead_of(pairs);
        store_normalized_pairs(
            pairs, _mm256_div_ps(signed_zero(stored_pixels(s1_of)), s0_stored),
            _mm256_div_ps(signed_zero(stored_pixels(s2_of)), s0_stored));
    }
    if constexpr (Set::want_s0) {
        store_row(
            planes.s0_image + target,
            pack_pixels(
                stokes_plane_value<Set::rescale>(s0_of.even, broadcast),
                stokes_plane_value<Set::rescale>(s0_of.odd, broadcast), limit));
    }
    if constexpr (Set::want_s1) {
        store_row(
            planes.s1_image + target,
            difference_pixels<Indices, Indices::s1_operand, Set, row>(samples, s1_of, broadcast));
    }
    if constexpr (Set::want_s2) {
        store_row(
            planes.s2_image + target,
            difference_pixels<Indices, Indices::s2_operand, Set, row>(samples, s2_of, broadcast));
    }
    if constexpr (Set::want_azimuth) {
        store_row(
            planes.azimuth_image + target,
            pack_pixels(
                azimuth_value(s1_of.even, s2_of.even, broadcast),
                azimuth_value(s1_of.odd, s2_of.odd, broadcast), limit));
    }
    if constexpr (Set::want_dolp) {
        store_row(
            planes.dolp_image + target,
            pack_pixels(
                dolp_value(s0_of.even, s1_of.even, s2_of.even, broadcast),
                dolp_value(s0_of.odd, s1_of.odd, s2_of.odd, broadcast), limit));
    }
}

} // namespace block
