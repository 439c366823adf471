#include "contenders/contenders.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace {

constexpr std::size_t samples_per_vector = 16;

/// The library asks ahead for the lines that it will load and store. Where they come from memory it
/// takes a tenth or more off this loop too, which without it would be no limit; in the caches it
/// would add up to 20 per cent.
constexpr std::size_t prefetched_bytes = 1024;
constexpr std::size_t most_cached_pixels = std::size_t{1} << 17;

template <bool prefetches>
void prefetch_ahead_of(void const* place) {
    if constexpr (prefetches) {
        // Behind the plane's end it is a number, no pointer; a prefetch never faults.
        auto const ahead = reinterpret_cast<std::uintptr_t>(place) + prefetched_bytes;
        _mm_prefetch(reinterpret_cast<char const*>(ahead), _MM_HINT_T0);
    }
}

template <bool prefetches, typename Element>
void store(Element* plane, std::size_t at, __m256i value) {
    prefetch_ahead_of<prefetches>(plane + at);
    _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(plane + at), value);
}

/// Known at compile time, so that the loop tests no pointer.
template <unsigned planes, bool prefetches>
void write_planes(Polarization_computation_arguments const& frame) {
    std::size_t const count = frame.height * frame.width;
    for (std::size_t at = 0; at + samples_per_vector <= count; at += samples_per_vector) {
        prefetch_ahead_of<prefetches>(frame.raw_image + at);
        __m256i const samples =
            _mm256_loadu_si256(reinterpret_cast<__m256i_u const*>(frame.raw_image + at));
        if constexpr ((planes & s0_plane) != 0) {
            store<prefetches>(frame.s0_image, at, samples);
        }
        if constexpr ((planes & s1_plane) != 0) {
            store<prefetches>(frame.s1_image, at, samples);
        }
        if constexpr ((planes & s2_plane) != 0) {
            store<prefetches>(frame.s2_image, at, samples);
        }
        if constexpr ((planes & azimuth_plane) != 0) {
            store<prefetches>(frame.azimuth_image, at, samples);
        }
        if constexpr ((planes & dolp_plane) != 0) {
            store<prefetches>(frame.dolp_image, at, samples);
        }
        if constexpr ((planes & normalized_stokes_plane) != 0) {
            for (std::size_t i = 0; i < 4; ++i) {
                store<prefetches>(frame.normalized_stokes_image, 2 * at + 8 * i, samples);
            }
        }
    }
}

template <unsigned planes>
void write_planes(Polarization_computation_arguments const& frame) {
    if (frame.height * frame.width > most_cached_pixels) {
        write_planes<planes, true>(frame);
    } else {
        write_planes<planes, false>(frame);
    }
}

} // namespace

void contenders::limit(Polarization_computation_arguments const& frame) {
    switch (planes_of(frame)) {
    case stokes_planes:
        return write_planes<stokes_planes>(frame);
    case azimuth_and_dolp:
        return write_planes<azimuth_and_dolp>(frame);
    case s0_azimuth_and_dolp:
        return write_planes<s0_azimuth_and_dolp>(frame);
    case five_planes:
        return write_planes<five_planes>(frame);
    case six_planes:
        return write_planes<six_planes>(frame);
    default:
        return;
    }
}

void contenders::memory_copy(Polarization_computation_arguments const& frame) {
    std::size_t const bytes = frame.height * frame.width * sizeof(std::uint16_t);
    for (std::uint16_t* const plane :
         {frame.s0_image, frame.s1_image, frame.s2_image, frame.azimuth_image, frame.dolp_image}) {
        if (plane != nullptr) {
            std::memcpy(plane, frame.raw_image, bytes);
        }
    }
    if (frame.normalized_stokes_image != nullptr) {
        for (std::size_t quarter = 0; quarter < 4; ++quarter) {
            std::memcpy(
                frame.normalized_stokes_image + quarter * (frame.height * frame.width / 2),
                frame.raw_image, bytes);
        }
    }
}
