/// @file
/// Pixels of a sensor that a user names.
#pragma once

#include "veldrane_mrv/polarization/geometry.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace polarize_tool {

namespace polarization = veldrane_mrv::polarization;

/// A text with a line `column,row` for each pixel, both counted from 0 over the whole sensor. Empty
/// lines do not matter, nor does a first line of these two words.
class Pixel_list {
public:
    /// No pixel.
    Pixel_list() = default;
    /// @throws File_failure naming the line that is none of these
    explicit Pixel_list(std::filesystem::path const& file);

    /// Of those in the region: (row - region.row) * region.width + column - region.column.
    /// @throws File_failure naming the line of a pixel outside of the sensor
    std::vector<std::uint32_t> indices(
        polarization::Size const& sensor, polarization::Region const& region) const;

private:
    struct Pixel {
        std::size_t column;
        std::size_t row;
        std::size_t line;
    };

    std::filesystem::path file_;
    std::vector<Pixel> pixels_;
};

} // namespace polarize_tool
