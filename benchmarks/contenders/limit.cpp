#include "contenders/contenders.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace {

constexpr std::size_t samples_per_vector = 16;

/// Known at compile time, so that the loop tests no pointer.
template <unsigned planes>
void write_planes(Polarization_computation_arguments const& frame) {
    std::size_t const count = frame.height * frame.width;
    auto const store = [](auto* plane, std::size_t at, __m256i value) {
        _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(plane + at), value);
    };
    for (std::size_t at = 0; at + samples_per_vector <= count; at += samples_per_vector) {
        __m256i const samples =
            _mm256_loadu_si256(reinterpret_cast<__m256i_u const*>(frame.raw_image + at));
        if constexpr ((planes & s0_plane) != 0) {
            store(frame.s0_image, at, samples);
        }
        if constexpr ((planes & s1_plane) != 0) {
            store(frame.s1_image, at, samples);
        }
        if constexpr ((planes & s2_plane) != 0) {
            store(frame.s2_image, at, samples);
        }
        if constexpr ((planes & azimuth_plane) != 0) {
            store(frame.azimuth_image, at, samples);
        }
        if constexpr ((planes & dolp_plane) != 0) {
            store(frame.dolp_image, at, samples);
        }
        if constexpr ((planes & normalized_stokes_plane) != 0) {
            for (std::size_t i = 0; i < 4; ++i) {
                store(frame.normalized_stokes_image, 2 * at + 8 * i, samples);
            }
        }
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
