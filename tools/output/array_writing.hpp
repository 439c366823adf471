/// @file
/// Arrays of samples as the contents of files: TIFF, PNG, NumPy's format, or bare.
#pragma once

#include "input/frame.hpp"
#include "veldrane_mrv/polarization/planes.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace polarize_tool {

enum class File_format { tiff, png, raw, npy };

/// Without the dot.
std::string_view ending_of(File_format format);

/// Rows of pixels without padding, `channels` samples side by side in each pixel, in the order of
/// bytes of this machine (the lower first). Does not own them.
class Array_view {
public:
    Array_view(
        std::span<std::uint16_t const> samples, std::size_t width, std::size_t height,
        std::size_t channels = 1)
        : Array_view(
              std::as_bytes(samples), polarization::Element_type::uint16, width, height, channels) {
    }
    Array_view(
        std::span<std::int32_t const> samples, std::size_t width, std::size_t height,
        std::size_t channels = 1)
        : Array_view(
              std::as_bytes(samples), polarization::Element_type::int32, width, height, channels) {}
    Array_view(
        std::span<float const> samples, std::size_t width, std::size_t height,
        std::size_t channels = 1)
        : Array_view(
              std::as_bytes(samples), polarization::Element_type::float32, width, height,
              channels) {}
    Array_view(
        std::span<std::uint8_t const> samples, std::size_t width, std::size_t height,
        std::size_t channels = 1)
        : Array_view(
              std::as_bytes(samples), polarization::Element_type::uint8, width, height, channels) {}

    std::span<std::uint8_t const> bytes() const { return bytes_; }
    polarization::Element_type kind() const { return kind_; }
    std::size_t width() const { return width_; }
    std::size_t height() const { return height_; }
    std::size_t channels() const { return channels_; }

private:
    Array_view(
        std::span<std::byte const> bytes, polarization::Element_type kind, std::size_t width,
        std::size_t height, std::size_t channels)
        : bytes_{reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size()}, kind_{kind},
          width_{width}, height_{height}, channels_{channels} {}

    std::span<std::uint8_t const> bytes_;
    polarization::Element_type kind_;
    std::size_t width_;
    std::size_t height_;
    std::size_t channels_;
};

/// NumPy's format, version 1.0, for an array of two dimensions or more. The samples begin at a
/// multiple of `alignment` bytes, at most 32768.
std::vector<std::uint8_t> npy_head(
    polarization::Element_type kind, std::span<std::size_t const> shape,
    std::size_t alignment = 64);

/// What a file consists of: `head`, and behind it the samples as they lie in memory if
/// `samples_follow`. A copy of a plane would take as long as its computation.
struct Encoded_array {
    std::vector<std::uint8_t> head;
    bool samples_follow;
};

/// PNG holds single samples of 8 or 16 bits only.
/// @throws std::runtime_error if the array is no PNG, or above 4 GiB for a TIFF
Encoded_array encode(Array_view const& array, File_format format);

} // namespace polarize_tool
