#pragma once

#include <cstddef>
#include <cstdint>

/// The layouts of `pixel_format.hpp` that pack samples closer than 16 bits, sixteen samples at a
/// time. For layers around the processor; declares nothing inline, since callers run on any x86-64
/// and this code needs AVX2.
namespace packed {

/// Unpacks samples from the start of a row of `width` on, as many as whole vectors give. Neither
/// reads beyond the row's last byte nor stores beyond its last sample.
/// @return how many samples, a multiple of 16; the rest, at most 31, is left to the caller
using Unpack = std::size_t(std::byte const* row, std::size_t width, std::uint16_t* samples);

Unpack unpack_mono8;
Unpack unpack_mono10p;
Unpack unpack_mono12p;
Unpack unpack_mono10_packed;
Unpack unpack_mono12_packed;

/// The way back, of samples that fit. Stores nothing beyond the row's last byte.
/// @return as `Unpack`
using Pack = std::size_t(std::uint16_t const* samples, std::size_t width, std::byte* row);

Pack pack_mono8;
Pack pack_mono10p;
Pack pack_mono12p;
Pack pack_mono10_packed;
Pack pack_mono12_packed;

} // namespace packed
