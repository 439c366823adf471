#pragma once

#include "pixels/rows.hpp"
#include "quartet/constants.hpp"
#include "quartet/group.hpp"
#include "quartet/lanes.hpp"
#include "quartet/stokes.hpp"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace weighted {

using quartet::Eight_lanes;
using quartet::Samples;

/// Groups of a row that go through all steps together: what one step leaves to the next stays in
/// the first-level cache.
inline constexpr std::size_t chunk_groups = 32;

/// S0, S1 and S2 of a chunk: of each group the eight even columns, then the eight odd ones.
struct Estimates {
    alignas(32) float s0[chunk_groups * group_columns];
    alignas(32) float s1[chunk_groups * group_columns];
    alignas(32) float s2[chunk_groups * group_columns];
};

/// Which of them any plane needs.
struct Needs {
    bool s0, s1, s2;
};

/// The weights of a row's even and odd columns, each broadcast to all lanes.
struct Position_weights {
    __m256 even[weight_count];
    __m256 odd[weight_count];

    Position_weights(std::array<float, 16> const& of_even, std::array<float, 16> const& of_odd) {
        for (std::size_t weight = 0; weight < weight_count; ++weight) {
            even[weight] = _mm256_set1_ps(of_even[weight]);
            odd[weight] = _mm256_set1_ps(of_odd[weight]);
        }
    }
};

/// Every pixel has the weights of its position.
struct By_position {
    Position_weights const& position;

    By_position from(std::size_t /*group*/) const { return *this; }

    template <bool is_odd>
    [[gnu::always_inline]] __m256 operator()(std::size_t /*group*/, std::size_t weight) const {
        return is_odd ? position.odd[weight] : position.even[weight];
    }
};

/// Every pixel has weights of its own, as steps from those of its position.
struct By_pixel {
    Position_weights const& position;
    std::int16_t const* steps;
    __m256 step;

    By_pixel from(std::size_t group) const {
        return {position, steps + group * weights_per_group, step};
    }

    template <bool is_odd>
    [[gnu::always_inline]] __m256 operator()(std::size_t group, std::size_t weight) const {
        std::int16_t const* const place =
            steps + group * weights_per_group + (is_odd ? weight_count + weight : weight) * 8;
        __m256 const count = _mm256_cvtepi32_ps(
            _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<__m128i const*>(place))));
        return _mm256_fmadd_ps(count, step, is_odd ? position.odd[weight] : position.even[weight]);
    }
};

/// Samples of neighbouring rows at a chunk's first column; one column more than its groups have.
struct Chunk_samples {
    std::uint16_t const* own;
    std::uint16_t const* vertical;
    std::size_t groups;
};

/// Ahead of the vertical row, which is read here for the first time: as for stores, hardware stops
/// at the next page.
inline constexpr std::size_t prefetched_bytes = 1024;

template <Needs needs, typename Weights>
void estimate_chunk(Chunk_samples const& samples, Weights const& weights, Estimates& estimates) {
    auto const row = [&
        weights]<bool is_odd>(Samples<Eight_lanes> const& of, std::size_t group, std::size_t first)
        __attribute__((always_inline)) {
        return quartet::weighted_sum<Eight_lanes>(
            of, [&](std::size_t sample) __attribute__((always_inline)) {
                return weights.template operator()<is_odd>(group, first + sample);
            });
    };
    __m256 const half = _mm256_set1_ps(constants::s0_factor);
    for (std::size_t group = 0; group != samples.groups; ++group) {
        std::size_t const offset = group * group_columns;
        _mm_prefetch(
            reinterpret_cast<char const*>(
                reinterpret_cast<std::uintptr_t>(samples.vertical + offset) + prefetched_bytes),
            _MM_HINT_T0);
        quartet::Group_samples const of =
            quartet::read_group(samples.own + offset, samples.vertical + offset);
        if constexpr (needs.s0) {
            _mm256_store_ps(
                estimates.s0 + offset,
                _mm256_mul_ps(half, row.template operator()<false>(of.even, group, 0)));
            _mm256_store_ps(
                estimates.s0 + offset + 8,
                _mm256_mul_ps(half, row.template operator()<true>(of.odd, group, 0)));
        }
        if constexpr (needs.s1) {
            _mm256_store_ps(
                estimates.s1 + offset, row.template operator()<false>(of.even, group, 4));
            _mm256_store_ps(
                estimates.s1 + offset + 8, row.template operator()<true>(of.odd, group, 4));
        }
        if constexpr (needs.s2) {
            _mm256_store_ps(
                estimates.s2 + offset, row.template operator()<false>(of.even, group, 8));
            _mm256_store_ps(
                estimates.s2 + offset + 8, row.template operator()<true>(of.odd, group, 8));
        }
    }
}

} // namespace weighted
