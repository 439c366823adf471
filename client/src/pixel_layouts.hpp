/// @file
/// Rows of every format without vectors, for any x86-64. The layouts that pack samples closer than
/// bytes are arithmetic on groups of four samples.
#pragma once

#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace veldrane_mrv::polarization::pixel_layouts {

static_assert(std::endian::native == std::endian::little, "bytes are copied as they are");

inline constexpr std::size_t samples_per_group = 4;

// The packed formats in groups of four samples: `stored_bits` / 2 bytes, read as one little-endian
// number, become four 16-bit lanes of a 64-bit number by shifts and masks alone. That needs no
// permutation of bytes, which the baseline instruction set lacks.
template <unsigned bits>
struct Bit_packed {
    static constexpr unsigned stored_bits = bits;

    static std::uint64_t to_lanes(std::uint64_t packed) {
        constexpr std::uint64_t sample = (1U << bits) - 1;
        return (packed & sample) | (packed & (sample << bits)) << (16 - bits) |
               (packed & (sample << 2 * bits)) << 2 * (16 - bits) |
               (packed & (sample << 3 * bits)) << 3 * (16 - bits);
    }

    static std::uint64_t from_lanes(std::uint64_t lanes) {
        constexpr std::uint64_t lane = 0xFFFF;
        return (lanes & lane) | (lanes & lane << 16) >> (16 - bits) |
               (lanes & lane << 32) >> 2 * (16 - bits) | (lanes & lane << 48) >> 3 * (16 - bits);
    }
};

// A pair of samples takes 24 bits, of which the middle byte holds the low bits of both.
//
//   bit  23      16 15  12 11   8 7        0
//        high of 1  low 1  low 0  high of 0
template <unsigned bits>
struct Pair_packed {
    static constexpr unsigned stored_bits = 12;
    static constexpr unsigned low_bits = bits - 8;
    static constexpr std::uint64_t low = (1U << low_bits) - 1;

    static std::uint64_t pair_to_lanes(std::uint64_t packed) {
        return (packed & 0xFF) << low_bits | (packed >> 8 & low) |
               (packed >> 16 & 0xFF) << (16 + low_bits) | (packed >> 12 & low) << 16;
    }

    static std::uint64_t pair_from_lanes(std::uint64_t lanes) {
        return (lanes >> low_bits & 0xFF) | (lanes & low) << 8 | (lanes >> 16 & low) << 12 |
               (lanes >> (16 + low_bits) & 0xFF) << 16;
    }

    static std::uint64_t to_lanes(std::uint64_t packed) {
        return pair_to_lanes(packed) | pair_to_lanes(packed >> 24) << 32;
    }

    static std::uint64_t from_lanes(std::uint64_t lanes) {
        return pair_from_lanes(lanes) | pair_from_lanes(lanes >> 32) << 24;
    }
};

template <class Layout>
void unpack_groups(std::byte const* row, std::size_t width, std::uint16_t* samples) {
    constexpr std::size_t group_bytes = samples_per_group * Layout::stored_bits / 8;
    std::size_t const row_bytes = (width * Layout::stored_bits + 7) / 8;
    std::size_t column = 0;
    std::size_t position = 0;
    // Eight bytes are read for the five or six of a group, so the last ones are left to the tail.
    for (; position + sizeof(std::uint64_t) <= row_bytes;
         position += group_bytes, column += samples_per_group) {
        std::uint64_t packed;
        std::memcpy(&packed, row + position, sizeof packed);
        std::uint64_t const lanes = Layout::to_lanes(packed);
        std::memcpy(samples + column, &lanes, sizeof lanes);
    }
    for (; column < width; position += group_bytes, column += samples_per_group) {
        std::uint64_t packed = 0;
        std::memcpy(&packed, row + position, std::min(group_bytes, row_bytes - position));
        std::uint64_t const lanes = Layout::to_lanes(packed);
        std::memcpy(samples + column, &lanes, 2 * std::min(samples_per_group, width - column));
    }
}

template <class Layout>
void pack_groups(std::uint16_t const* samples, std::size_t width, std::byte* row) {
    constexpr std::size_t group_bytes = samples_per_group * Layout::stored_bits / 8;
    std::size_t const row_bytes = (width * Layout::stored_bits + 7) / 8;
    std::size_t position = 0;
    for (std::size_t column = 0; column < width;
         column += samples_per_group, position += group_bytes) {
        std::uint64_t lanes = 0;
        std::memcpy(&lanes, samples + column, 2 * std::min(samples_per_group, width - column));
        std::uint64_t const packed = Layout::from_lanes(lanes);
        std::memcpy(row + position, &packed, std::min(group_bytes, row_bytes - position));
    }
}

inline void unpack_plainly(
    Pixel_format format, std::byte const* row, std::span<std::uint16_t> samples) {
    if (samples.empty()) {
        return;
    }
    switch (format) {
    case Pixel_format::mono8:
        std::transform(row, row + samples.size(), samples.begin(), [](std::byte value) {
            return std::to_integer<std::uint16_t>(value);
        });
        return;
    case Pixel_format::mono10p:
        return unpack_groups<Bit_packed<10>>(row, samples.size(), samples.data());
    case Pixel_format::mono12p:
        return unpack_groups<Bit_packed<12>>(row, samples.size(), samples.data());
    case Pixel_format::mono10_packed:
        return unpack_groups<Pair_packed<10>>(row, samples.size(), samples.data());
    case Pixel_format::mono12_packed:
        return unpack_groups<Pair_packed<12>>(row, samples.size(), samples.data());
    case Pixel_format::mono10:
    case Pixel_format::mono12:
    case Pixel_format::mono14:
    case Pixel_format::mono16:
        std::memcpy(samples.data(), row, samples.size_bytes());
        return;
    }
}

inline void pack_plainly(
    Pixel_format format, std::span<std::uint16_t const> samples, std::byte* row) {
    if (samples.empty()) {
        return;
    }
    switch (format) {
    case Pixel_format::mono8:
        std::transform(samples.begin(), samples.end(), row, [](std::uint16_t value) {
            return static_cast<std::byte>(value);
        });
        return;
    case Pixel_format::mono10p:
        return pack_groups<Bit_packed<10>>(samples.data(), samples.size(), row);
    case Pixel_format::mono12p:
        return pack_groups<Bit_packed<12>>(samples.data(), samples.size(), row);
    case Pixel_format::mono10_packed:
        return pack_groups<Pair_packed<10>>(samples.data(), samples.size(), row);
    case Pixel_format::mono12_packed:
        return pack_groups<Pair_packed<12>>(samples.data(), samples.size(), row);
    case Pixel_format::mono10:
    case Pixel_format::mono12:
    case Pixel_format::mono14:
    case Pixel_format::mono16:
        std::memcpy(row, samples.data(), samples.size_bytes());
        return;
    }
}

} // namespace veldrane_mrv::polarization::pixel_layouts
