#include "pixels/unpacking.hpp"

#include <immintrin.h>

namespace packed {
namespace {

constexpr std::size_t vector_samples = 16;

[[gnu::always_inline]] inline __m128i load_16_bytes(std::byte const* from) {
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(from));
}

[[gnu::always_inline]] inline void store_16_bytes(std::byte* target, __m128i bytes) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), bytes);
}

[[gnu::always_inline]] inline __m256i load_samples(std::uint16_t const* from) {
    return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from));
}

[[gnu::always_inline]] inline __m256i in_both_lanes(__m128i lane) {
    return _mm256_broadcastsi128_si256(lane);
}

/// Even samples get one number, odd ones the other.
[[gnu::always_inline]] inline __m256i alternating(std::int16_t even, std::int16_t odd) {
    return _mm256_set1_epi32(odd * 0x10000 + even);
}

// Each layout turns the bytes of eight samples at the start of either lane into these samples, or
// does the reverse. The bytes that hold a part of a sample come to its place by one shuffle.

struct Mono10p {
    static constexpr std::size_t lane_bytes = 10;

    static __m256i to_samples(__m256i bytes) {
        __m256i const places =
            in_both_lanes(_mm_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 5, 6, 6, 7, 7, 8, 8, 9));
        // The four samples of a group begin at bits 0, 2, 4 and 6 of their pairs of bytes: with
        // their last bits at bit 15 they all lose what is above them.
        __m256i const to_top = _mm256_set1_epi64x(0x0001'0004'0010'0040);
        return _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_shuffle_epi8(bytes, places), to_top), 6);
    }

    static __m256i from_samples(__m256i samples) {
        __m256i const pairs = _mm256_madd_epi16(samples, alternating(1, 1 << 10));
        __m256i const second = _mm256_set1_epi64x(0xFF'FFF0'0000);
        __m256i const first = _mm256_set1_epi64x(0xF'FFFF);
        __m256i const groups = _mm256_or_si256(
            _mm256_and_si256(pairs, first), _mm256_and_si256(_mm256_srli_epi64(pairs, 12), second));
        return _mm256_shuffle_epi8(
            groups,
            in_both_lanes(_mm_setr_epi8(0, 1, 2, 3, 4, 8, 9, 10, 11, 12, -1, -1, -1, -1, -1, -1)));
    }
};

/// Two samples in three bytes.
[[gnu::always_inline]] inline __m256i three_of_four_bytes(__m256i pairs) {
    return _mm256_shuffle_epi8(
        pairs,
        in_both_lanes(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1)));
}

struct Mono12p {
    static constexpr std::size_t lane_bytes = 12;

    static __m256i to_samples(__m256i bytes) {
        __m256i const places =
            in_both_lanes(_mm_setr_epi8(0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11));
        __m256i const pairs = _mm256_shuffle_epi8(bytes, places);
        return _mm256_blend_epi16(
            _mm256_and_si256(pairs, _mm256_set1_epi16(0xFFF)), _mm256_srli_epi16(pairs, 4), 0xAA);
    }

    static __m256i from_samples(__m256i samples) {
        return three_of_four_bytes(_mm256_madd_epi16(samples, alternating(1, 1 << 12)));
    }
};

/// A byte of each sample, and between the two a byte with the low bits of both.
template <int low_bits>
struct Pair_packed {
    static constexpr std::size_t lane_bytes = 12;

    static __m256i to_samples(__m256i bytes) {
        // The common byte below, the sample's own above.
        __m256i const places =
            in_both_lanes(_mm_setr_epi8(1, 0, 1, 2, 4, 3, 4, 5, 7, 6, 7, 8, 10, 9, 10, 11));
        __m256i const pairs = _mm256_shuffle_epi8(bytes, places);
        __m256i const high = _mm256_srli_epi16(pairs, 8 - low_bits);
        // An even sample's low bits are at bit 0 of the common byte, an odd one's at bit 4.
        __m256i const low = _mm256_srli_epi16(_mm256_mullo_epi16(pairs, alternating(1 << 4, 1)), 4);
        __m256i const is_low = _mm256_set1_epi16((1 << low_bits) - 1);
        return _mm256_or_si256(_mm256_andnot_si256(is_low, high), _mm256_and_si256(is_low, low));
    }

    static __m256i from_samples(__m256i samples) {
        __m256i const low = _mm256_and_si256(samples, _mm256_set1_epi16((1 << low_bits) - 1));
        __m256i const common = _mm256_madd_epi16(low, alternating(1 << 8, 1 << 12));
        return three_of_four_bytes(_mm256_or_si256(_mm256_srli_epi16(samples, low_bits), common));
    }
};

template <class Layout>
std::size_t unpack_vectors(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    constexpr std::size_t vector_bytes = 2 * Layout::lane_bytes;
    // Both lanes load 16 bytes.
    constexpr std::size_t bytes_read = Layout::lane_bytes + 16;
    std::size_t const row_bytes = width * Layout::lane_bytes / 8;
    std::size_t column = 0;
    for (std::size_t position = 0; position + bytes_read <= row_bytes; position += vector_bytes) {
        __m256i const bytes = _mm256_inserti128_si256(
            _mm256_castsi128_si256(load_16_bytes(row + position)),
            load_16_bytes(row + position + Layout::lane_bytes), 1);
        _mm256_storeu_si256(
            reinterpret_cast<__m256i*>(samples + column), Layout::to_samples(bytes));
        column += vector_samples;
    }
    return column;
}

template <class Layout>
std::size_t pack_vectors(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    constexpr std::size_t vector_bytes = 2 * Layout::lane_bytes;
    constexpr std::size_t bytes_written = Layout::lane_bytes + 16;
    std::size_t const row_bytes = width * Layout::lane_bytes / 8;
    std::size_t column = 0;
    for (std::size_t position = 0; position + bytes_written <= row_bytes;
         position += vector_bytes) {
        __m256i const bytes = Layout::from_samples(load_samples(samples + column));
        store_16_bytes(row + position, _mm256_castsi256_si128(bytes));
        store_16_bytes(row + position + Layout::lane_bytes, _mm256_extracti128_si256(bytes, 1));
        column += vector_samples;
    }
    return column;
}

} // namespace

std::size_t unpack_mono8(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    std::size_t column = 0;
    for (; column + vector_samples <= width; column += vector_samples) {
        _mm256_storeu_si256(
            reinterpret_cast<__m256i*>(samples + column),
            _mm256_cvtepu8_epi16(load_16_bytes(row + column)));
    }
    return column;
}

std::size_t unpack_mono10p(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    return unpack_vectors<Mono10p>(row, width, samples);
}

std::size_t unpack_mono12p(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    return unpack_vectors<Mono12p>(row, width, samples);
}

std::size_t unpack_mono10_packed(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    return unpack_vectors<Pair_packed<2>>(row, width, samples);
}

std::size_t unpack_mono12_packed(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    return unpack_vectors<Pair_packed<4>>(row, width, samples);
}

std::size_t pack_mono8(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    std::size_t column = 0;
    for (; column + vector_samples <= width; column += vector_samples) {
        __m256i const words = load_samples(samples + column);
        store_16_bytes(
            row + column,
            _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
    }
    return column;
}

std::size_t pack_mono10p(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    return pack_vectors<Mono10p>(samples, width, row);
}

std::size_t pack_mono12p(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    return pack_vectors<Mono12p>(samples, width, row);
}

std::size_t pack_mono10_packed(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    return pack_vectors<Pair_packed<2>>(samples, width, row);
}

std::size_t pack_mono12_packed(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    return pack_vectors<Pair_packed<4>>(samples, width, row);
}

} // namespace packed
