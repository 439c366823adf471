#include "client/traffic.hpp"

#include <immintrin.h>

namespace {

constexpr std::size_t prefetched_bytes = 256;

void read_row(std::byte const* row, std::size_t bytes, __m256i& all) {
    for (std::size_t at = 0; at + sizeof(__m256i) <= bytes; at += sizeof(__m256i)) {
        all =
            _mm256_or_si256(all, _mm256_loadu_si256(reinterpret_cast<__m256i_u const*>(row + at)));
    }
}

void write_row(void* row, std::size_t bytes, __m256i value) {
    auto const first = reinterpret_cast<std::uintptr_t>(row);
    for (std::size_t at = 0; at + sizeof(__m256i) <= bytes; at += sizeof(__m256i)) {
        _mm_prefetch(reinterpret_cast<char const*>(first + at + prefetched_bytes), _MM_HINT_T0);
        _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(static_cast<std::byte*>(row) + at), value);
    }
}

} // namespace

void move_same_bytes(
    Polarization_computation_arguments const& frame,
    std::span<std::span<std::byte const> const> tables,
    std::span<std::int32_t* const> signed_planes) {
    std::uint16_t* const planes[] = {
        frame.s0_image, frame.s1_image, frame.s2_image, frame.azimuth_image, frame.dolp_image};
    std::size_t const row_bytes = 2 * frame.width;
    for (std::size_t row = 0; row < frame.height; ++row) {
        __m256i all = _mm256_setzero_si256();
        read_row(
            reinterpret_cast<std::byte const*>(frame.raw_image + row * frame.width), row_bytes,
            all);
        for (std::span<std::byte const> const table : tables) {
            std::size_t const bytes = table.size() / frame.height;
            read_row(table.data() + row * bytes, bytes, all);
        }
        for (std::uint16_t* const plane : planes) {
            if (plane != nullptr) {
                write_row(plane + row * frame.width, row_bytes, all);
            }
        }
        for (std::int32_t* const plane : signed_planes) {
            if (plane != nullptr) {
                write_row(plane + row * frame.width, 2 * row_bytes, all);
            }
        }
    }
}
