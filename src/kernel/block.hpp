#pragma once

#include "kernel/load.hpp"
#include "kernel/maths.hpp"
#include "kernel/pack.hpp"
#include "kernel/unroll.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace block {

inline constexpr std::size_t columns = 16;

/// Floats that a block stores of one row of the float plane.
inline constexpr std::size_t stored_floats = 16;

/// One value for each output vector: (first row, even columns), (first row, odd columns), (second
/// row, even columns), (second row, odd columns).
struct Output_vectors {
    __m256 vector[4];
};

/// Where a block's pixels go: element offsets of its first pixel in each of the two rows.
struct Row_offsets {
    std::size_t first, second;
};

/// Stores a plane of which `pixels(row)` are the 16 pixels of either row.
template <typename Pixels_of_row>
[[gnu::always_inline]] inline void store_rows(
    std::uint16_t* plane, Row_offsets offsets, Pixels_of_row pixels) {
    store_16_pixels(plane + offsets.first, pixels(std::integral_constant<unsigned, 0>{}));
    store_16_pixels(plane + offsets.second, pixels(std::integral_constant<unsigned, 1>{}));
}

/// Evaluates `value(i)` for the four output vectors and stores the plane.
template <typename Value>
[[gnu::always_inline]] inline void compute_plane(
    std::uint16_t* plane, Row_offsets offsets, __m256 limit, Value value) {
    Output_vectors values;
    unroll<4>([&](auto i) { values.vector[i] = value(i); });
    store_rows(plane, offsets, [&](auto row) {
        return pack_pixels(values.vector[2 * row], values.vector[2 * row + 1], limit);
    });
}

/// The plane of S1 or S2: from floats where it is rescaled, else from the samples.
template <typename Indices, auto index, typename Set>
[[gnu::always_inline]] inline void compute_difference_plane(
    std::uint16_t* plane, Row_offsets offsets, Arranged_rows const& samples,
    Output_vectors const& differences, Constants const& broadcast) {
    if constexpr (Set::rescale) {
        compute_plane(plane, offsets, broadcast.maximum_output_value, [&](auto i) {
            return stokes_plane_value<true>(differences.vector[i], broadcast);
        });
    } else {
        store_rows(plane, offsets, [&](auto row) {
            return positive_part(
                difference_operands<Indices, index, row, Pixels::all>(samples), broadcast);
        });
    }
}

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

/// Computes 16 columns of a row pair.
/// @param offset      element offset of the block's first pixel in the row pair's first row
/// @param float_index the running index of the float plane
template <typename Indices, typename Set>
[[gnu::always_inline]] inline void compute_block(
    Planes const& planes, Constants const& broadcast, std::size_t offset, std::size_t float_index) {
    Arranged_rows const samples = load_block(planes.raw_image + offset, planes.width);
    Row_offsets const offsets{offset, offset + planes.width};
    __m256 const limit = broadcast.maximum_output_value;

    [[maybe_unused]] Output_vectors s0_of, s1_of, s2_of;
    unroll<4>([&](auto i) {
        constexpr unsigned row = i / 2;
        constexpr Pixels pixels = i % 2 == 0 ? Pixels::even : Pixels::odd;
        if constexpr (Set::needs_s0) {
            s0_of.vector[i] = s0<Indices, row, pixels>(samples);
        }
        if constexpr (Set::needs_s1) {
            s1_of.vector[i] = difference<Indices, Indices::s1_operand, row, pixels>(samples);
        }
        if constexpr (Set::needs_s2) {
            s2_of.vector[i] = difference<Indices, Indices::s2_operand, row, pixels>(samples);
        }
    });

    if constexpr (Set::want_normalized_stokes) {
        unroll<2>([&](auto row) {
            auto const stored = [row](Output_vectors const& s) {
                return stored_pixels(s.vector[2 * row], s.vector[2 * row + 1]);
            };
            __m256 const s0_stored = stored(s0_of);
            store_normalized_pairs(
                planes.normalized_stokes_image + float_index + row * 2 * planes.width,
                _mm256_div_ps(signed_zero(stored(s1_of)), s0_stored),
                _mm256_div_ps(signed_zero(stored(s2_of)), s0_stored));
        });
    }
    if constexpr (Set::want_s0) {
        compute_plane(planes.s0_image, offsets, limit, [&](auto i) {
            return stokes_plane_value<Set::rescale>(s0_of.vector[i], broadcast);
        });
    }
    if constexpr (Set::want_s1) {
        compute_difference_plane<Indices, Indices::s1_operand, Set>(
            planes.s1_image, offsets, samples, s1_of, broadcast);
    }
    if constexpr (Set::want_s2) {
        compute_difference_plane<Indices, Indices::s2_operand, Set>(
            planes.s2_image, offsets, samples, s2_of, broadcast);
    }
    if constexpr (Set::want_azimuth) {
        compute_plane(planes.azimuth_image, offsets, limit, [&](auto i) {
            return azimuth_value(s1_of.vector[i], s2_of.vector[i], broadcast);
        });
    }
    if constexpr (Set::want_dolp) {
        compute_plane(planes.dolp_image, offsets, limit, [&](auto i) {
            return dolp_value(s0_of.vector[i], s1_of.vector[i], s2_of.vector[i], broadcast);
        });
    }
}

} // namespace block
