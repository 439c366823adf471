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

/// One value for each output vector: (first row, low half), (first row, high half), (second row,
/// low half), (second row, high half).
struct Output_vectors {
    __m256 vector[4];
};

/// Where a block's pixels go: element offsets of its first pixel in each of the two rows.
struct Row_offsets {
    std::size_t first, second;
};

[[gnu::always_inline]] inline void store_plane(
    std::uint16_t* plane, Row_offsets offsets, Output_vectors const& values, __m256 limit) {
    store_pixels(plane + offsets.first, values.vector[0], values.vector[1], limit);
    store_pixels(plane + offsets.second, values.vector[2], values.vector[3], limit);
}

/// Evaluates `value(i)` for the four output vectors and stores the plane.
template <typename Value>
[[gnu::always_inline]] inline void compute_plane(
    std::uint16_t* plane, Row_offsets offsets, __m256 limit, Value value) {
    Output_vectors values;
    unroll<4>([&](auto i) { values.vector[i] = value(i); });
    store_plane(plane, offsets, values, limit);
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
    Sample_vectors const samples = load_block(planes.raw_image + offset, planes.width);
    Row_offsets const offsets{offset, offset + planes.width};
    __m256 const limit = broadcast.maximum_output_value;

    [[maybe_unused]] Output_vectors s0_of, s1_of, s2_of;
    unroll<4>([&](auto i) {
        if constexpr (Set::needs_s0) {
            s0_of.vector[i] = s0<Indices, i>(samples);
        }
        if constexpr (Set::needs_s1) {
            s1_of.vector[i] = s1<Indices, i>(samples);
        }
        if constexpr (Set::needs_s2) {
            s2_of.vector[i] = s2<Indices, i>(samples);
        }
    });

    if constexpr (Set::want_normalized_stokes) {
        float* const target = planes.normalized_stokes_image + float_index;
        auto const ratio = [&](Output_vectors const& s, std::size_t i) {
            return _mm256_div_ps(s.vector[i], s0_of.vector[i]);
        };
        store_normalized_pairs(
            target, ratio(s1_of, 0), ratio(s2_of, 0), ratio(s1_of, 1), ratio(s2_of, 1));
        store_normalized_pairs(
            target + 2 * planes.width, ratio(s1_of, 2), ratio(s2_of, 2), ratio(s1_of, 3),
            ratio(s2_of, 3));
    }
    if constexpr (Set::want_s0) {
        compute_plane(planes.s0_image, offsets, limit, [&](auto i) {
            return stokes_plane_value<Set::rescale>(s0_of.vector[i], broadcast);
        });
    }
    if constexpr (Set::want_s1) {
        compute_plane(planes.s1_image, offsets, limit, [&](auto i) {
            return stokes_plane_value<Set::rescale>(s1_of.vector[i], broadcast);
        });
    }
    if constexpr (Set::want_s2) {
        compute_plane(planes.s2_image, offsets, limit, [&](auto i) {
            return stokes_plane_value<Set::rescale>(s2_of.vector[i], broadcast);
        });
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
