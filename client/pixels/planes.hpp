#pragma once

#include "pixels/estimates.hpp"
#include "quartet/arctangent.hpp"
#include "quartet/degree_of_polarization.hpp"
#include "quartet/group.hpp"
#include "quartet/stokes.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace weighted {

/// Where the groups of a chunk go. The last group may have fewer columns than others.
struct Chunk_columns {
    std::size_t whole_groups;
    /// Columns of the group behind them, 0 if there is none.
    std::size_t rest;
};

/// As far ahead of a store as of the processor's own.
inline constexpr std::size_t prefetched_store_bytes = 256;

template <class Element>
[[gnu::always_inline]] inline void prefetch_for_store(Element* target) {
    _mm_prefetch(
        reinterpret_cast<char const*>(
            reinterpret_cast<std::uintptr_t>(target) + prefetched_store_bytes),
        _MM_HINT_T0);
}

/// Calls `store(target, offset)` for each group, `offset` being its place in the chunk and `target`
/// where its columns go; the last columns take the way through memory of a whole group.
template <std::size_t elements_per_pixel, class Element, class Store>
[[gnu::always_inline]] inline void for_each_group(
    Element* target, Chunk_columns const& columns, Store store) {
    constexpr std::size_t elements = group_columns * elements_per_pixel;
    std::size_t offset = 0;
    for (std::size_t group = 0; group != columns.whole_groups; ++group) {
        prefetch_for_store(target);
        store(target, offset);
        target += elements;
        offset += group_columns;
    }
    if (columns.rest != 0) {
        Element last[elements];
        store(last, offset);
        std::memcpy(target, last, columns.rest * elements_per_pixel * sizeof(Element));
    }
}

/// A 16-bit plane: `value(offset)` is what eight even or eight odd columns get, not yet converted.
template <class Value>
[[gnu::always_inline]] inline void store_plane(
    std::uint16_t* target, Chunk_columns const& columns, Value value) {
    for_each_group<1>(target, columns, [&](std::uint16_t* pixels, std::size_t offset) {
        store_16_pixels(pixels, quartet::in_column_order(value(offset), value(offset + 8)));
    });
}

/// Full scales, broadcast to all lanes.
struct Full_scales {
    __m256 output;
    float input;
};

struct Rescaled {
    static constexpr bool rescale = true;
};

struct In_sample_units {
    static constexpr bool rescale = false;
};

/// What is stored of S0, S1 or S2, before the conversion.
template <class Units>
[[gnu::always_inline]] inline __m256 stokes_pixel(__m256 value, Full_scales const& scales) {
    return quartet::clamp<Eight_lanes>(
        quartet::stokes_plane_value<Units, Eight_lanes>(value, scales.output, scales.input),
        scales.output);
}

template <class Units>
void store_stokes(
    std::uint16_t* target, Chunk_columns const& columns, float const* estimates,
    Full_scales const& scales) {
    store_plane(
        target, columns, [&](std::size_t offset) __attribute__((always_inline)) {
            return stokes_pixel<Units>(_mm256_load_ps(estimates + offset), scales);
        });
}

/// The number of the positive half less that of the negative half, as unsigned planes have them.
template <class Units>
[[gnu::always_inline]] inline __m256i signed_pixel(__m256 value, Full_scales const& scales) {
    __m256 const negated = _mm256_xor_ps(value, _mm256_set1_ps(-0.0F));
    return _mm256_sub_epi32(
        _mm256_cvtps_epi32(stokes_pixel<Units>(value, scales)),
        _mm256_cvtps_epi32(stokes_pixel<Units>(negated, scales)));
}

template <class Units>
void store_signed(
    std::int32_t* target, Chunk_columns const& columns, float const* estimates,
    Full_scales const& scales) {
    for_each_group<1>(target, columns, [&](std::int32_t* pixels, std::size_t offset) {
        quartet::store_16_wide_pixels(
            pixels, signed_pixel<Units>(_mm256_load_ps(estimates + offset), scales),
            signed_pixel<Units>(_mm256_load_ps(estimates + offset + 8), scales));
    });
}

inline void store_azimuth(
    std::uint16_t* target, Chunk_columns const& columns, Estimates const& of,
    Full_scales const& scales) {
    store_plane(
        target, columns, [&](std::size_t offset) __attribute__((always_inline)) {
            return quartet::clamp<Eight_lanes>(
                quartet::azimuth_value<Eight_lanes>(
                    _mm256_load_ps(of.s1 + offset), _mm256_load_ps(of.s2 + offset), scales.output),
                scales.output);
        });
}

inline void store_degree(
    std::uint16_t* target, Chunk_columns const& columns, Estimates const& of,
    Full_scales const& scales) {
    store_plane(
        target, columns, [&](std::size_t offset) __attribute__((always_inline)) {
            return quartet::clamp<Eight_lanes>(
                quartet::dolp_value<Eight_lanes>(
                    _mm256_load_ps(of.s0 + offset), _mm256_load_ps(of.s1 + offset),
                    _mm256_load_ps(of.s2 + offset), scales.output),
                scales.output);
        });
}

inline void store_ratios(float* target, Chunk_columns const& columns, Estimates const& of) {
    auto const stokes = [&](std::size_t offset) __attribute__((always_inline)) {
        return quartet::Stokes<Eight_lanes>{
            _mm256_load_ps(of.s0 + offset), _mm256_load_ps(of.s1 + offset),
            _mm256_load_ps(of.s2 + offset)};
    };
    for_each_group<2>(target, columns, [&](float* pairs, std::size_t offset) {
        quartet::store_last_pairs(
            pairs, stokes(offset), stokes(offset + 8), quartet::group_columns);
    });
}

} // namespace weighted
