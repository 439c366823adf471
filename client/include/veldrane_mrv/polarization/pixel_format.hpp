/// @file
/// How cameras lay grey samples of 8 to 16 bits in bytes, and the way to one 16-bit number a
/// sample.
///
/// The names are those of the GenICam pixel format naming convention; its layouts are public.
///
///   Mono8                    one byte a sample
///   Mono10 Mono12 Mono14     two bytes, the lower first, the sample in the low bits
///   Mono16                   two bytes, the lower first
///   Mono10p Mono12p          bits without a gap, each sample's lowest bit first, the first sample
///                            in the lowest bits of the first byte
///   Mono10Packed             three bytes for two samples: bits 9 to 2 of the first sample; 16
///                            times bits 1 and 0 of the second plus bits 1 and 0 of the first;
///                            bits 9 to 2 of the second
///   Mono12Packed             the same with bits 11 to 4 and bits 3 to 0
///
/// Every row begins at a whole byte; an odd sample at the end of a packed row takes the bytes that
/// it touches. Samples come out right-aligned and as they stand: bits above the significant ones,
/// which only the two-byte formats can hold, are kept, so that left-aligned data shows itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace veldrane_mrv::polarization {

enum class Pixel_format {
    mono8,
    mono10,
    mono12,
    mono14,
    mono16,
    mono10p,
    mono12p,
    mono10_packed,
    mono12_packed
};

inline constexpr std::array<Pixel_format, 9> all_pixel_formats = {
    Pixel_format::mono8,   Pixel_format::mono10,        Pixel_format::mono12,
    Pixel_format::mono14,  Pixel_format::mono16,        Pixel_format::mono10p,
    Pixel_format::mono12p, Pixel_format::mono10_packed, Pixel_format::mono12_packed};

/// The name by the convention, such as `Mono12Packed`.
std::string_view name_of(Pixel_format format);

/// The format of a name, upper and lower case as in the convention.
/// @throws Argument_error with the list of the names that work
Pixel_format parse_pixel_format(std::string_view name);

/// Significant bits of a sample: 8, 10, 12, 14 or 16.
unsigned bit_depth_of(Pixel_format format);

/// Bits that a sample takes in memory: 8, 10, 12 or 16.
unsigned stored_bits_of(Pixel_format format);

/// Bytes of a row of `width` samples, the last one rounded up to a whole byte.
/// @throws Argument_error if the number does not fit in memory
std::size_t bytes_per_row(Pixel_format format, std::size_t width);

/// Bytes of a frame whose rows begin `stride` bytes apart; 0 stands for `bytes_per_row`. The last
/// row ends with its last sample.
/// @throws Argument_error if `stride` is less than a row or the number does not fit in memory
std::size_t bytes_per_frame(
    Pixel_format format, std::size_t height, std::size_t width, std::size_t stride = 0);

/// Fills `samples` from the samples of `row`, from sample number `first` on. The buffers must not
/// overlap.
/// @throws Argument_error if `row` is shorter than `samples` need; nothing has been written then
void unpack_row(
    Pixel_format format, std::span<std::byte const> row, std::span<std::uint16_t> samples,
    std::size_t first = 0);

/// Fills `samples`, dense rows of `width`, from a frame of as many rows as fit in. The buffers must
/// not overlap.
/// @throws Argument_error if the sizes do not agree; nothing has been written then
void unpack_frame(
    Pixel_format format, std::span<std::byte const> frame, std::size_t width,
    std::span<std::uint16_t> samples, std::size_t stride = 0);

/// The way back of `unpack_row`: fills the bytes of one row. Unused bits of the last byte become 0;
/// bytes beyond the row keep their contents.
/// @throws Argument_error if a sample is too large for the format or `row` too short; nothing is
///        written then
void pack_row(
    Pixel_format format, std::span<std::uint16_t const> samples, std::span<std::byte> row);

/// The way back of `unpack_frame`. Bytes between the rows keep their contents.
/// @throws Argument_error as `pack_row` and `unpack_frame`; nothing has been written then
void pack_frame(
    Pixel_format format, std::span<std::uint16_t const> samples, std::size_t width,
    std::span<std::byte> frame, std::size_t stride = 0);

} // namespace veldrane_mrv::polarization
