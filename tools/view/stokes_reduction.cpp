#include "view/stokes_reduction.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <emmintrin.h>
#include <numbers>

namespace polarize_tool {
namespace {

template <class Element, class Sum>
void add_to(std::span<Element const> row, std::span<Sum> columns) {
    Element const* const from = row.data();
    Sum* const to = columns.data();
    std::size_t const count = row.size();
    for (std::size_t column = 0; column < count; ++column) {
        to[column] += from[column];
    }
}

// With the number of columns known the compiler unrolls and vectorises.
template <std::size_t K>
void add_squares(std::int32_t const* columns, std::size_t squares, std::int32_t* sums) {
    for (std::size_t square = 0; square < squares; ++square) {
        std::int32_t sum = columns[square * K];
        for (std::size_t column = 1; column < K; ++column) {
            sum += columns[square * K + column];
        }
        sums[square] = sum;
    }
}

void add_squares(
    std::int32_t const* columns, std::size_t k, std::size_t squares, std::int32_t* sums) {
    for (std::size_t square = 0; square < squares; ++square, columns += k) {
        std::int32_t sum = 0;
        for (std::size_t column = 0; column < k; ++column) {
            sum += columns[column];
        }
        sums[square] = sum;
    }
}

std::uint16_t rounded(double value) {
    // Numbers are not negative: cutting off is rounding down.
    return static_cast<std::uint16_t>(_mm_cvttsd_si32(_mm_set_sd(value + 0.5)));
}

__m128 chosen(__m128 mask, __m128 where_set, __m128 elsewhere) {
    return _mm_or_ps(_mm_and_ps(mask, where_set), _mm_andnot_ps(mask, elsewhere));
}

__m128 length_of(__m128 number) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0F), number);
}

__m128 four_of(std::int32_t const* numbers) {
    return _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<__m128i const*>(numbers)));
}

// Abramowitz and Stegun, Handbook of Mathematical Functions, 4.4.49: arctangent from 0 to 1 within
// 2e-8; in turns. Compilers do not vectorise it, since a comparison might trap.
__m128 turns_of(__m128 y, __m128 x) {
    __m128 const across = length_of(y);
    __m128 const along = length_of(x);
    __m128 const ratio = _mm_div_ps(_mm_min_ps(across, along), _mm_max_ps(across, along));
    __m128 const square = _mm_mul_ps(ratio, ratio);
    __m128 sum = _mm_set1_ps(0.0028662257F);
    for (float const coefficient :
         {-0.0161657367F, 0.0429096138F, -0.0752896400F, 0.1065626393F, -0.1420889944F,
          0.1999355085F, -0.3333314528F, 1.0F}) {
        sum = _mm_add_ps(_mm_mul_ps(sum, square), _mm_set1_ps(coefficient));
    }
    constexpr auto turns = static_cast<float>(0.5 / std::numbers::pi);
    __m128 const octant = _mm_mul_ps(_mm_mul_ps(sum, ratio), _mm_set1_ps(turns));
    __m128 const quadrant =
        chosen(_mm_cmpgt_ps(across, along), _mm_sub_ps(_mm_set1_ps(0.25F), octant), octant);
    __m128 const half = chosen(
        _mm_cmplt_ps(x, _mm_setzero_ps()), _mm_sub_ps(_mm_set1_ps(0.5F), quadrant), quadrant);
    return _mm_or_ps(half, _mm_and_ps(_mm_set1_ps(-0.0F), y));
}

// Single precision is enough for all but the elements that it puts next to the middle between two
// steps: of steps of 1 / 65535 a turn is wrong by at most 0.006 as far as the tests find, a degree
// by 6 roundings, 0.024.
constexpr float doubtful_turn = 1.0F / 64;
constexpr float doubtful_degree = 1.0F / 32;

/// Stores four numbers that are not negative, rounded, and gives a bit for each that is in doubt.
unsigned store_rounded(__m128 numbers, float doubtful_distance, std::uint16_t* to) {
    __m128 const half = _mm_set1_ps(0.5F);
    __m128 const below = _mm_cvtepi32_ps(_mm_cvttps_epi32(numbers));
    __m128 const distance = length_of(_mm_sub_ps(_mm_sub_ps(numbers, below), half));
    alignas(16) std::array<std::int32_t, 4> steps;
    _mm_store_si128(
        reinterpret_cast<__m128i*>(steps.data()), _mm_cvttps_epi32(_mm_add_ps(numbers, half)));
    for (std::size_t lane = 0; lane < 4; ++lane) {
        to[lane] = static_cast<std::uint16_t>(steps[lane]);
    }
    // 0 by 0 is no number, and so not greater.
    return static_cast<unsigned>(
        _mm_movemask_ps(_mm_cmpngt_ps(distance, _mm_set1_ps(doubtful_distance))));
}

__m128d two_of(std::int32_t const* numbers) {
    return _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(numbers)));
}

/// Two of `ratios_of`, in 32 bits each; any number where S0 is 0. Compilers do not vectorise it,
/// since a comparison might trap.
__m128i nearest_ratios(std::int32_t const* numbers, std::int32_t const* s0) {
    __m128d const most = _mm_set1_pd(32767.0);
    __m128d const least = _mm_set1_pd(-32767.0);
    __m128d const ratio = _mm_div_pd(_mm_mul_pd(most, two_of(numbers)), two_of(s0));
    __m128d const limited = _mm_max_pd(least, _mm_min_pd(most, ratio));
    __m128d const sign = _mm_and_pd(limited, _mm_set1_pd(-0.0));
    return _mm_cvttpd_epi32(_mm_add_pd(limited, _mm_or_pd(_mm_set1_pd(0.5), sign)));
}

/// @param quick four elements from an index on, in single precision
/// @param exact the element of an index
template <class Quick, class Exact>
void fill(
    std::span<std::uint16_t> plane, float doubtful_distance, Quick const& quick,
    Exact const& exact) {
    std::size_t at = 0;
    for (; at + 4 <= plane.size(); at += 4) {
        unsigned doubtful = store_rounded(quick(at), doubtful_distance, plane.data() + at);
        for (; doubtful != 0; doubtful &= doubtful - 1) {
            std::size_t const one = at + static_cast<std::size_t>(std::countr_zero(doubtful));
            plane[one] = exact(one);
        }
    }
    for (; at < plane.size(); ++at) {
        plane[at] = exact(at);
    }
}

} // namespace

void add_row(std::span<std::uint16_t const> row, std::span<std::int32_t> columns) {
    add_to(row, columns);
}

void add_row(std::span<std::int32_t const> row, std::span<std::int32_t> columns) {
    add_to(row, columns);
}

void add_row(std::span<std::uint8_t const> row, std::span<std::uint8_t> columns) {
    std::ranges::transform(row, columns, columns.begin(), [](unsigned one, unsigned other) {
        return static_cast<std::uint8_t>(one | other);
    });
}

void add_columns(
    std::span<std::int32_t const> columns, std::size_t k, std::span<std::int32_t> sums) {
    std::size_t const full = columns.size() / k;
    switch (k) {
    case 1:
        std::ranges::copy(columns, sums.begin());
        return;
    case 2:
        add_squares<2>(columns.data(), full, sums.data());
        break;
    case 3:
        add_squares<3>(columns.data(), full, sums.data());
        break;
    case 4:
        add_squares<4>(columns.data(), full, sums.data());
        break;
    default:
        add_squares(columns.data(), k, full, sums.data());
        break;
    }
    if (full < sums.size()) {
        add_squares(columns.data() + full * k, columns.size() - full * k, 1, sums.data() + full);
    }
}

void add_columns(
    std::span<std::uint8_t const> columns, std::size_t k, std::span<std::uint8_t> flags) {
    std::size_t column = 0;
    for (std::uint8_t& flag : flags) {
        std::size_t const end = std::min(column + k, columns.size());
        unsigned any = 0;
        for (; column < end; ++column) {
            any |= columns[column];
        }
        flag = static_cast<std::uint8_t>(any);
    }
}

void means_of(
    std::span<std::int32_t const> sums, std::size_t k, std::size_t columns, std::size_t rows,
    std::span<std::uint16_t> means) {
    std::size_t const full = columns / k;
    auto const divide = [&](std::size_t begin, std::size_t end, double count) {
        for (std::size_t square = begin; square < end; ++square) {
            means[square] = rounded(sums[square] / count);
        }
    };
    divide(0, full, static_cast<double>(k * rows));
    divide(full, sums.size(), static_cast<double>((columns - full * k) * rows));
}

void azimuths_of(
    std::span<std::int32_t const> s1, std::span<std::int32_t const> s2, unsigned full_scale,
    std::span<std::uint16_t> azimuths) {
    __m128 const full = _mm_set1_ps(static_cast<float>(full_scale));
    fill(
        azimuths, doubtful_turn,
        [&](std::size_t at) {
            __m128 const turns = turns_of(four_of(s2.data() + at), four_of(s1.data() + at));
            return _mm_mul_ps(_mm_add_ps(turns, _mm_set1_ps(0.5F)), full);
        },
        [&](std::size_t at) {
            double const angle =
                std::atan2(static_cast<double>(s2[at]), static_cast<double>(s1[at]));
            return rounded((angle * (0.5 / std::numbers::pi) + 0.5) * full_scale);
        });
}

void degrees_of(
    std::span<std::int32_t const> s0, std::span<std::int32_t const> s1,
    std::span<std::int32_t const> s2, unsigned full_scale, std::span<std::uint16_t> degrees) {
    __m128 const full = _mm_set1_ps(static_cast<float>(full_scale));
    fill(
        degrees, doubtful_degree,
        [&](std::size_t at) {
            __m128 const x = four_of(s1.data() + at);
            __m128 const y = four_of(s2.data() + at);
            __m128 const length = _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y)));
            __m128 const intensity = four_of(s0.data() + at);
            __m128 const degree = _mm_mul_ps(_mm_div_ps(length, intensity), full);
            // All bits set are no number either.
            __m128 const is_dark = _mm_cmpeq_ps(intensity, _mm_setzero_ps());
            return _mm_or_ps(_mm_min_ps(full, degree), is_dark);
        },
        [&](std::size_t at) {
            double const x = s1[at];
            double const y = s2[at];
            double const degree = std::sqrt(x * x + y * y) / s0[at] * full_scale;
            return s0[at] == 0 ? std::uint16_t{0}
                               : rounded(std::min(degree, static_cast<double>(full_scale)));
        });
}

void ratios_of(
    std::span<std::int32_t const> numbers, std::span<std::int32_t const> s0,
    std::span<std::int16_t> ratios) {
    std::size_t at = 0;
    for (; at + 4 <= s0.size(); at += 4) {
        __m128i const low = nearest_ratios(numbers.data() + at, s0.data() + at);
        __m128i const high = nearest_ratios(numbers.data() + at + 2, s0.data() + at + 2);
        __m128i const four = _mm_unpacklo_epi64(low, high);
        __m128i const intensity = _mm_loadu_si128(reinterpret_cast<__m128i const*>(s0.data() + at));
        // 0 by 0 and numbers by 0 are cleared here.
        __m128i const is_dark = _mm_cmpeq_epi32(intensity, _mm_setzero_si128());
        __m128i const shown = _mm_andnot_si128(is_dark, four);
        _mm_storel_epi64(
            reinterpret_cast<__m128i*>(ratios.data() + at), _mm_packs_epi32(shown, shown));
    }
    for (; at < s0.size(); ++at) {
        double const ratio = 32767.0 * numbers[at] / std::max(s0[at], 1);
        double const limited = std::clamp(ratio, -32767.0, 32767.0);
        auto const nearest = static_cast<std::int32_t>(limited + (limited < 0 ? -0.5 : 0.5));
        ratios[at] = s0[at] == 0 ? std::int16_t{0} : static_cast<std::int16_t>(nearest);
    }
}

} // namespace polarize_tool
