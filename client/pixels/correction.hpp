#pragma once

#include "pixels/rows.hpp"
#include "quartet/arranged_row.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace weighted {

/// (value * gain + 2^14) >> 15, at most 65535: the upper and lower halves of the product, shifted
/// together.
[[gnu::always_inline]] inline __m256i with_gain(__m256i value, __m256i gain) {
    __m256i const low = _mm256_mullo_epi16(value, gain);
    __m256i const high = _mm256_mulhi_epu16(value, gain);
    __m256i const whole = _mm256_or_si256(_mm256_slli_epi16(high, 1), _mm256_srli_epi16(low, 15));
    __m256i const half = _mm256_and_si256(_mm256_srli_epi16(low, 14), _mm256_set1_epi16(1));
    __m256i const is_too_large = _mm256_srai_epi16(high, 15);
    return _mm256_or_si256(_mm256_adds_epu16(whole, half), is_too_large);
}

/// Corrects a row of the job's frame.
inline void correct_row(
    Job const& job, std::size_t row, std::uint16_t const* samples, std::uint16_t* target) {
    std::size_t const width = job.arguments.width;
    std::size_t const groups = (width + group_columns - 1) / group_columns;
    std::uint16_t const* const dark = job.dark_levels + row * groups * group_columns;
    std::uint16_t const* const gains =
        job.gains == nullptr ? nullptr : job.gains + row * groups * group_columns;
    __m256i const largest = _mm256_set1_epi16(static_cast<std::int16_t>(job.largest_sample));
    __m128i const shift = _mm_cvtsi32_si128(job.fraction_bits);
    auto const load = [](std::uint16_t const* from) __attribute__((always_inline)) {
        return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from));
    };
    auto const corrected = [&](std::uint16_t const* from, std::size_t column)
        __attribute__((always_inline)) {
        __m256i const scaled = _mm256_sll_epi16(_mm256_min_epu16(load(from), largest), shift);
        return _mm256_subs_epu16(scaled, load(dark + column));
    };
    auto const correct_all = [&](auto finish) __attribute__((always_inline)) {
        std::size_t column = 0;
        for (; column + group_columns <= width; column += group_columns) {
            store_16_pixels(target + column, finish(corrected(samples + column, column), column));
        }
        if (column != width) {
            std::uint16_t last[group_columns] = {};
            std::memcpy(last, samples + column, (width - column) * sizeof(*last));
            store_16_pixels(target + column, finish(corrected(last, column), column));
        }
    };
    if (gains == nullptr) {
        correct_all([](__m256i value, std::size_t) { return value; });
    } else {
        correct_all([&](__m256i value, std::size_t column) {
            return with_gain(value, load(gains + column));
        });
    }
}

} // namespace weighted
