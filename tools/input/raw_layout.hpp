/// @file
/// Files of bare samples: what the user says about them, and where the frames lie in one.
#pragma once

#include "veldrane_mrv/polarization/pixel_format.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

namespace polarize_tool {

/// A header once, then frame after frame. Rows begin `stride` bytes apart, frames height * stride;
/// behind the last row of the last frame its padding may be missing.
struct Raw_layout {
    veldrane_mrv::polarization::Pixel_format format;
    std::size_t width;
    std::size_t height;
    std::uint64_t header_bytes;
    std::size_t stride;

    /// Without the padding of the last row.
    std::size_t frame_bytes() const;
    std::uint64_t offset_of(std::size_t frame) const;

    /// Frames in a file of `file_size` bytes, 0 if this is the size of no whole number of them.
    std::size_t frames_in(std::uint64_t file_size) const;

    /// Why `frames_in` gives 0: the size of the file beside the sizes that would do.
    std::string size_problem(std::uint64_t file_size) const;

private:
    std::uint64_t frame_step() const { return std::uint64_t{height} * stride; }
};

/// @param stride 0 for rows without padding
/// @throws veldrane_mrv::polarization::Argument_error if the numbers do not fit together
Raw_layout make_raw_layout(
    std::string const& pixel_format, std::size_t width, std::size_t height,
    std::uint64_t header_bytes, std::size_t stride);

} // namespace polarize_tool
