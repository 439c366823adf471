/// @file
/// One plane of all frames of a recording as the contents of one file: NumPy's format, BigTIFF, or
/// bare.
#pragma once

#include "output/array_writing.hpp"
#include "veldrane_mrv/polarization/geometry.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace polarize_tool {

/// Where everything lies: a head, frame after frame without gaps, and for a BigTIFF the directories
/// of its pages. As every place is known in advance, frames can be written in any order.
class Stack_format {
public:
    /// @param format any but PNG
    /// @param count of frames, at least one
    Stack_format(
        File_format format, polarization::Element_type kind, polarization::Size const& size,
        std::size_t channels, std::size_t count);

    polarization::Element_type kind() const { return kind_; }
    std::uint64_t frame_bytes() const { return frame_bytes_; }
    std::uint64_t offset_of(std::size_t frame) const { return head_size_ + frame * frame_bytes_; }
    /// Of the whole file.
    std::uint64_t file_bytes() const;

    /// From the file's start on.
    std::vector<std::uint8_t> head() const;
    /// From `tail_offset` on; nothing but for a BigTIFF.
    std::vector<std::uint8_t> tail() const;
    std::uint64_t tail_offset() const;

private:
    std::uint64_t directory_bytes() const;
    void append_directory(std::vector<std::uint8_t>& bytes, std::size_t frame) const;

    File_format format_;
    polarization::Element_type kind_;
    polarization::Size size_;
    std::size_t channels_;
    std::size_t count_;
    std::uint64_t frame_bytes_;
    std::uint64_t head_size_;
};

} // namespace polarize_tool
